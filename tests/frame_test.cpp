#include "game/frame.h"

#include <gtest/gtest.h>

#include "platform/application.h"
#include "platform/timer.h"
#include "tests/field.h"

constexpr char lostMessage[] = "Game Over - You have stepped on a mine!\n";
constexpr char bothMessages[] =
    "Game Over - You have stepped on a mine!\nGame Over - You have detected all mines!\n";
constexpr const char *wonMessage = bothMessages + sizeof lostMessage - 1;

// How long the game stays in a state.
static int Ticks(uint8_t state)
{
    int count = 0;
    while (mb == state && ++count < 1000)
        Timer();
    return count;
}

// Ticks until the cubes rest, and what is printed.
static std::pair<int, std::string> Settle()
{
    testing::internal::CaptureStdout();
    const int ticks = Ticks(GAME_TURNING);
    std::fflush(stdout);
    return {ticks, testing::internal::GetCapturedStdout()};
}

TEST(Frame, ClockCarries)
{
    using CLOCK = std::array<uint8_t, 4>;
    const std::tuple<CLOCK, int, CLOCK> rows[] = {
        {{}, 100, {0, 0, 1, 0}}, {{}, 6000, {0, 1, 0, 0}}, {{255, 59, 59, 99}, 1, {}}};
    FieldFromText("..\n..\n");
    for (const auto &[before, ticks, after] : rows) {
        Hour = before[0], Minute = before[1], Second = before[2], mSecond = before[3];
        for (int i = 0; i < ticks; i++)
            Timer();
        EXPECT_EQ((CLOCK{Hour, Minute, Second, mSecond}), after);
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
        // Lost on the last cell with as many flags as mines: it counts as won, on purpose.
        {"the losing step that wins", "*F\n", 0, 0, 1, bothMessages, "*F\n", GAME_WON, 180},
    };
    for (const auto &r : rows) {
        FieldFromText(r.field);
        Hour = 1, Minute = 2, Second = 3, mSecond = 4;
        Click(r.x, r.y, static_cast<uint8_t>(r.button));
        const auto [ticks, printed] = Settle();
        EXPECT_EQ(std::tuple(printed, ticks, FieldToText(), mb),
                  std::tuple(r.prints, r.ticks, r.seen, r.game))
            << r.what;
        if (*r.prints) {
            EXPECT_EQ(std::tuple(timeH, timeM, timeS, timeMS),
                      std::tuple(1, 2, 3 + (4 + ticks) / 100, (4 + ticks) % 100));
        }
    }
}

TEST(Frame, ALostGameUncoversRecedesAndSpins)
{
    FieldFromText("*.\n..\n");
    zDepth = 4.4f;
    Click(0, 0, 1);
    EXPECT_EQ(Settle().second, lostMessage);
    EXPECT_EQ(Ticks(GAME_UNCOVERING), 90);
    EXPECT_EQ(mb, GAME_RECEDING);
    EXPECT_FLOAT_EQ(xr2, 1 / zDepth);
    EXPECT_FLOAT_EQ(yr2, 2 / zDepth);
    EXPECT_FLOAT_EQ(zr2, zDepth);
    EXPECT_NEAR(Ticks(GAME_RECEDING), zDepth / 0.1f + 1, 1);
    EXPECT_EQ(mb, GAME_SPINNING);
    EXPECT_FLOAT_EQ(yr2, 0.1f);
    xr = 359.5f;
    Timer();
    EXPECT_FLOAT_EQ(xr, 360.5f);
    Timer();
    EXPECT_EQ(xr, 0);
}

TEST(Frame, ClicksBecomeSteps)
{
    const struct {
        const char *what;
        int button, mouseY, game;
        uint32_t step;
        const char *prints;
        bool clockRuns;  // on: it has not been set to 0
        const char *seen;
    } rows[] = {
        {"first", 1, 380, 0, 1, "    1.step: 00:00:00:0000 LEFT Mouse button at (3,1)\n", false,
         "##1\n"},
        {"later", 3, 380, 0, 27, "   27.step: 01:02:03:0040 RIGHT Mouse button at (3,1)\n", true,
         "##F\n"},
        {"beside the board first", 1, 100, 0, 1, "", false, "###\n"},
        {"beside the board later", 3, 700, 0, 2, "", true, "###\n"},
        {"the middle button", 2, 380, 0, 1, "", true, "###\n"},
        {"while cubes turn", 1, 380, GAME_TURNING, 1, "", true, "###\n"},
    };
    System_ScreenWidth = 1024, System_ScreenHeight = 768, System_MouseX = 850;
    for (const auto &r : rows) {
        FieldFromText(".*.\n");
        Hour = 1, Minute = 2, Second = 3, mSecond = 4;
        System_MD = r.button;
        System_MouseY = static_cast<uint16_t>(r.mouseY);
        mb = static_cast<uint8_t>(r.game);
        step = r.step;
        testing::internal::CaptureStdout();
        Scene();
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), r.prints) << r.what;
        EXPECT_EQ((std::array{Hour, Minute, Second, mSecond}),
                  (r.clockRuns ? std::array<uint8_t, 4>{1, 2, 3, 4} : std::array<uint8_t, 4>{}))
            << r.what;
        EXPECT_EQ(FieldToText(), r.seen) << r.what;
        EXPECT_EQ(step, r.step + (*r.prints != 0)) << r.what;
    }
}

TEST(Frame, TheTitleTellsHowTheGameStands)
{
    using CLOCK = std::array<uint8_t, 3>;
    const struct {
        const char *field;
        uint32_t next;
        CLOCK clock, result;
        uint8_t game;
        const char *title;
    } rows[] = {
        {"*.?\n...\n", 1, {0, 3, 7}, {}, GAME_IDLE, "3x2 - flags 0 of 1 - 0:00"},
        {"XF*\n...\n", 3, {0, 1, 7}, {}, GAME_TURNING, "3x2 - flags 2 of 2 - 1:07"},
        {"*.\n..\n", 3, {1, 2, 3}, {}, GAME_IDLE, "2x2 - flags 0 of 1 - 1:02:03"},
        {"X.\n..\n", 5, {0, 9, 9}, {0, 0, 59}, GAME_WON, "2x2 - flags 1 of 1 - 0:59 - won"},
        // clang-format off
        {"*.\n..\n", 2, {}, {0, 10, 0}, GAME_SPINNING, "2x2 - flags 0 of 1 - 10:00 - lost - Escape ends"},
        // clang-format on
    };
    for (const auto &r : rows) {
        FieldFromText(r.field);
        step = r.next;
        mb = r.game;
        Hour = r.clock[0], Minute = r.clock[1], Second = r.clock[2];
        timeH = r.result[0], timeM = r.result[1], timeS = r.result[2];
        EXPECT_EQ(GameTitle(), std::string("Tessaruvinel v3.23 - ") + r.title);
    }
}
