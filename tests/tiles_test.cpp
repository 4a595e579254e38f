// The tiles under datas/ as the game shows them: on the faces of turning cubes, at small sizes, and
// to eyes with various colour vision.
#include <algorithm>
#include <array>
#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include "game/board.h"
#include "picture/picture.h"
#include "platform/timer.h"
#include "tests/field.h"

// Model, view and projection of a cell's cube in the middle of a 10 by 10 field.
static EXTRA_MATRIX CubeMatrix(float xAngle, float yAngle)
{
    EXTRA_VECTOR eye = {0, 0, -18, 0}, centre = {0, 0, 0, 0}, up = {0, 1, 0, 0};
    EXTRA_MATRIX model, view, projection;
    Extra_Identity(model);
    Extra_RotateX(model, model, xAngle);
    Extra_RotateY(model, model, yAngle);
    Extra_LookAt(view, eye, centre, up);
    Extra_Multiply(model, view, model);
    Extra_Multiply(model, Extra_Perspective(projection, 45, 1, 0.1f, 256), model);
    return model;
}

TEST(Tiles, FacesComeRoundUpright)
{
    const struct {
        const char *what, *field;
        uint8_t button;
        int clicks;
        const FACE_VERTICES &face;
    } rows[] = {
        {"covered", "..\n", 1, 0, vertices_front},
        {"empty", "..\n", 1, 1, vertices_top},
        {"mine", "*.\n", 1, 1, vertices_back},
        {"number", ".*\n", 1, 1, vertices_left},
        {"flag", ".*\n", 2, 1, vertices_right},
        {"question mark", ".*\n", 2, 2, vertices_bottom},
        {"covered again", ".*\n", 2, 3, vertices_front},
    };
    for (const auto &r : rows) {
        FieldFromText(r.field);
        for (int i = 0; i < r.clicks; i++) {
            Click(0, 0, r.button);
            while (mb == GAME_TURNING)
                Timer();
        }
        const EXTRA_MATRIX m = CubeMatrix(MineField[0][0].xAngle, MineField[0][0].yAngle);
        EXPECT_EQ(MineField[0][0].zAngle, 0) << r.what;
        for (size_t i = 0; i < r.face.size(); i += 5) {
            const float *v = &r.face[i];
            const auto clip = [&](size_t row) {
                return m[row] * v[0] + m[row + 1] * v[1] + m[row + 2] * v[2] + m[row + 3];
            };
            EXPECT_NEAR(clip(12), 17, 1e-4) << r.what << ": not in front";
            EXPECT_EQ(clip(0) > 0, v[3] == 1) << r.what << ": u grows to the left";
            EXPECT_EQ(clip(4) < 0, v[4] == 1) << r.what << ": v grows upwards";
        }
    }
}

constexpr size_t Side = 256;
using COLOUR = std::array<int, 3>;

// The pixels of a tile; black unless the file fits the game.
static std::vector<COLOUR> LoadTile(const std::string &name)
{
    const Picture tile = Picture_Load((GAME_DATA + name + ".ham8").c_str(), 0, 0);
    const bool usable = tile.Pixels && tile.Format == PICTURE_HAM68 && tile.Bits == 8 &&
                        tile.Width == Side && tile.Height == Side;
    EXPECT_TRUE(usable) << name;
    std::vector<COLOUR> pixels(Side * Side);
    for (size_t i = 0; usable && i < pixels.size(); i++)
        std::copy_n(tile.Pixels + 4 * i, 3, pixels[i].begin());
    Picture_UnLoad(tile);
    return pixels;
}

static int Sum(const COLOUR &colour)
{
    return colour[0] + colour[1] + colour[2];
}

// Sum of the colours in the middle half of a row or column of texels.
static int Line(const std::vector<COLOUR> &tile, size_t start, size_t stride)
{
    int sum = 0;
    for (size_t i = Side / 4; i < 3 * Side / 4; i++)
        sum += Sum(tile[start + i * stride]);
    return sum;
}

TEST(Tiles, AllAreFacesOfOneBlock)
{
    constexpr size_t rimX = 6, rimY = 8, end = Side - 1;  // texels
    for (const char *name : {"Base", "Mine", "Empty", "Question", "Flag", "One", "Two", "Three",
                             "Four", "Five", "Six", "Seven", "Eight"}) {
        // Faces touch: the rim separates cells, and from the yellow background.
        const std::vector<COLOUR> tile = LoadTile(name);
        int brightest = 0;
        for (size_t i = 0; i < tile.size(); i++) {
            const size_t x = std::min(i % Side, end - i % Side);
            const size_t y = std::min(i / Side, end - i / Side);
            brightest = std::max(brightest, x < rimX || y < rimY ? Sum(tile[i]) : 0);
        }
        EXPECT_LT(brightest, 120) << name;
        // The bevel inside it is lit from the top left.
        EXPECT_GT(Line(tile, (rimY + 3) * Side, 1), 4 * Line(tile, (end - rimY - 3) * Side, 1))
            << name;
        EXPECT_GT(Line(tile, rimX + 3, Side), 2 * Line(tile, end - rimX - 3, Side)) << name;
    }
}

TEST(Tiles, SignsStayBoldInSmallCells)
{
    const auto isRed = [](const COLOUR &c) { return c[0] > 180 && c[0] > c[2] + 90; };
    const auto isDark = [](const COLOUR &c) { return Sum(c) < 240; };
    const auto isWhite = [](const COLOUR &c) { return Sum(c) > 540; };
    constexpr size_t small = 16, texels = Side / small;  // the mipmap level in a 64 by 64 field
    const std::tuple<const char *, bool (*)(const COLOUR &), int> rows[] = {
        {"Flag", isRed, 24}, {"Mine", isDark, 24}, {"Question", isWhite, 6}};
    for (const auto &[name, is, least] : rows) {
        const std::vector<COLOUR> tile = LoadTile(name);
        std::vector<COLOUR> sums(small * small);
        for (size_t i = 0; i < tile.size(); i++)
            for (size_t c = 0; c < 3; c++)
                sums[i / Side / texels * small + i % Side / texels][c] += tile[i][c];
        int pixels = 0;
        for (size_t y = 2; y < small - 2; y++)
            for (size_t x = 2; x < small - 2; x++) {
                const auto &[red, green, blue] = sums[y * small + x];
                pixels += is({red / 256, green / 256, blue / 256});
            }
        EXPECT_GE(pixels, least) << name;
    }
}

using TRIPLE = std::array<double, 3>;
using MATRIX = std::array<TRIPLE, 3>;

static double Dot(const TRIPLE &a, const TRIPLE &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// CIE L*a*b* (D65) of an sRGB colour, after mixing its linear components as the eye does.
static TRIPLE Lab(const COLOUR &colour, const MATRIX &eye)
{
    constexpr MATRIX toXYZ = {{{0.4339535, 0.3762192, 0.1898273},  // over X, Y, Z of white
                               {0.2126729, 0.7151522, 0.0721750},
                               {0.0177565, 0.1094713, 0.8727722}}};
    TRIPLE linear;
    for (size_t i = 0; i < 3; i++) {
        const double v = colour[i] / 255.0;
        linear[i] = v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    }
    TRIPLE seen, f;
    for (size_t i = 0; i < 3; i++)
        seen[i] = std::clamp(Dot(eye[i], linear), 0.0, 1.0);
    for (size_t i = 0; i < 3; i++) {
        const double t = Dot(toXYZ[i], seen);
        f[i] = t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116;
    }
    return {116 * f[1] - 16, 500 * (f[0] - f[1]), 200 * (f[1] - f[2])};
}

// The most common colour that a digit adds to an empty cell.
static COLOUR DigitColour(const std::string &name, const std::vector<COLOUR> &empty)
{
    const std::vector<COLOUR> tile = LoadTile(name);
    std::map<COLOUR, int> counts = {{COLOUR{}, 0}};
    for (size_t i = 0; i < tile.size(); i++)
        counts[tile[i]] += tile[i] != empty[i];
    const auto rarer = [](const auto &a, const auto &b) { return a.second < b.second; };
    return std::max_element(counts.begin(), counts.end(), rarer)->first;
}

TEST(Tiles, DigitsStandOutToAllEyes)
{
    // Machado, Oliveira, Fernandes 2009: "A Physiologically-based Model for Simulation of Color
    // Vision Deficiency", severity 1.
    const std::pair<const char *, MATRIX> eyes[] = {
        // clang-format off
        {"all colours",  {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}},
        {"deuteranopia", {{{0.367322, 0.860646, -0.227968}, {0.280085, 0.672501, 0.047413},
                           {-0.011820, 0.042940, 0.968881}}}},
        {"protanopia",   {{{0.152286, 1.052583, -0.204868}, {0.114503, 0.786281, 0.099216},
                           {-0.003882, -0.048116, 1.051998}}}},
        {"tritanopia",   {{{1.255528, -0.076749, -0.178779}, {-0.078411, 0.930809, 0.147602},
                           {0.004733, 0.691367, 0.303900}}}},
        // clang-format on
    };
    const std::vector<COLOUR> empty = LoadTile("Empty");
    std::vector<COLOUR> colours = {empty[Side * Side / 2 + Side / 2]};  // 0 is the floor
    for (const char *name : {"One", "Two", "Three", "Four", "Five", "Six", "Seven", "Eight"})
        colours.push_back(DigitColour(name, empty));
    for (const auto &[eye, matrix] : eyes)
        for (size_t i = 0; i < colours.size(); i++)
            for (size_t k = 0; k < i; k++) {
                const TRIPLE a = Lab(colours[i], matrix), b = Lab(colours[k], matrix);
                EXPECT_GT(std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]), 20)
                    << i << " and " << k << ", " << eye;
            }
    // W3C, "Web Content Accessibility Guidelines": contrast ratio.
    const auto lit = [&](const COLOUR &colour) {
        return std::pow((Lab(colour, eyes[0].second)[0] + 16) / 116, 3) + 0.05;
    };
    for (size_t i = 1; i < colours.size(); i++)
        EXPECT_GT(lit(colours[0]) / lit(colours[i]), 4.5) << i;
}
