#include "tests/canvas.h"

#include <algorithm>
#include <array>
#include <thread>

#include <gtest/gtest.h>

constexpr int16_t side = 11;

class Graphics : public testing::Test, protected CANVAS
{
protected:
    Graphics() : CANVAS(side, side)
    {
        Graphics_SetMode(1);
    }
    void Clear()
    {
        std::fill(Pixels.begin(), Pixels.end(), uint8_t{0});
    }
};

TEST_F(Graphics, PointsStayInsideTheTarget)
{
    for (const int16_t v : std::to_array<int16_t>({-32768, -1, side, 32767}))
        for (const int16_t w : std::to_array<int16_t>({-1, 0, side})) {
            Graphics_PutPixel(v, w);
            Graphics_PutPixel(w, v);
            EXPECT_EQ(Graphics_GetPixel(v, w), 0u);
        }
    EXPECT_EQ(Drawn().find('#'), std::string::npos);
    Graphics_PutPixel(0, 10);
    EXPECT_EQ(Pixels[10 * side * 4 + 3], 4);
    EXPECT_EQ(Graphics_GetRGBPixel(0, 10), 0x030201u);
    Graphics_SetTarget(nullptr);
    Graphics_PutPixel(1, 1);
    Graphics_PutBlock(1, 1, 2, 2);
    EXPECT_EQ(Graphics_GetPixel(0, 10), 0u);
}

TEST_F(Graphics, Blocks)
{
    const struct {
        const char *what;
        int16_t x, y;
        int32_t width, height;
        ptrdiff_t points;
    } rows[] = {
        {"inside", 1, 2, 3, 4, 12},
        {"over the edges", -2, 9, 4, 4, 4},
        {"no side", 1, 1, 0, 5, 0},
        {"negative sides", 5, 5, -3, -3, 0},
        {"back at 0 after the wrap", 32767, 0, 32770, 1, 1},
        {"more than all coordinates", -1, -1, 1 << 30, INT32_MAX, side * side},
    };
    for (const auto &r : rows) {
        Clear();
        Graphics_PutBlock(r.x, r.y, r.width, r.height);
        const std::string drawn = Drawn();
        EXPECT_EQ(std::count(drawn.begin(), drawn.end(), '#'), r.points) << r.what;
    }
}

TEST_F(Graphics, Lines)
{
    Graphics_Line(0, 0, 10, 3);
    Graphics_Line(2, 10, 0, 4);
    Graphics_Line(5, 8, 5, 8);
    Graphics_Line(10, 10, 7, 7);
    EXPECT_EQ(Drawn(),
              "##/..####/......###/.........##/#/#/.#/.#.....#/.#...#..#/..#......#/..#.......#");
    Clear();
    Graphics_Rectangle(1, 1, 4, 3);
    EXPECT_EQ(Drawn(), "/.####/.#..#/.####");
}

TEST_F(Graphics, CircleAndEllipse)
{
    Graphics_SetMode(0);
    Graphics_Rectangle(1, 1, 9, 9);
    Graphics_Circle(5, 5, 3);
    Graphics_Ellipse(5, 5, 4, 2);
    Graphics_SetMode(1);
    Graphics_Circle(5, 5, 4);
    EXPECT_EQ(Drawn(),
              "/...#####//.#.......#/.#.......#/.#.......#/.#.......#/.#.......#//...#####");
    Clear();
    Graphics_Ellipse(5, 5, 3, 5);
    EXPECT_EQ(Drawn(), "....###/....#.#/...#...#/...#...#/..#.....#/..#.....#/..#.....#/...#...#/"
                       "...#...#/....#.#/....###");
}

// Around its axes a large curve is straight over the whole target.
TEST_F(Graphics, LargeEllipsesStayOnTheCurve)
{
    const std::string row(side, '#');
    Graphics_Ellipse(-1995, 5, 2000, 1500);
    EXPECT_EQ(Drawn(),
              ".....#/.....#/.....#/.....#/.....#/.....#/.....#/.....#/.....#/.....#/.....#");
    Clear();
    Graphics_Ellipse(5, -32765, 30000, 32767);
    EXPECT_EQ(Drawn(), "//" + row + "//" + row) << "the bottom, and the top wrapped";
}

TEST_F(Graphics, EveryThreadHasItsOwn)
{
    std::thread([] {
        EXPECT_EQ(Graphics_Mode, 0);
        Graphics_SetColor(9, 9, 9, 9);
        Graphics_PutPixel(1, 0);
    }).join();
    Graphics_PutPixel(2, 0);
    EXPECT_EQ(Drawn(), "..#");
}

TEST_F(Graphics, ExtremeShapesEnd)
{
    constexpr int16_t extremes[] = {-32768, -1, 0, 1, 32767};
    for (const int16_t a : extremes)
        for (const int16_t b : extremes) {
            Graphics_Line(a, b, b, a);
            Graphics_Line(a, 0, b, 5);
            Graphics_Rectangle(a, b, 5, 5);
            Graphics_Circle(a, b, b);
            Graphics_Ellipse(5, 5, a, b);
        }
    // A distance beyond 16 bits wraps: this one counts as one step to the left.
    Clear();
    Graphics_Line(-32768, 3, 32767, 3);
    EXPECT_EQ(Drawn().find('#'), std::string::npos);
}
