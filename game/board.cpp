#include "game/board.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include <GL/glew.h>

#include "extra/reason.h"
#include "game/moves.h"
#include "platform/application.h"
#include "platform/system.h"

// clang-format off
const FACE_VERTICES vertices_front = {
    -1, -1, -1, 0, 1,  -1,  1, -1, 0, 0,   1,  1, -1, 1, 0,
     1,  1, -1, 1, 0,   1, -1, -1, 1, 1,  -1, -1, -1, 0, 1,
};
const FACE_VERTICES vertices_back = {
     1, -1,  1, 1, 0,   1,  1,  1, 1, 1,  -1,  1,  1, 0, 1,
    -1,  1,  1, 0, 1,  -1, -1,  1, 0, 0,   1, -1,  1, 1, 0,
};
const FACE_VERTICES vertices_top = {
    -1,  1, -1, 0, 1,  -1,  1,  1, 0, 0,   1,  1,  1, 1, 0,
     1,  1,  1, 1, 0,   1,  1, -1, 1, 1,  -1,  1, -1, 0, 1,
};
const FACE_VERTICES vertices_bottom = {
     1, -1, -1, 1, 0,   1, -1,  1, 1, 1,  -1, -1,  1, 0, 1,
    -1, -1,  1, 0, 1,  -1, -1, -1, 0, 0,   1, -1, -1, 1, 0,
};
const FACE_VERTICES vertices_left = {
    -1, -1,  1, 0, 1,  -1,  1,  1, 0, 0,  -1,  1, -1, 1, 0,
    -1,  1, -1, 1, 0,  -1, -1, -1, 1, 1,  -1, -1,  1, 0, 1,
};
const FACE_VERTICES vertices_right = {
     1, -1, -1, 0, 1,   1,  1, -1, 0, 0,   1,  1,  1, 1, 0,
     1,  1,  1, 1, 0,   1, -1,  1, 1, 1,   1, -1, -1, 0, 1,
};
// clang-format on

uint32_t texBase, texMine, texEmpty, texQuestion, texFlag, texOne, texTwo, texThree, texFour,
    texFive, texSix, texSeven, texEight;

std::array<std::array<std::array<GLFEW_VERTEX, FACE_COUNT>, MaxDim>, MaxDim> OGLvertex;
GLFEW_VERTEX World;

constexpr char vertexShader[] = "#version 330 core\n"
                                "layout(location = 0) in vec3 vPosition;\n"
                                "layout(location = 1) in vec2 vUV;\n"
                                "out vec2 UV;\n"
                                "uniform mat4 MVP;\n"
                                "void main()\n"
                                "{\n"
                                "    gl_Position = vec4(vPosition, 1.0f) * MVP;\n"
                                "    UV = vUV;\n"
                                "}\n";
constexpr char fragmentShader[] = "#version 330 core\n"
                                  "in vec2 UV;\n"
                                  "out vec3 color;\n"
                                  "uniform sampler2D textureSampler1;\n"
                                  "void main()\n"
                                  "{\n"
                                  "    color = texture(textureSampler1, UV).rgb;\n"
                                  "}\n";

static void LoadTextures()
{
    const struct {
        uint32_t &texture;
        const char *file;
    } tiles[] = {
        {texBase, "datas/Base.ham8"},   {texMine, "datas/Mine.ham8"},
        {texEmpty, "datas/Empty.ham8"}, {texQuestion, "datas/Question.ham8"},
        {texFlag, "datas/Flag.ham8"},   {texOne, "datas/One.ham8"},
        {texTwo, "datas/Two.ham8"},     {texThree, "datas/Three.ham8"},
        {texFour, "datas/Four.ham8"},   {texFive, "datas/Five.ham8"},
        {texSix, "datas/Six.ham8"},     {texSeven, "datas/Seven.ham8"},
        {texEight, "datas/Eight.ham8"},
    };
    std::string missing;  // the first missing tile
    int others = -1;
    for (const auto &tile : tiles) {
        tile.texture = GLFEW_LoadTexture(tile.file, 0, 0);
        if (tile.texture == 0 && ++others == 0)
            missing = std::string(tile.file) +
                      ": no picture: " + (*Reason_Get() ? Reason_Get() : "it does not decode");
    }
    if (others < 0)
        return;
    if (others > 0)
        missing += ", nor of " + std::to_string(others) + " other tiles";
    std::error_code error;
    std::fprintf(stderr, "%s; looked for in %s\n", missing.c_str(),
                 std::filesystem::current_path(error).c_str());
}

static uint32_t NumberTexture(MineCell &cell)
{
    if (cell.count == 0)
        cell.count = static_cast<uint8_t>(System_RaNDom(8) + 1);
    const std::array<uint32_t, 8> textures = {texOne,  texTwo, texThree, texFour,
                                              texFive, texSix, texSeven, texEight};
    return textures[cell.count - 1u];
}

// What the records of all faces have in common.
static GLFEW_VERTEX MakeFace()
{
    GLFEW_VERTEX record{};
    record.Kind = GLFEW_Textured;
    record.Count = 6;
    record.VertexShaderSource = vertexShader;
    record.FragmentShaderSource = fragmentShader;
    Extra_Vector(record.Eye, 0, 0, -zDepth, 0);
    Extra_Vector(record.Centre, 0, 0, 0, 0);
    Extra_Vector(record.Up, 0, 1, 0, 0);
    GLFEW_ChangePerspective(record, 45, 0.1f, 256);
    GLFEW_LookAt(record);
    return record;
}

namespace
{
// Faces drawn in one call: they share texture and vertices. First is an index into the MVPs of a
// frame: those of all cubes in reading order, then again in the order of `byNumber`.
struct FACES {
    const GLFEW_VERTEX *Record;  // any of these faces
    size_t First, Count;
};
}  // namespace

// In drawing order: by texture. Where two faces have equal depth, at a shared edge, the first one
// drawn stays visible.
static std::vector<FACES> drawOrder;
static std::vector<size_t> byNumber;  // the cubes, sorted by the number on their left face

static GLFEW_VERTEX &FaceOf(size_t cube, size_t face)
{
    return OGLvertex[cube % xDim][cube / xDim][face];
}

static void OrderFaces()
{
    const size_t cubes = size_t{xDim} * yDim;
    byNumber.resize(cubes);
    std::iota(byNumber.begin(), byNumber.end(), size_t{0});
    std::ranges::stable_sort(byNumber, {},
                             [](size_t cube) { return FaceOf(cube, FACE_LEFT).Texture; });
    drawOrder.clear();
    for (size_t f = 0; f < FACE_COUNT; f++)
        if (f != FACE_LEFT)
            drawOrder.push_back({&FaceOf(0, f), 0, cubes});
    for (size_t i = 0; i < cubes; i++) {
        const GLFEW_VERTEX &face = FaceOf(byNumber[i], FACE_LEFT);
        if (i == 0 || face.Texture != drawOrder.back().Record->Texture)
            drawOrder.push_back({&face, cubes + i, 0});
        drawOrder.back().Count++;
    }
    std::ranges::stable_sort(drawOrder, {},
                             [](const FACES &faces) { return faces.Record->Texture; });
}

namespace
{
struct ANGLES {
    float x, y, z;
    bool operator==(const ANGLES &) const = default;
};

struct CUBE {
    ANGLES Angles;
    bool Stale;  // its matrices do not match the angles
};

// Input of a frame, copied from the game under its lock.
struct BOARD_VIEW {
    std::array<std::array<CUBE, MaxDim>, MaxDim> Cubes;
    uint8_t State;  // GAME
    ANGLES Spin;    // added to every cube's angles; 0 unless the cubes spin
    ANGLES World;   // xr2, yr2, zr2; 0 unless the game is lost
    bool Stale;     // all matrices must be recomputed
};
}  // namespace

static BOARD_VIEW view;

void CreateBoard()
{
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    LoadTextures();
    GLFEW_SetIcon("datas/Flag.ham8");
    constexpr int minSide = 160, minCell = 6;  // window units
    const int side = std::max(minSide, minCell * std::max(xDim, yDim));
    GLFEW_SetMinSize(side, side);
    zDepth = static_cast<float>(std::max(xDim, yDim));
    zDepth = 4.4f + (zDepth - 2) * 1.7f;

    const GLFEW_VERTEX common = MakeFace();
    for (size_t y = 0; y < yDim; y++)
        for (size_t x = 0; x < xDim; x++) {
            const auto create = [&](FACE face, const FACE_VERTICES &vertices, uint32_t texture) {
                GLFEW_VERTEX &record = OGLvertex[x][y][face] = common;
                record.TexturedVertices = vertices.data();
                record.Texture = texture;
                GLFEW_CreateVertex(record);
                std::printf("Generate object at (%d, %d)\r", static_cast<int>(x + 1),
                            static_cast<int>(y + 1));
            };
            create(FACE_FRONT, vertices_front, texBase);
            create(FACE_BACK, vertices_back, texMine);
            create(FACE_TOP, vertices_top, texEmpty);
            create(FACE_BOTTOM, vertices_bottom, texQuestion);
            create(FACE_LEFT, vertices_left, NumberTexture(MineField[x][y]));
            create(FACE_RIGHT, vertices_right, texFlag);
        }
    OrderFaces();
    view.Stale = true;
}

void DestroyBoard()
{
    for (size_t y = 0; y < yDim; y++)
        for (size_t x = 0; x < xDim; x++)
            for (GLFEW_VERTEX &face : OGLvertex[x][y])
                GLFEW_DestroyVertex(face);
}

// Assigns `now` to `shown`; true if that changed it.
template <typename T>
static bool Update(T &shown, const T &now)
{
    const bool changed = !(shown == now);
    shown = now;
    return changed;
}

// Interpolates angles between two ticks.
static ANGLES Ahead(const ANGLES &angles, const std::array<double, 3> &tick, float share)
{
    const auto ahead = [share](float angle, double by) {
        return angle >= 360 ? angle
                            : angle + static_cast<float>(by) * share;  // the next tick gives 0
    };
    return {ahead(angles.x, tick[0]), ahead(angles.y, tick[1]), ahead(angles.z, tick[2])};
}

// Copies the game's state. Cubes that turn or spin are interpolated towards their next tick.
static bool CopyView()
{
    const std::lock_guard lock(GameLock);
    const float share = TickShare();
    bool changed = false;
    for (size_t x = 0; x < xDim; x++)
        for (size_t y = 0; y < yDim; y++) {
            const MineCell &cell = MineField[x][y];
            CUBE &cube = view.Cubes[x][y];
            const float part = cell.turnSteps != 0 ? share : 0;
            if (Update(cube.Angles,
                       {cell.xAngle + cell.xSpin * part, cell.yAngle + cell.ySpin * part,
                        cell.zAngle + cell.zSpin * part}))
                changed = cube.Stale = true;
        }
    const bool lost = mb == GAME_RECEDING || mb == GAME_SPINNING;
    const bool spinning = mb == GAME_WON || mb == GAME_SPINNING;
    bool all = Update(view.State, mb);
    all |= Update(view.Spin,
                  spinning ? Ahead({xr, yr, zr}, {SpinTick, SpinTick, SpinTick}, share) : ANGLES{});
    const auto tick = mb == GAME_SPINNING ? BoardSpinTick : std::array<double, 3>{0, 0, RecedeTick};
    all |= Update(view.World, lost ? Ahead({xr2, yr2, zr2}, tick, share) : ANGLES{});
    view.Stale |= all;
    return changed || all;
}

static void Rotate(EXTRA_MATRIX &model, float x, float y, float z)
{
    Extra_RotateX(model, model, x);
    Extra_RotateY(model, model, y);
    Extra_RotateZ(model, model, z);
}

// Camera and rotation of the whole board in the end views of a lost game.
static void ViewWorld()
{
    const bool spinning = view.State == GAME_SPINNING;
    Extra_Identity(World.Model);
    Extra_Vector(World.Eye, 0, 0, spinning ? -2 * zDepth : -view.World.z, 0);
    Extra_Vector(World.Centre, 0, 0, 0, 0);
    Extra_Vector(World.Up, 0, 1, 0, 0);
    GLFEW_LookAt(World);
    if (spinning)
        Rotate(World.Model, view.World.x, view.World.y, view.World.z);
}

// Translates a cube to its place: cubes touch until the game is lost, then move apart.
static void Place(EXTRA_MATRIX &model, int x, int y)
{
    const float columns = xDim, rows = yDim, column = static_cast<float>(x),
                row = static_cast<float>(y);
    float across, down;
    if (view.State == GAME_RECEDING) {
        const float receded = view.World.z - zDepth;
        const float half = 1 + receded * view.World.x, spacing = 2 + receded * view.World.y;
        across = -columns * half + half + column * spacing;
        down = rows * half - half - row * spacing;
    } else if (view.State == GAME_SPINNING) {
        across = 2 - 2 * columns + 4 * column;
        down = 2 * rows - 2 - 4 * row;
    } else {
        across = -columns + 1 + 2 * column;
        down = rows - 1 - 2 * row;
    }
    Extra_TranslateX(model, model, across);
    Extra_TranslateY(model, model, down);
}

// The rotation matrix. The last one is cached, since neighbours often have equal angles.
static const EXTRA_MATRIX &Turned(const ANGLES &angles)
{
    static ANGLES last;
    static EXTRA_MATRIX turn = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    if (Update(last, angles)) {
        Extra_Identity(turn);
        Rotate(turn, angles.x, angles.y, angles.z);
    }
    return turn;
}

// The six faces of a cube share camera and place, hence their matrices.
static void TransformCube(std::array<GLFEW_VERTEX, FACE_COUNT> &faces, int x, int y)
{
    const ANGLES &own = view.Cubes[static_cast<size_t>(x)][static_cast<size_t>(y)].Angles;
    const bool lost = view.State == GAME_RECEDING || view.State == GAME_SPINNING;
    EXTRA_MATRIX model = Turned({own.x + view.Spin.x, own.y + view.Spin.y, own.z + view.Spin.z});
    EXTRA_MATRIX mvp;
    Place(model, x, y);
    if (lost)
        Extra_Multiply(model, World.Model, model);
    Extra_Multiply(mvp, lost ? World.View : faces[0].View, model);
    Extra_Multiply(mvp, faces[0].Projection, mvp);
    for (GLFEW_VERTEX &face : faces) {
        face.Model = model;
        face.MVP = mvp;
    }
}

// Recomputes stale matrices and uploads all for drawing.
static void TransformBoard()
{
    static std::vector<EXTRA_MATRIX> mvps;
    const size_t cubes = byNumber.size();
    mvps.resize(2 * cubes);
    if (view.State == GAME_RECEDING || view.State == GAME_SPINNING)
        ViewWorld();
    for (size_t i = 0; i < cubes; i++) {
        const size_t x = i % xDim, y = i / xDim;
        if (std::exchange(view.Cubes[x][y].Stale, false) || view.Stale) {
            TransformCube(OGLvertex[x][y], static_cast<int>(x), static_cast<int>(y));
            mvps[i] = OGLvertex[x][y][0].MVP;
        }
    }
    for (size_t i = 0; i < cubes; i++)
        mvps[cubes + i] = mvps[byNumber[i]];
    view.Stale = false;
    GLFEW_LoadInstances(mvps);
}

float GridShare(int window, int longest)
{
    // The projection shows the board this much larger than the window: cot(fov / 2) x view scale /
    // (distance to the front faces / half the longer side).
    constexpr float overscan = 2.4142135f * 0.70710678f / 1.7f;
    if (window <= 0)
        return 1;  // the window is iconified
    const int grid = window / longest * longest;
    return static_cast<float>(grid) / (static_cast<float>(window) * overscan);
}

void Paint()
{
    if (!GLFEW_MustDraw(CopyView()))
        return;
    GLFEW_Clear();
    const int longest = std::max(xDim, yDim);
    GLFEW_SetShares(GridShare(System_GetScreenWidth(), longest),
                    GridShare(System_GetScreenHeight(), longest));
    TransformBoard();
    for (const FACES &faces : drawOrder)
        GLFEW_DrawInstances(*faces.Record, faces.First, faces.Count, GL_TRIANGLES);
}

// The cell index under the mouse on one axis of the picking grid, or NoCell.
static uint8_t PickAxis(int mouse, int window, int cells, int longest)
{
    const int size = window / longest;
    int start = window / 2 - cells / 2 * size;
    if (cells % 2 != 0)
        start -= size / 2;
    for (int i = 0; i < cells; i++)
        if (start + i * size < mouse && mouse < start + i * size + size)
            return static_cast<uint8_t>(i);
    return NoCell;
}

void Get3DMouseXY(uint8_t *x, uint8_t *y)
{
    const int longest = std::max(xDim, yDim);
    const auto width = static_cast<uint16_t>(System_GetScreenWidth());
    const auto height = static_cast<uint16_t>(System_GetScreenHeight());
    *x = PickAxis(System_GetMouseX(), width, xDim, longest);
    *y = PickAxis(System_GetMouseY(), height, yDim, longest);
    if (*x == NoCell || *y == NoCell)
        *x = *y = NoCell;
}
