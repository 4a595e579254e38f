// The frame handler, which turns input into moves, and the timer, which runs the clock, turns the
// cubes, judges the game and drives the end views. The shell calls Scene, the timer service Timer.
#pragma once

#include <array>
#include <cstdint>

/// The game clock: hundredths, seconds, minutes, hours (which wrap at 256). GameLock guards it.
extern uint8_t mSecond, Second, Minute, Hour;
/// The clock when the game ended.
extern uint8_t timeMS, timeS, timeM, timeH;

/// Degrees added to every cube's angles in the final views. GameLock guards these and the next.
extern float xr, yr, zr;
/// The whole board's rotation while it spins; before, while the camera recedes: how the spacing
/// grows with the distance, across and down, and the camera's distance.
extern float xr2, yr2, zr2;

/// What a tick adds: to xr, yr, zr; to xr2, yr2, zr2 while the board spins; to the camera's
/// distance.
constexpr double SpinTick = 1, RecedeTick = 0.1;
constexpr std::array<double, 3> BoardSpinTick = {0.075, 0.1, 0.025};

/// Time since the last tick as a share of a tick: 0 before the first, 1 when the next is due or
/// late. GameLock is held.
float TickShare();
