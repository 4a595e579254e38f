// The frame handler, which turns input into moves, and the timer, which runs the clock, turns the
// cubes, judges the game and animates the end views. The shell calls Scene, the timer service
// Timer.
#pragma once

#include <cstdint>
#include <string>

/// The game clock: hundredths, seconds, minutes, hours (which wrap at 256). GameLock guards it.
extern uint8_t mSecond, Second, Minute, Hour;
/// The clock when the game ended.
extern uint8_t timeMS, timeS, timeM, timeH;

/// The window's title as a status line, computed from the state of the game: field, flags and
/// mines, the time since the first step (h:mm:ss from an hour on), and how the game ended. Scene
/// updates the title at most once a second.
std::string GameTitle();
