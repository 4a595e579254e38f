#include "game/board.h"

#include <map>

#include <gtest/gtest.h>

#include "platform/application.h"
#include "tests/field.h"

void Scene() {}  // the shell calls it; unused here

// What would be drawn; these take the place of the window's own.
static std::vector<std::string> tiles;
static std::vector<EXTRA_MATRIX> cubes;
static std::map<uint32_t, std::vector<EXTRA_MATRIX>> drawn;  // by texture
static std::pair<int, int> minSide;
static int faces = 0, frames = 0;
// clang-format off
void GLFEW_SetIcon(const char *) {}
void GLFEW_SetMinSize(int32_t width, int32_t height) { minSide = {width, height}; }
void GLFEW_CreateVertex(GLFEW_VERTEX &) { faces++; }
void GLFEW_DestroyVertex(GLFEW_VERTEX &) { faces--; }
bool GLFEW_MustDraw(bool changed) { return changed || drawn.empty(); }
void GLFEW_Clear() { drawn.clear(); }
// clang-format on
uint32_t GLFEW_LoadTexture(const char *path, uint16_t, uint16_t)
{
    tiles.push_back(path);
    return static_cast<uint32_t>(tiles.size());
}
void GLFEW_LoadInstances(std::span<const EXTRA_MATRIX> mvps)
{
    frames++;
    cubes.assign(mvps.begin(), mvps.end());
}
void GLFEW_DrawInstances(const GLFEW_VERTEX &record, size_t first, size_t count, uint32_t)
{
    EXPECT_TRUE(drawn.empty() || drawn.rbegin()->first <= record.Texture) << "in the tiles' order";
    for (size_t i = first; i < first + count; i++)
        drawn[record.Texture].push_back(cubes.at(i));
}

static void ExpectClose(const std::vector<EXTRA_MATRIX> &one,
                        const std::vector<EXTRA_MATRIX> &other)
{
    ASSERT_EQ(one.size(), other.size());
    for (size_t i = 0; i < one.size(); i++)
        for (size_t k = 0; k < one[i].size(); k++)
            ASSERT_NEAR(one[i][k], other[i][k], 2e-4) << "cube " << i << ", element " << k;
}

TEST(Board, DrawsEveryFaceOnceAndMovesWithoutAJump)
{
    FieldFromText("*..\n...\n...\n..*\n");
    CreateBoard();
    EXPECT_EQ(std::tuple(faces, minSide, tiles.size(), tiles[10], texSix),
              std::tuple(12 * 6, std::pair(160, 160), 13u, "datas/Six.ham8", 11u));
    const auto paint = [](uint8_t state) {
        mb = state;
        Paint();
        return std::vector(cubes.begin(), cubes.begin() + 12);
    };
    const auto still = paint(GAME_IDLE);
    std::map<uint32_t, std::vector<EXTRA_MATRIX>> expected;
    for (size_t i = 0; i < 12; i++)
        for (const GLFEW_VERTEX &face : OGLvertex[i % 3][i / 3])
            expected[face.Texture].push_back(still[i]);
    EXPECT_EQ(drawn, expected);
    paint(GAME_IDLE);
    EXPECT_EQ(frames, 1) << "nothing changed";

    // The camera of a lost game starts where it was and ends where the board spins.
    xr2 = 1 / zDepth, yr2 = 2 / zDepth, zr2 = zDepth;
    ExpectClose(paint(GAME_RECEDING), still);
    zr2 = 2 * zDepth;
    const auto receded = paint(GAME_RECEDING);
    xr2 = yr2 = zr2 = 0;
    ExpectClose(paint(GAME_SPINNING), receded);
    for (size_t i = 0; i < 12; i++)  // everything is twice as far: centres are seen where they were
        EXPECT_NEAR(receded[i][3] / receded[i][15], still[i][3] / still[i][15], 1e-5);

    // Cubes that spin, and cubes that turned.
    xr = 390, yr = 400, zr = 410;
    const auto spun = paint(GAME_WON);
    for (size_t i = 0; i < 12; i++) {
        MineCell &cell = MineField[i % 3][i / 3];
        cell.xAngle = 30, cell.yAngle = 40, cell.zAngle = 50;
    }
    ExpectClose(paint(GAME_IDLE), spun);
    EXPECT_NE(spun, still);
    DestroyBoard();
    EXPECT_EQ(faces, 0);
}

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
