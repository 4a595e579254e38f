// The timer service: the application's Timer every so often on a worker thread of its own, and an
// older periodic signal.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

/// The worker, "TimerQueue": runs one tick after the other, never two at once.
extern std::thread Timer_Queue;
/// 1 while ticks come, 0 once they have been cancelled. Cancelling is to store 0.
extern std::atomic<int32_t> Timer_ID;
/// Reserved.
extern int64_t Timer_Seconds, Timer_MicroSeconds;

/// The application's periodic procedure, supplied by whoever links this module. It runs on the
/// worker and must call nothing of OpenGL or the window.
void Timer();

/// Calls Timer for the first time one second from now and then at the given interval, by absolute
/// deadlines: a late wake-up makes up the ticks it owes. The interrupt signal (SIGINT) no longer
/// ends the process but cancels the ticks. A timer that still runs is destroyed first.
void Timer_Create(uint32_t seconds, uint32_t nanoseconds);

/// What the worker does at each tick: calls Timer.
void Timer_Timer();

/// Handler of SIGINT: cancels the ticks.
void Timer_Trap(int signal);

/// No effect.
void Timer_Delay(uint32_t seconds, uint32_t nanoseconds);

/// Cancels the ticks, waits for the one that runs, if any, and gives the interrupt signal back to
/// whom it had before. Leaving the program by exit() does it, too.
void Timer_Destroy();

/// Has `handler` called for SIGALRM, first after the given time and then at that period. Returns
/// what setitimer returns: 0, or -1 for an interval that is none.
int System_SetTimer(void (*handler)(int), int32_t milliseconds);
