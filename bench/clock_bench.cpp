// The error of the game's clock after a minute with every processor busy.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "game/frame.h"
#include "game/minefield.h"
#include "platform/timer.h"

int main()
{
    using namespace std::chrono;
    std::atomic<bool> stop = false;
    std::vector<std::thread> load;
    for (unsigned i = 0; i < 2 * std::thread::hardware_concurrency(); i++)
        load.emplace_back([&stop] {
            while (!stop) {
            }
        });
    const auto start = steady_clock::now() + 1s;  // of the first tick
    Timer_Create(0, 10000000);
    std::this_thread::sleep_until(start + 60s + 5ms);
    std::unique_lock lock(GameLock);
    const long shown = (Minute * 60L + Second) * 100 + mSecond;
    const long due = duration_cast<milliseconds>(steady_clock::now() - start).count() / 10 + 1;
    lock.unlock();
    stop = true;
    for (std::thread &thread : load)
        thread.join();
    Timer_Destroy();
    std::printf("after 60 s the clock shows %ld hundredths, due are %ld: wrong by %ld\n", shown,
                due, shown - due);
}
