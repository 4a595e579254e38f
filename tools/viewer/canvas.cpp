#include "tools/viewer/canvas.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <utility>

#include "platform/glfew.h"
#include "tools/viewer/screen.h"

constexpr uint32_t Canvas_TileSide = 1024, Canvas_Border = 4;  // so that no filter sees an edge
constexpr size_t Canvas_MaxTiles = 24;                         // kept while out of sight

namespace
{

using TILE_KEY = std::tuple<size_t, uint32_t, uint32_t>;  // size, column, row
struct TILE {
    uint32_t Texture;
    bool InSight;
};

// From a tile's first pixel to past its last, in one direction, with its border and without.
struct RANGE {
    uint32_t Begin, End, OuterBegin, OuterEnd;
};

}  // namespace

static std::vector<VIEWER_PIXELS> canvasSizes;
static std::map<TILE_KEY, TILE> tiles;

CANVAS_TURN Canvas_TurnOf(int orientation)
{
    // Exif 2.3, 4.6.4 A: whether rows become columns, and what lies at the right or the bottom.
    const bool turned = orientation >= 5;
    const int x = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8 ? -1
                                                                                               : 1;
    const int y = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7 ? -1
                                                                                               : 1;
    return turned ? CANVAS_TURN{0, y, x, 0} : CANVAS_TURN{x, 0, 0, y};
}

CANVAS_TURN Canvas_After(const CANVAS_TURN &first, const CANVAS_TURN &second)
{
    const auto &[a, b, c, d] = first;
    const auto &[e, f, g, h] = second;
    return {e * a + f * c, e * b + f * d, g * a + h * c, g * b + h * d};
}

static void Drop(bool all)
{
    for (auto i = tiles.begin(); i != tiles.end();) {
        if (all || !i->second.InSight) {
            GLFEW_DestroyTexture(i->second.Texture);
            i = tiles.erase(i);
        } else {
            ++i;
        }
    }
}

void Canvas_Set(std::vector<VIEWER_PIXELS> sizes)
{
    Drop(true);
    canvasSizes = std::move(sizes);
}

static RANGE Range(uint32_t n, uint32_t side)
{
    const uint32_t begin = n * Canvas_TileSide, end = std::min(side, begin + Canvas_TileSide);
    return {begin, end, begin - std::min(begin, Canvas_Border),
            end + std::min(side - end, Canvas_Border)};
}

static uint32_t TextureOf(const TILE_KEY &key, const RANGE &across, const RANGE &down)
{
    auto tile = tiles.find(key);
    if (tile == tiles.end()) {
        const VIEWER_PIXELS &p = canvasSizes[std::get<0>(key)];
        const uint8_t *first =
            p.Pixels + (size_t{down.OuterBegin} * p.Stride + across.OuterBegin) * 4;
        const uint32_t texture =
            GLFEW_MakeTexture(first, across.OuterEnd - across.OuterBegin,
                              down.OuterEnd - down.OuterBegin, p.Stride);
        tile = tiles.insert({key, {texture, true}}).first;
    }
    tile->second.InSight = true;
    return tile->second.Texture;
}

static void DrawTile(size_t size, uint32_t column, uint32_t row, const SCREEN_PLACE &whole,
                     bool smooth)
{
    const VIEWER_PIXELS &p = canvasSizes[size];
    const RANGE across = Range(column, p.Width), down = Range(row, p.Height);
    const uint32_t texture = TextureOf({size, column, row}, across, down);
    GLFEW_SmoothTexture(texture, smooth);
    const auto share = [](uint32_t part, uint32_t all) {
        return static_cast<float>(part) / static_cast<float>(all);
    };
    const float left = share(across.Begin, p.Width), top = share(down.Begin, p.Height);
    const float width = share(across.End, p.Width) - left;
    const float height = share(down.End, p.Height) - top;
    const uint32_t outerWidth = across.OuterEnd - across.OuterBegin;
    const uint32_t outerHeight = down.OuterEnd - down.OuterBegin;
    Screen_Draw(texture,
                {whole.X + whole.AcrossX * left + whole.DownX * top,
                 whole.Y + whole.AcrossY * left + whole.DownY * top, whole.AcrossX * width,
                 whole.AcrossY * width, whole.DownX * height, whole.DownY * height},
                SCREEN_CHECKERED,
                {share(across.Begin - across.OuterBegin, outerWidth),
                 share(down.Begin - down.OuterBegin, outerHeight),
                 share(across.End - across.Begin, outerWidth),
                 share(down.End - down.Begin, outerHeight)});
}

// First tile in sight and the one past the last, when the part from `low` to `high` is.
static std::pair<uint32_t, uint32_t> InSight(float low, float high, uint32_t side)
{
    const uint32_t count = (side + Canvas_TileSide - 1) / Canvas_TileSide;
    const float perTile = static_cast<float>(side) / Canvas_TileSide;
    const auto clamp = [&](float n) {
        return static_cast<uint32_t>(std::clamp(n, 0.0F, static_cast<float>(count)));
    };
    return {clamp(std::floor(std::min(low, high) * perTile)),
            clamp(std::ceil(std::max(low, high) * perTile))};
}

void Canvas_Draw(float x, float y, float width, float height, const CANVAS_TURN &turn, bool smooth)
{
    if (canvasSizes.empty())
        return;
    // The picture's corner and sides on the screen: its middle stays the rectangle's.
    const auto t = [&](size_t i) { return static_cast<float>(turn[i]); };
    const SCREEN_PLACE whole = {x + width * (1 - t(0) - t(1)) / 2,
                                y + height * (1 - t(2) - t(3)) / 2,
                                width * t(0),
                                height * t(2),
                                width * t(1),
                                height * t(3)};

    // The smallest size that need not be magnified.
    const float shown = turn[0] != 0 ? width : height;
    size_t size = 0;
    while (size + 1 < canvasSizes.size() &&
           static_cast<float>(canvasSizes[size + 1].Width) >= shown)
        size++;

    // The window's corners in the picture, whose sides are 1 each.
    const auto inPicture = [&](float screenX, float screenY) {
        const float a = (screenX - x) / width - 0.5F, b = (screenY - y) / height - 0.5F;
        return std::pair{t(0) * a + t(2) * b + 0.5F, t(1) * a + t(3) * b + 0.5F};
    };
    const auto [u0, v0] = inPicture(0, 0);
    const auto [u1, v1] = inPicture(Screen_Width(), Screen_Height());
    const auto [left, right] = InSight(u0, u1, canvasSizes[size].Width);
    const auto [top, bottom] = InSight(v0, v1, canvasSizes[size].Height);
    for (auto &[key, tile] : tiles)
        tile.InSight = false;
    for (uint32_t row = top; row < bottom; row++)
        for (uint32_t column = left; column < right; column++)
            DrawTile(size, column, row, whole, smooth);
    if (tiles.size() > Canvas_MaxTiles)
        Drop(false);
}
