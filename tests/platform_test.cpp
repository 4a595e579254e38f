// Timer service, shell and window, as far as possible without a display.
#include <chrono>
#include <csignal>
#include <semaphore>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/time.h>

#include "platform/application.h"
#include "platform/glfew.h"
#include "platform/system.h"
#include "platform/timer.h"

using namespace std::chrono;

static std::vector<steady_clock::time_point> ticks;
static std::binary_semaphore enough(0);
constexpr milliseconds period(50);

void Paint() {}
void Scene() {}

// The first tick takes as long as all that follow should.
void Timer()
{
    ticks.push_back(steady_clock::now());
    if (ticks.size() == 1)
        std::this_thread::sleep_for(8 * period);
    if (ticks.size() == 9)
        enough.release();
}

TEST(TimerService, BeginsAfterASecondAndMakesUpForASlowTick)
{
    const auto start = steady_clock::now();
    Timer_Create(0, 50000000);
    enough.acquire();
    Timer_Destroy();
    EXPECT_EQ(std::signal(SIGINT, SIG_DFL), SIG_DFL) << "given back to whom it had before";
    // Owed ticks follow each other at once: a busy machine delays some, but not all.
    bool owed = false;
    for (size_t i = 0; i < 9; i++) {
        EXPECT_GE(ticks[i] - start, 1s + i * period);
        owed = owed || (i > 1 && ticks[i] - ticks[i - 1] < period);
    }
    EXPECT_TRUE(owed);
}

TEST(TimerService, IntervalOfTheSignal)
{
    itimerval timer;
    EXPECT_EQ(System_SetTimer(SIG_IGN, 1500), 0);
    EXPECT_EQ(System_SetTimer(SIG_IGN, 2147484), -1) << "its product wraps to a negative one";
    getitimer(ITIMER_REAL, &timer);
    EXPECT_EQ(timer.it_interval.tv_sec * 1000000 + timer.it_interval.tv_usec, 1500000);
    EXPECT_GT(timer.it_value.tv_sec + timer.it_value.tv_usec, 0);
    EXPECT_EQ(System_SetTimer(SIG_DFL, 0), 0);
}

TEST(Shell, DeliversEachKeyOnce)
{
    GLFEW_KeyBoard(nullptr, 65, 38, 1, 0);
    GLFEW_KeyBoard(nullptr, 66, 56, 0, 0);
    GLFEW_KeyBoard(nullptr, 67, 54, 2, 0);  // a repeat
    for (const bool first : {true, false}) {
        EXPECT_EQ(System_KeyDown(), first ? 65 : 0);
        EXPECT_EQ(System_KeyUp(), first ? 66 : 0);
        EXPECT_EQ(System_KeyDownCode(), first ? 56 : 0);
    }
}

TEST(Shell, APressCountsWhereTheCursorWasThen)
{
    const auto position = [] { return std::pair{System_GetMouseX(), System_GetMouseY()}; };
    GLFEW_MouseMotion(nullptr, 30.9, 40.2);
    GLFEW_Mouse(nullptr, 1, 1, 0);
    GLFEW_MouseMotion(nullptr, 50, 60);
    GLFEW_Mouse(nullptr, 1, 0, 0);
    EXPECT_EQ(position(), std::pair(30, 40)) << "motion after the press waits";
    GLFEW_Mouse(nullptr, 0, 1, 0);
    GLFEW_MouseMotion(nullptr, 70, 80);
    EXPECT_EQ(position(), std::pair(50, 60)) << "the latest press is the one that is read";
    EXPECT_EQ(System_MouseDown(), 1);
    EXPECT_EQ(System_MouseUp(), 3);
}

TEST(Window, Shapes)
{
    int32_t width = 1024, height = 768, top;
    GLFEW_SetupWideScreen(&width, &height, &top);
    EXPECT_EQ((std::array{width, height, top}), (std::array{1024, 576, 96}));
    for (const bool tall : {false, true}) {
        System_ScreenWidth = tall ? 500 : 1800, System_ScreenHeight = tall ? 1800 : 500;
        GLFEW_VERTEX box{};
        GLFEW_ChangeOrtho(box, 4);
        const std::array extents = {1 / box.Projection[0], 1 / box.Projection[5]};
        EXPECT_EQ(extents, (tall ? std::array{4.0f, 12.0f} : std::array{12.0f, 4.0f}));
    }
}

TEST(Window, EqualTextsOfRecordsAreCutAndKeptOnce)
{
    const std::string longer(2000, 'x');
    GLFEW_VERTEX one{}, other{};
    EXPECT_TRUE(one.VertexShaderSource.empty());
    one.VertexShaderSource = longer;
    other.FragmentShaderSource = longer;
    EXPECT_EQ(one.VertexShaderSource.data(), longer.substr(0, 1023));
    EXPECT_TRUE(one.VertexShaderSource.data() == other.FragmentShaderSource.data());
}

TEST(Shell, ParametersBeyondTheirSlotsAreCut)
{
    const std::string longer(300, '7');
    std::vector<const char *> many(40, longer.c_str());
    Velmorandis_SetParamCount(40);
    Velmorandis_SetParamStr(many.data());
    for (int i = 0; i < 16; i++)
        EXPECT_EQ(std::string(Velmorandis_ParamStr(i)), longer.substr(0, 127)) << i;
    EXPECT_EQ(System_StrLen(Velmorandis_ParamStr(0)), 127);
    EXPECT_EQ(System_min(-2, Velmorandis_ParamCount()), -2);
    EXPECT_EQ(System_min(50, Velmorandis_ParamCount()), 40);
}
