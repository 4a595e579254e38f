#include "game/board.h"

#include <gtest/gtest.h>

#include "platform/application.h"

void Scene() {}  // the shell calls it; unused here

static void Window(int width, int height, int columns, int rows)
{
    System_ScreenWidth = width;
    System_ScreenHeight = height;
    xDim = static_cast<uint8_t>(columns);
    yDim = static_cast<uint8_t>(rows);
}

static std::pair<int, int> CellAt(double mouseX, double mouseY)
{
    System_MouseX = static_cast<uint16_t>(mouseX);
    System_MouseY = static_cast<uint16_t>(mouseY);
    uint8_t x, y;
    Get3DMouseXY(&x, &y);
    return {x, y};
}

TEST(Picking, CellsLieOnAGridOverTheWindow)
{
    const struct {
        const char *what;
        int columns, rows, mouseX, mouseY, x, y;
    } rows[] = {
        {"first cell", 10, 10, 3, 5, 0, 0},
        {"its left line belongs to none", 10, 10, 2, 5, 255, 255},
        {"its upper line neither", 10, 10, 3, 4, 255, 255},
        {"line between cells", 10, 10, 104, 50, 255, 255},
        {"last cell", 10, 10, 1021, 763, 9, 9},
        {"beyond the last", 10, 10, 1022, 763, 255, 255},
        {"odd sides", 5, 3, 3, 156, 0, 0},
        {"odd sides, outside", 5, 3, 3, 155, 255, 255},
        {"the middle of odd sides", 5, 3, 512, 384, 2, 1},
        {"left of the window", 10, 10, 65530, 100, 255, 255},
    };
    for (const auto &r : rows) {
        Window(1024, 768, r.columns, r.rows);
        EXPECT_EQ(CellAt(r.mouseX, r.mouseY), std::pair(r.x, r.y)) << r.what;
    }
}

// Where the centre of a cell's front face is drawn, in window units.
static std::pair<double, double> DrawnAt(int x, int y)
{
    GLFEW_VERTEX record{};
    const float depth = 4.4f + (static_cast<float>(std::max(xDim, yDim)) - 2) * 1.7f;
    Extra_Vector(record.Eye, 0, 0, -depth, 0);
    Extra_Vector(record.Up, 0, 1, 0, 0);
    GLFEW_LookAt(record);
    EXTRA_MATRIX m;
    Extra_Multiply(m, Extra_Perspective(record.Projection, 45, 1, 0.1f, 256), record.View);
    const double px = -xDim + 1 + 2 * x, py = yDim - 1 - 2 * y, pz = -1;
    const auto row = [&](size_t r) { return m[r] * px + m[r + 1] * py + m[r + 2] * pz + m[r + 3]; };
    const int longest = std::max(xDim, yDim);
    const double shareX = GridShare(System_ScreenWidth, longest);
    const double shareY = GridShare(System_ScreenHeight, longest);
    return {(1 + row(0) / row(12) * shareX) / 2 * System_ScreenWidth,
            (1 - row(4) / row(12) * shareY) / 2 * System_ScreenHeight};
}

TEST(Picking, TheCellUnderTheCursorIsTheOneDrawnThere)
{
    const std::pair<int, int> windows[] = {{1024, 768}, {640, 480}, {1600, 700}, {500, 900}};
    for (const auto &[width, height] : windows)
        for (int columns = 2; columns <= MaxDim; columns++)
            for (int rows = 2; rows <= MaxDim; rows++) {
                Window(width, height, columns, rows);
                // Corners and centre: positions are linear between them.
                for (const int x : {0, columns / 2, columns - 1})
                    for (const int y : {0, rows / 2, rows - 1}) {
                        const auto [px, py] = DrawnAt(x, y);
                        ASSERT_EQ(CellAt(px + 0.5, py + 0.5), std::pair(x, y))
                            << columns << 'x' << rows << " in " << width << 'x' << height;
                    }
            }
}
