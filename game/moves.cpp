#include "game/moves.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include "extra/heap.h"
#include "game/minefield.h"

uint8_t mx, my;
uint8_t mb;
float xr, yr, zr;
float xr2, yr2, zr2;
std::optional<std::chrono::steady_clock::time_point> LastTick;

static MineCell &CurrentCell()
{
    return MineField[mx][my];
}

static void Turn(STATE state, float xSpin, float ySpin, uint8_t turnSteps)
{
    MineCell &cell = CurrentCell();
    cell.state = state;
    cell.xSpin = xSpin;
    cell.ySpin = ySpin;
    cell.zSpin = 0;
    cell.turnSteps = turnSteps;
}

void Turn2Empty()
{
    Turn(STATE_EMPTY, -1, 0, 90);
}

void Turn2Mine()
{
    Turn(STATE_MINE, -1, 0, 180);
}

void Turn2Number()
{
    Turn(STATE_NUMBER, 0, -1, 90);
}

void Turn2Flag()
{
    Turn(STATE_FLAG, 0, 1, 90);
}

void Turn2Question()
{
    Turn(STATE_QUESTION, 1, -1, 90);
}

void Turn2Base()
{
    Turn(STATE_COVERED, -1, 0, 90);
}

// The neighbour of (mx, my) in a direction: 1 north, then clockwise to 8 north-west.
static std::optional<std::pair<uint8_t, uint8_t>> Neighbour(int direction)
{
    constexpr int dx[] = {0, 0, 1, 1, 1, 0, -1, -1, -1};
    constexpr int dy[] = {0, -1, -1, 0, 1, 1, 1, 0, -1};
    const int x = mx + dx[direction], y = my + dy[direction];
    if (x < 0 || x >= xDim || y < 0 || y >= yDim)
        return std::nullopt;
    return std::pair{static_cast<uint8_t>(x), static_cast<uint8_t>(y)};
}

// Changes the state of another cell, keeping (mx, my).
static void TurnOther(std::pair<uint8_t, uint8_t> cell, void (*turn)())
{
    Extra_PushByte(mx);
    Extra_PushByte(my);
    std::tie(mx, my) = cell;
    turn();
    my = Extra_PullByte();
    mx = Extra_PullByte();
}

static void PushCell(uint8_t x, uint8_t y)
{
    Extra_PushByte(x);
    Extra_PushByte(y);
    Extra_PushByte(1);  // direction in which its scan starts
}

void Turn2Empties()
{
    PushCell(mx, my);
    CurrentCell().content = CONTENT_CLEARED;
    Turn2Empty();
    do {
        int direction = Extra_PullByte();
        my = Extra_PullByte();
        mx = Extra_PullByte();
        for (; direction != 9; direction++) {
            const auto next = Neighbour(direction);
            if (!next)
                continue;
            MineCell &cell = MineField[next->first][next->second];
            const bool marked = cell.state == STATE_FLAG || cell.state == STATE_QUESTION;
            if (cell.content == CONTENT_EMPTY && !marked) {
                PushCell(next->first, next->second);
                cell.content = CONTENT_CLEARED;
                TurnOther(*next, Turn2Empty);
                direction = 0;  // the scan restarts at north
            } else if (cell.content == CONTENT_NUMBER && !marked && cell.state != STATE_NUMBER) {
                TurnOther(*next, Turn2Number);
            }
        }
    } while (!Extra_EmptyHeap());
}

static void LeftClick()
{
    const MineCell &cell = CurrentCell();
    if (cell.state != STATE_COVERED)
        mb = GAME_IDLE;
    else if (cell.content == CONTENT_EMPTY)
        Turn2Empties();
    else if (cell.content == CONTENT_MINE)
        Turn2Mine();
    else if (cell.content == CONTENT_NUMBER)
        Turn2Number();
}

static void RightClick()
{
    switch (CurrentCell().state) {
    case STATE_COVERED:
        return Turn2Flag();
    case STATE_FLAG:
        return Turn2Question();
    case STATE_QUESTION:
        return Turn2Base();
    default:
        mb = GAME_IDLE;
    }
}

void DoSomething(uint8_t button)
{
    if (CurrentCell().state > STATE_NUMBER)
        return;
    if (button == 1)
        LeftClick();
    else if (button == 2)
        RightClick();
}

float TickShare()
{
    if (!LastTick)
        return 0;
    using TICKS = std::chrono::duration<float, std::centi>;
    return std::min(TICKS(std::chrono::steady_clock::now() - *LastTick).count(), 1.0f);
}
