#include "picture/draw.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "picture/graphics.h"
#include "picture/picture.h"
#include "picture/pixels.h"

static int16_t To16(int value)
{
    return static_cast<int16_t>(value);
}

// Truncates toward zero; a number beyond any picture, infinity or NaN gives a position before its
// start.
static int64_t WholePixels(float value)
{
    constexpr float limit = 1LL << 32;
    return std::fabs(value) < limit ? static_cast<int64_t>(value) : -(1LL << 33);
}

static int64_t BufferBytes(const Picture &picture)
{
    return int64_t{picture.BufferWidth} * picture.BufferHeight * 4;
}

// A copy of the key colour: in a shared library each access to a thread-local global costs a call.
static uint32_t KeyColour()
{
    return Pixels_Pack(PictureCR, PictureCG, PictureCB, PictureCA);
}

// Draws a pixel unless it has the key colour. The current colour becomes the pixel's in either
// case.
static void PutUnlessKey(int16_t x, int16_t y, const uint8_t *rgba, uint32_t key)
{
    Graphics_SetColor(rgba[0], rgba[1], rgba[2], rgba[3]);
    if (Pixels_Get(rgba) != key)
        Graphics_PutPixel(x, y);
}

// Calls put(x, y, rgba) for every point of the area with its source pixel.
template <typename Put>
static void Scale(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture,
                  Put put)
{
    if (!picture.Pixels || width <= 0 || height <= 0)
        return;
    const float sx = static_cast<float>(picture.Width) / width;
    const float sy = static_cast<float>(picture.Height) / height;
    std::vector<int64_t> columns(static_cast<size_t>(width));  // byte offsets
    for (size_t j = 0; j < columns.size(); j++)
        columns[j] = static_cast<int64_t>(sx * static_cast<float>(j)) * 4;
    for (int i = 0; i < height; i++) {
        const int64_t row = static_cast<int64_t>(sy * static_cast<float>(i));
        const int64_t start = row * picture.BufferWidth * 4;
        const int64_t room = BufferBytes(picture) - start;
        if (room <= 0)
            return;
        const uint8_t *line = picture.Pixels + start;
        for (int j = 0; j < width && columns[static_cast<size_t>(j)] < room; j++)
            put(To16(x + j), To16(y - i), line + columns[static_cast<size_t>(j)]);
    }
}

void Picture_Draw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture)
{
    const uint32_t key = KeyColour();
    Scale(x, y, width, height, picture,
          [key](int16_t px, int16_t py, const uint8_t *rgba) { PutUnlessKey(px, py, rgba, key); });
}

void Picture_HDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture)
{
    Picture_Draw(x, y, width, height, picture);
}

void Picture_VDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture)
{
    Picture_Draw(x, y, width, height, picture);
}

void Picture_CDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture,
                   uint8_t r, uint8_t g, uint8_t b, uint8_t a)
{
    const uint32_t key = KeyColour();
    Scale(x, y, width, height, picture, [=](int16_t px, int16_t py, const uint8_t *rgba) {
        if (Pixels_Get(rgba) == key)
            Graphics_SetColor(r, g, b, a);
        else
            Graphics_SetColor(rgba[0], rgba[1], rgba[2], rgba[3]);
        Graphics_PutPixel(px, py);
    });
}

void Picture_Inverse(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture)
{
    const auto invert = [](uint8_t v) { return static_cast<uint8_t>(255 - v); };
    Scale(x, y, width, height, picture, [=](int16_t px, int16_t py, const uint8_t *rgba) {
        Graphics_SetColor(invert(rgba[0]), invert(rgba[1]), invert(rgba[2]), rgba[3]);
        Graphics_PutPixel(px, py);
    });
}

static void PutFrom(int16_t x, int16_t y, const Picture &picture, int64_t offset, uint32_t key)
{
    if (picture.Pixels && offset >= 0 && offset <= BufferBytes(picture) - 4)
        PutUnlessKey(x, y, picture.Pixels + offset, key);
}

void Picture_PutPixel(int16_t x, int16_t y, const Picture *picture, uint32_t offset)
{
    PutFrom(x, y, *picture, offset, KeyColour());
}

void Picture_Line(int16_t x1, int16_t y1, int16_t x2, int16_t y2, const Picture *picture,
                  uint32_t offset, float step)
{
    const uint32_t key = KeyColour();
    float t = 0;
    Graphics_WalkLine(x1, y1, x2, y2, [&](int16_t x, int16_t y) {
        PutFrom(x, y, *picture, offset + WholePixels(t) * 4, key);
        t += step;
    });
}

// The points of a line, without the last one.
static std::vector<GRAPHICS_POINT> PointsOfLine(GRAPHICS_POINT from, GRAPHICS_POINT to)
{
    std::vector<GRAPHICS_POINT> points;
    Graphics_WalkLine(from.X, from.Y, to.X, to.Y, [&](int16_t x, int16_t y) {
        points.push_back({x, y});
    });
    return points;
}

// Number of points minus one in 16 bits, as the line functions return it: 65535 for none.
static uint16_t Steps(const std::vector<GRAPHICS_POINT> &points)
{
    return static_cast<uint16_t>(points.size() - 1);
}

uint16_t Picture_GetLineXY(int16_t x1, int16_t y1, int16_t x2, int16_t y2, uint16_t *xs,
                           uint16_t *ys)
{
    const auto points = PointsOfLine({x1, y1}, {x2, y2});
    for (size_t i = 0; i < points.size(); i++) {
        xs[i] = static_cast<uint16_t>(points[i].X);
        ys[i] = static_cast<uint16_t>(points[i].Y);
    }
    return Steps(points);
}

// Single precision throughout: the whole degree at which a corner is found may depend on it.
static float RotationRadians(float degrees)
{
    return degrees * 3.1415927f / 180;
}

// Corners of a rotated area with half sides a and b, relative to its middle, anticlockwise from the
// top right (y upwards). A corner is found where the circumscribed circle is a units, plus or minus
// one, to the side of the middle; a corner that is not found stays in the middle.
static std::array<GRAPHICS_POINT, 4> RotationCorners(int a, int b, float angle)
{
    std::array<GRAPHICS_POINT, 4> corners{};
    const double r = std::sqrt(a * a + b * b);
    int found = 0;
    for (int k = 0; k < 360 && found < 4; k++) {
        const auto degrees = static_cast<float>(k);
        const double c = std::fabs(r * std::cos(static_cast<double>(RotationRadians(degrees))));
        if (c <= a - 1 || c >= a + 1 || found * 90 >= k)  // at most one corner per quarter turn
            continue;
        const double u = RotationRadians(degrees + angle);
        corners[static_cast<size_t>(found++)] = {
            To16(static_cast<int>(std::lround(r * std::cos(u)))),
            To16(static_cast<int>(std::lround(r * std::sin(u))))};
    }
    return corners;
}

void Picture_Rotate(int16_t x, int16_t y, int16_t width, int16_t height, float angle,
                    const Picture &picture)
{
    if (!picture.Pixels || !std::isfinite(angle))
        return;
    const int a = width / 2, b = height / 2;
    const int cx = x + a, cy = To16(y - picture.Height) + b;
    std::array<GRAPHICS_POINT, 4> corners = RotationCorners(a, b, -angle);
    for (GRAPHICS_POINT &corner : corners)
        corner = {To16(cx + corner.X), To16(cy + corner.Y)};

    const auto left = PointsOfLine(corners[2], corners[1]);
    const auto right = PointsOfLine(corners[3], corners[0]);
    const float hstep =
        static_cast<float>(picture.Width) / Steps(PointsOfLine(corners[2], corners[3]));
    const float vstep = static_cast<float>(picture.Height) / Steps(left);
    // On purpose: the last point of the right edge gets no row.
    const int rows = Steps(right);
    const size_t drawable = std::min({left.size(), right.size(), static_cast<size_t>(rows)});
    for (size_t i = 0; i < drawable; i++) {
        // On purpose: rows start at multiples of the width, not of the buffer's width.
        const int64_t row = WholePixels(static_cast<float>(rows - 1 - static_cast<int>(i)) * vstep);
        const int64_t offset = row * picture.Width * 4;
        if (offset < 0 || offset >= BufferBytes(picture))
            continue;
        for (const int shift : {0, 1})  // the second line closes the gaps between rows
            Picture_Line(To16(left[i].X + shift), left[i].Y, To16(right[i].X + shift), right[i].Y,
                         &picture, static_cast<uint32_t>(offset), hstep);
    }
}
