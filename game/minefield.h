// The game's field: its parameters, its cells and how they are generated.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>

constexpr uint8_t MaxDim = 64;  // longest side of a field, cells
constexpr uint8_t NoCell = 255;

/// What a cell holds.
enum CONTENT : uint8_t {
    CONTENT_EMPTY = 0,  // no mine and none around
    CONTENT_OPEN = 1,   // not yet assigned; only during generation
    CONTENT_MINE = 4,
    CONTENT_NUMBER = 5,     // mines around it
    CONTENT_CLEARED = 255,  // an empty cell already reached by the flood fill
};

/// What the player sees of a cell.
enum STATE : uint8_t {
    STATE_EMPTY = 0,
    STATE_COVERED = 1,
    STATE_FLAG = 2,
    STATE_QUESTION = 3,
    STATE_MINE = 4,
    STATE_NUMBER = 5,
};

struct MineCell {
    uint8_t content;  // CONTENT
    uint8_t state;    // STATE
    uint8_t count;    // mines around it; 0 is replaced by a random 1 to 8 for the left face
    float xAngle, yAngle, zAngle;  // of the cube, degrees
    float xSpin, ySpin, zSpin;     // degrees per timer tick while it turns
    uint8_t turnSteps;             // ticks left to turn
};

/// The field, [x][y]: column from the left, row from the top; xDim by yDim cells are in play.
extern std::array<std::array<MineCell, MaxDim>, MaxDim> MineField;

/// Guards the field and the state that the timer thread shares with the main thread (moves.h,
/// frame.h). Held for microseconds. Set-up and shutdown run without it, as the timer does not run
/// then.
extern std::mutex GameLock;

/// Size and mines. On purpose, they are stored in 8 bits before they are checked. Fixed after
/// set-up.
extern uint8_t xDim, yDim, nMines;
extern int32_t okFlag;  // 1: they come from the command line
extern uint32_t step;   // number of the next step
extern float zDepth;    // camera's distance from the middle of the board

/// Takes the three parameters if there are exactly three and they make a field of 2 to 64 cells a
/// side with at least one cell free of mines; else 10 by 10 with 20 mines.
void ReadParameters();

/// Places the mines, counts them around every cell and covers all cells.
void GenerateMinefield();
