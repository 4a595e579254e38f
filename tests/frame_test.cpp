#include "game/frame.h"

#include <gtest/gtest.h>

#include "platform/application.h"
#include "platform/timer.h"
#include "tests/field.h"

constexpr char lostMessage[] = "Game Over - You have stepped on a mine!\n";
constexpr char wonMessage[] = "Game Over - You have detected all mines!\n";

// Ticks until the cubes rest, and what the ticks print.
static std::string Settle(int *ticks = nullptr)
{
    testing::internal::CaptureStdout();
    int count = 0;
    while (mb == GAME_TURNING && ++count < 1000)
        Timer();
    if (ticks)
        *ticks = count;
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(Frame, ClockCarries)
{
    using CLOCK = std::array<uint8_t, 4>;
    const struct {
        CLOCK before;
        int ticks;
        CLOCK after;
    } rows[] = {
        {{0, 0, 0, 0}, 100, {0, 0, 1, 0}},
        {{0, 0, 0, 0}, 6000, {0, 1, 0, 0}},
        {{255, 59, 59, 99}, 1, {0, 0, 0, 0}}, // hours wrap
    };
    FieldFromText("..\n..\n");
    for (const auto &r : rows) {
        Hour = r.before[0], Minute = r.before[1], Second = r.before[2], mSecond = r.before[3];
        for (int i = 0; i < r.ticks; i++)
            Timer();
        EXPECT_EQ((CLOCK{Hour, Minute, Second, mSecond}), r.after);
    }
}

TEST(Frame, EveryMoveIsJudgedWhenItsTurnsEnd)
{
    const struct {
        const char *what, *field;
        int x, y, button;
        const char *prints, *seen;
        uint8_t game;
        int ticks;
    } rows[] = {
        {"a number: the game goes on", "*.\n..\n", 1, 1, 1, "", "##\n#1\n", GAME_IDLE, 90},
        {"a mine: all is uncovered", "*F.\n.?.\n", 0, 0, 1, lostMessage, "*F.\n1?.\n",
         GAME_UNCOVERING, 180},
        {"no mines: won", "...\n...\n", 1, 1, 1, wonMessage, "...\n...\n", GAME_WON, 90},
        {"the last flag wins", "*\nX\n", 0, 0, 2, wonMessage, "F\nF\n", GAME_WON, 90},
        {"too many flags", "*F\n", 0, 0, 2, "", "FF\n", GAME_IDLE, 90},
        // Lost on the last cell with as many flags as mines: both, and it counts as won, on
        // purpose.
        {"the losing step that wins", "*F\n", 0, 0, 1,
         "Game Over - You have stepped on a mine!\nGame Over - You have detected all mines!\n",
         "*F\n", GAME_WON, 180},
    };
    for (const auto &r : rows) {
        FieldFromText(r.field);
        Hour = 1, Minute = 2, Second = 3, mSecond = 4;
        Click(r.x, r.y, static_cast<uint8_t>(r.button));
        int ticks;
        EXPECT_EQ(Settle(&ticks), r.prints) << r.what;
        EXPECT_EQ(ticks, r.ticks) << r.what;
        EXPECT_EQ(FieldToText(), r.seen) << r.what;
        EXPECT_EQ(mb, r.game) << r.what;
        if (*r.prints) {
            EXPECT_EQ((std::array{timeH, timeM, timeMS}),
                      (std::array<uint8_t, 3>{1, 2, static_cast<uint8_t>((4 + ticks) % 100)}));
            EXPECT_EQ(timeS, 3 + (4 + ticks) / 100) << r.what;
        }
    }
}

TEST(Frame, ALostGameUncoversRecedesAndSpins)
{
    FieldFromText("*.\n..\n");
    zDepth = 4.4f;
    Click(0, 0, 1);
    EXPECT_EQ(Settle(), lostMessage);
    EXPECT_EQ(mb, GAME_UNCOVERING);
    EXPECT_EQ(MineField[1][0].turnSteps, 90);
    int ticks = 0;
    for (; mb == GAME_UNCOVERING && ticks < 1000; ticks++)
        Timer();
    EXPECT_EQ(ticks, 90);
    EXPECT_EQ(mb, GAME_RECEDING);
    EXPECT_FLOAT_EQ(xr2, 1 / zDepth);
    EXPECT_FLOAT_EQ(yr2, 2 / zDepth);
    EXPECT_FLOAT_EQ(zr2, zDepth);
    for (ticks = 0; mb == GAME_RECEDING && ticks < 1000; ticks++)
        Timer();
    EXPECT_NEAR(ticks, zDepth / 0.1f + 1, 1);
    EXPECT_EQ(mb, GAME_SPINNING);
    EXPECT_FLOAT_EQ(yr2, 0.1f);
    xr = 359.5f;
    Timer();
    EXPECT_FLOAT_EQ(xr, 360.5f);
    Timer();
    EXPECT_EQ(xr, 0);
}

// Puts a mouse event before the frame handler and gives what it prints.
static std::string PressAt(uint16_t x, uint16_t y, int32_t button)
{
    System_MouseX = x;
    System_MouseY = y;
    System_MD = button;
    testing::internal::CaptureStdout();
    Scene();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(Frame, ClicksBecomeSteps)
{
    FieldFromText("*...\n....\n");
    System_ScreenWidth = 1024;
    System_ScreenHeight = 768;
    Second = 9;
    EXPECT_EQ(PressAt(100, 10, 1), ""); // beside the board, but it starts the clock
    EXPECT_EQ(Second, 0);
    EXPECT_EQ(mb, GAME_IDLE);
    EXPECT_EQ(PressAt(300, 300, 1), "    1.step: 00:00:00:0000 LEFT Mouse button at (2,1)\n");
    EXPECT_EQ(FieldToText(), "#1##\n####\n");
    EXPECT_EQ(PressAt(900, 300, 1), ""); // dropped while cubes turn
    EXPECT_EQ(System_MouseDown(), 0);
    Settle();
    EXPECT_EQ(PressAt(900, 300, 2), ""); // the middle button
    Hour = 12;
    Second = 3;
    mSecond = 45;
    EXPECT_EQ(PressAt(300, 300, 1), "    2.step: 12:00:03:0450 LEFT Mouse button at (2,1)\n");
    EXPECT_EQ(mb, GAME_IDLE); // no effect, but a step
    System_KD = 32;
    EXPECT_EQ(PressAt(0, 0, 0), "");
    EXPECT_EQ(System_CloseApplication, 0) << "only Escape closes";
}
