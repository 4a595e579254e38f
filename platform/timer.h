// The timer service: calls the application's Timer periodically on a worker thread; and an older
// periodic signal.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

/// The worker, "TimerQueue": runs the ticks one after another, never two at once.
extern std::thread Timer_Queue;
/// 1 while ticks run, 0 once cancelled. Storing 0 cancels them.
extern std::atomic<int32_t> Timer_ID;
/// Reserved.
extern int64_t Timer_Seconds, Timer_MicroSeconds;

/// The application's periodic procedure, supplied by the program that links this module. It runs on
/// the worker thread and must not call OpenGL or the window.
void Timer();

/// Calls Timer for the first time one second from now and then at the given interval, by absolute
/// deadlines: after a late wake-up the missed ticks are made up. The interrupt signal (SIGINT) now
/// cancels the ticks instead of ending the process. A running timer is destroyed first.
void Timer_Create(uint32_t seconds, uint32_t nanoseconds);

/// The worker's action at each tick: calls Timer.
void Timer_Timer();

/// Handler of SIGINT: cancels the ticks.
void Timer_Trap(int signal);

/// No effect.
void Timer_Delay(uint32_t seconds, uint32_t nanoseconds);

/// Cancels the ticks, waits for a running one, and restores the previous handler of the interrupt
/// signal. Also called by exit().
void Timer_Destroy();

/// Installs `handler` for SIGALRM, called first after the given time and then at that period.
/// Returns setitimer's result: 0, or -1 for an invalid interval.
int System_SetTimer(void (*handler)(int), int32_t milliseconds);
