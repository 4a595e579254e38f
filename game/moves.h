// The state of the game, and the rules of a move: what a click does to its cell, the six changes of
// a cell's state, each a rotation of its cube, and the flood fill of empty regions. The caller
// holds GameLock.
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
    GAME_UNCOVERING = 3,  // lost: the cells still covered turn
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

/// Increments per tick: of xr, yr, zr; of xr2, yr2, zr2 while the board spins; of the camera's
/// distance.
constexpr double SpinTick = 1, RecedeTick = 0.1;
constexpr std::array<double, 3> BoardSpinTick = {0.075, 0.1, 0.025};

/// Time of the last tick; GameLock guards it. TickShare gives the time since then as a fraction of
/// a tick: 0 before the first, at most 1. The caller holds GameLock.
extern std::optional<std::chrono::steady_clock::time_point> LastTick;
float TickShare();

/// Give cell (mx, my) its new state and start its cube turning, one degree per tick, until the face
/// for that state is in front. They touch nothing else.
void Turn2Empty();
void Turn2Mine();
void Turn2Number();
void Turn2Flag();
void Turn2Question();
void Turn2Base();

/// Uncovers the empty region around (mx, my), a covered empty cell, and the numbers along its
/// border. Marked cells stay and act as walls. Uses byte heap 0 as a stack and leaves (mx, my) at
/// the last cell popped.
void Turn2Empties();

/// The move of a button (1 left, 2 right) on cell (mx, my). If a cube turns mb is unchanged; if the
/// click has no effect mb becomes GAME_IDLE. Other buttons are ignored.
void DoSomething(uint8_t button);
