#include "game/frame.h"

#include <chrono>
#include <cstdio>
#include <mutex>

#include "game/board.h"
#include "game/minefield.h"
#include "game/moves.h"
#include "platform/application.h"
#include "platform/glfew.h"
#include "platform/timer.h"

uint8_t mSecond, Second, Minute, Hour;
uint8_t timeMS, timeS, timeM, timeH;

constexpr int32_t KeyEscape = 256;
constexpr int32_t MouseLeft = 1, MouseRight = 3;

// Accepts a click while the game waits for one: finds the cell and prints the step. Only the main
// thread leaves the idle state, so the game is still idle afterwards.
static bool AcceptStep(int32_t button)
{
    std::unique_lock lock(GameLock);
    if (mb != GAME_IDLE)
        return false;
    if (step == 1)
        mSecond = Second = Minute = Hour = 0;
    Get3DMouseXY(&mx, &my);
    if (mx >= xDim || my >= yDim)
        return false;
    const int h = Hour, m = Minute, s = Second, ms = mSecond * 10, x = mx + 1, y = my + 1;
    lock.unlock();
    const char *side = button == MouseLeft ? "LEFT" : "RIGHT";
    std::printf("%5d.step: %02d:%02d:%02d:%04d %s Mouse button at (%d,%d)\n",
                static_cast<int>(step), h, m, s, ms, side, x, y);
    step++;
    return true;
}

// The pointer is busy while clicks are ignored; once the game is over there is nothing to wait for.
static void ShowBusy()
{
    std::unique_lock lock(GameLock);
    const bool busy = mb == GAME_TURNING || mb == GAME_UNCOVERING;
    lock.unlock();
    GLFEW_SetBusy(busy);
}

// Sets the window's title if it has changed, at most once a second.
static void ShowTitle()
{
    using namespace std::chrono;
    static std::string shown;
    static steady_clock::time_point due;
    const steady_clock::time_point now = steady_clock::now();
    if (!System_Window || now < due)
        return;
    due = now + 1s;
    const std::string title = GameTitle();
    if (title != shown)
        GLFEW_SetTitle(title.c_str());
    shown = title;
}

void Scene()
{
    ShowBusy();
    ShowTitle();
    if (System_KeyDown() == KeyEscape)
        Velmorandis_CloseApplication(1);
    const int32_t button = System_MouseDown();
    if ((button != MouseLeft && button != MouseRight) || !AcceptStep(button))
        return;
    const std::lock_guard lock(GameLock);
    mb = GAME_TURNING;
    DoSomething(button == MouseLeft ? 1 : 2);
}

static void AdvanceClock()
{
    if (++mSecond <= 99)
        return;
    mSecond = 0;
    if (++Second <= 59)
        return;
    Second = 0;
    if (++Minute <= 59)
        return;
    Minute = 0;
    Hour++;
}

static void KeepResultTime()
{
    timeMS = mSecond;
    timeS = Second;
    timeM = Minute;
    timeH = Hour;
}

static void Spin(float &angle, double by)
{
    angle = angle >= 360 ? 0 : static_cast<float>(angle + by);
}

static void AdvanceEndViews()
{
    if (mb > GAME_TURNING)
        for (float *angle : {&xr, &yr, &zr})
            Spin(*angle, SpinTick);
    if (mb == GAME_RECEDING) {
        if (2 * zDepth > zr2) {
            zr2 = static_cast<float>(zr2 + RecedeTick);
        } else {
            xr2 = yr2 = zr2 = 0;
            mb = GAME_SPINNING;
        }
    }
    if (mb == GAME_SPINNING) {
        Spin(xr2, BoardSpinTick[0]);
        Spin(yr2, BoardSpinTick[1]);
        Spin(zr2, BoardSpinTick[2]);
    }
}

template <typename Visit>
static void ForEachCell(Visit visit)
{
    for (uint8_t y = 0; y < yDim; y++)
        for (uint8_t x = 0; x < xDim; x++)
            visit(MineField[x][y], x, y);
}

// Turns by one step every cube that has steps left; true if none has any left afterwards.
static bool TurnCubes()
{
    bool rest = true;
    ForEachCell([&rest](MineCell &cell, uint8_t, uint8_t) {
        if (cell.turnSteps == 0)
            return;
        cell.turnSteps--;
        cell.xAngle += cell.xSpin;
        cell.yAngle += cell.ySpin;
        cell.zAngle += cell.zSpin;
        rest = rest && cell.turnSteps == 0;
    });
    return rest;
}

static void UncoverAll()
{
    ForEachCell([](const MineCell &cell, uint8_t x, uint8_t y) {
        if (cell.state != STATE_COVERED)
            return;
        mx = x;
        my = y;
        if (cell.content == CONTENT_EMPTY)
            Turn2Empty();
        else if (cell.content == CONTENT_MINE)
            Turn2Mine();
        else if (cell.content == CONTENT_NUMBER)
            Turn2Number();
    });
}

namespace
{
struct VERDICT {
    bool Lost, Won;
};
}  // namespace

// Lost and Won can both be true, on purpose: a losing step also wins if it leaves nothing covered
// and as many flags, right or wrong, as there are mines.
static VERDICT Judge()
{
    uint16_t mines = 0, open = 0, flags = 0;
    ForEachCell([&](const MineCell &cell, uint8_t, uint8_t) {
        mines = static_cast<uint16_t>(mines + (cell.state == STATE_MINE));
        open = static_cast<uint16_t>(open +
                                     (cell.state == STATE_COVERED || cell.state == STATE_QUESTION));
        flags = static_cast<uint16_t>(flags + (cell.state == STATE_FLAG));
    });
    return {mines != 0, open == 0 && flags == nMines};
}

// One tick, under the lock. The caller prints the verdict.
static VERDICT Tick()
{
    AdvanceClock();
    AdvanceEndViews();
    if (mb != GAME_TURNING && mb != GAME_UNCOVERING)
        return {};
    if (TurnCubes()) {
        if (mb == GAME_TURNING) {
            mb = GAME_IDLE;
        } else {
            mb = GAME_RECEDING;
            xr2 = 1 / zDepth;
            yr2 = 2 / zDepth;
            zr2 = zDepth;
        }
    }
    if (mb != GAME_IDLE)
        return {};
    const VERDICT verdict = Judge();
    if (verdict.Lost) {
        KeepResultTime();
        mb = GAME_UNCOVERING;
        UncoverAll();
    }
    if (verdict.Won) {
        KeepResultTime();
        mb = GAME_WON;
    }
    return verdict;
}

void Timer()
{
    std::unique_lock lock(GameLock);
    const VERDICT verdict = Tick();
    LastTick = std::chrono::steady_clock::now();
    lock.unlock();  // printing to a terminal may block
    if (verdict.Lost)
        std::printf("Game Over - You have stepped on a mine!\n");
    if (verdict.Won)
        std::printf("Game Over - You have detected all mines!\n");
}

std::string GameTitle()
{
    const std::lock_guard lock(GameLock);
    int flags = 0;
    ForEachCell(
        [&flags](const MineCell &cell, uint8_t, uint8_t) { flags += cell.state == STATE_FLAG; });
    int h = Hour, m = Minute, s = Second;
    if (mb >= GAME_WON)
        h = timeH, m = timeM, s = timeS;
    else if (step == 1)
        h = m = s = 0;  // the first step resets the clock
    const auto twoDigits = [](int value) {
        return ':' + std::string(value < 10 ? "0" : "") + std::to_string(value);
    };
    const std::string minutes = h > 0 ? std::to_string(h) + twoDigits(m) : std::to_string(m);
    return "Tessaruvinel v3.23 - " + std::to_string(xDim) + 'x' + std::to_string(yDim) +
           " - flags " + std::to_string(flags) + " of " + std::to_string(nMines) + " - " + minutes +
           twoDigits(s) +
           (mb == GAME_WON  ? " - won"
            : mb > GAME_WON ? " - lost - Escape ends"
                            : "");
}
