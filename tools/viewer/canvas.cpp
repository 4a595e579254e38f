#include "tools/viewer/canvas.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <utility>

#include "platform/glfew.h"
#include "tools/viewer/screen.h"

constexpr uint32_t Canvas_TileSide = 1024, Canvas_Border = 4;  // so that no filter reaches an edge
constexpr size_t Canvas_MaxTiles = 24;                         // kept while out of sight

namespace
{

using TILE_KEY = std::tuple<uint64_t, size_t, uint32_t, uint32_t>;  // serial, size, column, row
struct TILE {
    uint32_t Texture;
    bool InSight;
};

// A tile's pixels in one direction, from the first to past the last, without and with its border.
struct RANGE {
    uint32_t Begin, End, OuterBegin, OuterEnd;
};

}  // namespace

static std::map<TILE_KEY, TILE> tiles;

CANVAS_TURN Canvas_TurnOf(int orientation)
{
    // Exif 2.3, 4.6.4 A: whether rows become columns, and what is at the right or at the bottom.
    const bool turned = orientation >= 5;
    const int x =
        orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8 ? -1 : 1;
    const int y =
        orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7 ? -1 : 1;
    return turned ? CANVAS_TURN{0, y, x, 0} : CANVAS_TURN{x, 0, 0, y};
}

CANVAS_TURN Canvas_After(const CANVAS_TURN &first, const CANVAS_TURN &second)
{
    const auto &[a, b, c, d] = first;
    const auto &[e, f, g, h] = second;
    return {e * a + f * c, e * b + f * d, g * a + h * c, g * b + h * d};
}

template <typename Condition>
static void DropIf(const Condition &condition)
{
    for (auto i = tiles.begin(); i != tiles.end();) {
        if (condition(*i)) {
            GLFEW_DestroyTexture(i->second.Texture);
            i = tiles.erase(i);
        } else {
            ++i;
        }
    }
}

static uint64_t SerialOf(const std::pair<const TILE_KEY, TILE> &tile)
{
    return std::get<0>(tile.first);
}

void Canvas_Forget(uint64_t serial)
{
    DropIf([&](const auto &tile) { return SerialOf(tile) == serial; });
}

void Canvas_Keep(std::span<const uint64_t> serials)
{
    DropIf([&](const auto &tile) {
        return std::ranges::find(serials, SerialOf(tile)) == serials.end();
    });
}

// The smallest size that need not be enlarged to be shown at so many pixels wide.
static size_t SizeFor(const CANVAS_PICTURE &picture, float shown)
{
    size_t size = 0;
    while (size + 1 < picture.Sizes.size() &&
           static_cast<float>(picture.Sizes[size + 1].Width) >= shown)
        size++;
    return size;
}

static RANGE Range(uint32_t n, uint32_t side)
{
    const uint32_t begin = n * Canvas_TileSide, end = std::min(side, begin + Canvas_TileSide);
    return {begin, end, begin - std::min(begin, Canvas_Border),
            end + std::min(side - end, Canvas_Border)};
}

static uint32_t TextureOf(const VIEWER_PIXELS &p, const TILE_KEY &key, const RANGE &across,
                          const RANGE &down)
{
    auto tile = tiles.find(key);
    if (tile == tiles.end()) {
        const uint8_t *first =
            p.Pixels + (size_t{down.OuterBegin} * p.Stride + across.OuterBegin) * 4;
        const uint32_t texture = GLFEW_MakeTexture(first, across.OuterEnd - across.OuterBegin,
                                                   down.OuterEnd - down.OuterBegin, p.Stride);
        tile = tiles.insert({key, {texture, true}}).first;
    }
    tile->second.InSight = true;
    return tile->second.Texture;
}

static void DrawTile(const CANVAS_PICTURE &picture, size_t size, uint32_t column, uint32_t row,
                     const SCREEN_PLACE &whole, bool smooth)
{
    const VIEWER_PIXELS &p = picture.Sizes[size];
    const RANGE across = Range(column, p.Width), down = Range(row, p.Height);
    const uint32_t texture = TextureOf(p, {picture.Serial, size, column, row}, across, down);
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

// First visible tile and the one past the last, if the part from `low` to `high` is visible.
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

bool Canvas_Prepare(const CANVAS_PICTURE &picture, float shown)
{
    const size_t size = SizeFor(picture, shown);
    const VIEWER_PIXELS &p = picture.Sizes[size];
    if (std::max(p.Width, p.Height) > 4 * Canvas_TileSide)  // much of it will be out of sight
        return false;
    for (uint32_t row = 0; row * Canvas_TileSide < p.Height; row++)
        for (uint32_t column = 0; column * Canvas_TileSide < p.Width; column++) {
            const TILE_KEY key = {picture.Serial, size, column, row};
            if (!tiles.contains(key)) {
                TextureOf(p, key, Range(column, p.Width), Range(row, p.Height));
                return true;
            }
        }
    return false;
}

void Canvas_Draw(const CANVAS_PICTURE &picture, float x, float y, float width, float height,
                 const CANVAS_TURN &turn, bool smooth)
{
    // The picture's corner and sides on the screen: its centre remains the rectangle's.
    const auto t = [&](size_t i) { return static_cast<float>(turn[i]); };
    const SCREEN_PLACE whole = {x + width * (1 - t(0) - t(1)) / 2,
                                y + height * (1 - t(2) - t(3)) / 2,
                                width * t(0),
                                height * t(2),
                                width * t(1),
                                height * t(3)};

    const size_t size = SizeFor(picture, turn[0] != 0 ? width : height);

    // The window's corners in the picture, in units of its sides.
    const auto inPicture = [&](float screenX, float screenY) {
        const float a = (screenX - x) / width - 0.5F, b = (screenY - y) / height - 0.5F;
        return std::pair{t(0) * a + t(2) * b + 0.5F, t(1) * a + t(3) * b + 0.5F};
    };
    const auto [u0, v0] = inPicture(0, 0);
    const auto [u1, v1] = inPicture(Screen_Width(), Screen_Height());
    const auto [left, right] = InSight(u0, u1, picture.Sizes[size].Width);
    const auto [top, bottom] = InSight(v0, v1, picture.Sizes[size].Height);
    for (auto &[key, tile] : tiles)
        tile.InSight = false;
    for (uint32_t row = top; row < bottom; row++)
        for (uint32_t column = left; column < right; column++)
            DrawTile(picture, size, column, row, whole, smooth);
    if (tiles.size() > Canvas_MaxTiles)
        DropIf([&](const auto &tile) {
            return SerialOf(tile) == picture.Serial && !tile.second.InSight;
        });
}
