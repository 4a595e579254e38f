// The state of the game, and the rules of a move: what a click does to its cell, the six changes of
// a cell's state, each a turn of its cube, and the flood fill of empty regions. GameLock is held by
// whoever calls.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

/// Game state.
enum GAME : uint8_t {
    GAME_IDLE = 0,        // waiting for a click
    GAME_TURNING = 1,     // a move's cubes turn; clicks are ignored
    GAME_WON = 2,         // final
    GAME_UNCOVERING = 3,  // lost: what is still covered turns
    GAME_RECEDING = 4,    // lost: the camera moves back while the cubes move apart
    GAME_SPINNING = 5,    // lost, final: the whole board spins
};

extern uint8_t mx, my;  // cell that the changes act on; NoCell: none
extern uint8_t mb;      // GAME

/// Degrees added to every cube's angles in the final views. GameLock guards these and the next.
extern float xr, yr, zr;
/// GAME_RECEDING: xr2, yr2 growth of the spacing per unit of distance, zr2 the camera's distance.
/// GAME_SPINNING: the board's three angles.
extern float xr2, yr2, zr2;

/// What a tick adds: to xr, yr, zr; to xr2, yr2, zr2 while the board spins; to the camera's
/// distance.
constexpr double SpinTick = 1, RecedeTick = 0.1;
constexpr std::array<double, 3> BoardSpinTick = {0.075, 0.1, 0.025};

/// When the last tick was; GameLock guards it. TickShare gives the time since then as a share of a
/// tick: 0 before the first, 1 when the next is due or late. GameLock is held.
extern std::optional<std::chrono::steady_clock::time_point> LastTick;
float TickShare();

/// Give cell (mx, my) its new state and set its cube turning, a degree a tick, so that the face
/// that shows the state comes round. They touch nothing else.
void Turn2Empty();
void Turn2Mine();
void Turn2Number();
void Turn2Flag();
void Turn2Question();
void Turn2Base();

/// Uncovers the empty region round (mx, my), a covered empty cell, and the numbers along its
/// border. Marked cells stay and are walls. Uses byte heap 0 as a stack and leaves mx, my at the
/// last cell taken from it.
void Turn2Empties();

/// The move of a button (1 left, 2 right) on cell (mx, my). Leaves mb alone when something turns
/// and makes it GAME_IDLE when the click has no effect. Another button does nothing at all.
void DoSomething(uint8_t button);
