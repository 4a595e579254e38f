#include "platform/timer.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <utility>

#include <sys/time.h>

std::thread Timer_Queue;
std::atomic<int32_t> Timer_ID;
int64_t Timer_Seconds, Timer_MicroSeconds;

// Lets Timer_Destroy interrupt a wait. A signal handler must not use it, so the worker also checks
// Timer_ID whenever it wakes.
static std::mutex timerMutex;
static std::condition_variable timerWake;

static_assert(std::atomic<int32_t>::is_always_lock_free, "a signal handler stores Timer_ID");

// The interrupt signal's previous handler, while Timer_Trap is installed.
static struct sigaction interruptBefore;
static bool trapping;

static void RunTicks(std::chrono::steady_clock::time_point deadline,
                     std::chrono::nanoseconds period)
{
    while (true) {
        std::unique_lock lock(timerMutex);
        if (timerWake.wait_until(lock, deadline, [] { return Timer_ID == 0; }))
            return;
        lock.unlock();
        Timer_Timer();
        deadline += period;
    }
}

void Timer_Create(uint32_t seconds, uint32_t nanoseconds)
{
    using namespace std::chrono;
    static const int atExit = std::atexit(Timer_Destroy);  // the thread must not outlive main
    static_cast<void>(atExit);
    Timer_Destroy();
    struct sigaction trap = {};
    trap.sa_handler = Timer_Trap;
    trap.sa_flags = SA_RESTART;
    trapping = sigaction(SIGINT, &trap, &interruptBefore) == 0;
    Timer_ID = 1;
    Timer_Queue =
        std::thread(RunTicks, steady_clock::now() + 1s,
                    std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds));
}

void Timer_Timer()
{
    return Timer();
}

void Timer_Trap(int)
{
    Timer_ID = 0;
}

void Timer_Delay(uint32_t, uint32_t) {}

void Timer_Destroy()
{
    {
        const std::lock_guard lock(timerMutex);
        Timer_ID = 0;
    }
    timerWake.notify_all();
    if (Timer_Queue.joinable())
        Timer_Queue.join();
    if (std::exchange(trapping, false))
        sigaction(SIGINT, &interruptBefore, nullptr);
}

int System_SetTimer(void (*handler)(int), int32_t milliseconds)
{
    std::signal(SIGALRM, handler);
    const int64_t wrapped = static_cast<int32_t>(static_cast<uint32_t>(milliseconds) * 1000u);
    itimerval timer{};
    timer.it_value.tv_sec = timer.it_interval.tv_sec = milliseconds / 1000;
    timer.it_value.tv_usec = timer.it_interval.tv_usec =
        static_cast<suseconds_t>(wrapped % 1000000);
    return setitimer(ITIMER_REAL, &timer, nullptr);
}
