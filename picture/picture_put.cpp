// Output of pictures through the raster layer.
#include <cmath>
#include <numbers>

#include "picture/graphics.h"
#include "picture/picture.h"

static int16_t To16(int value)
{
    return static_cast<int16_t>(value);
}

// Draws a pixel in its own colour unless its alpha is 0.
static void PutVisible(int16_t x, int16_t y, const uint8_t *rgba)
{
    if (rgba[3] == 0)
        return;
    Graphics_SetColor(rgba[0], rgba[1], rgba[2], rgba[3]);
    Graphics_PutPixel(x, y);
}

static void PutAll(int16_t x, int16_t y, const uint8_t *pixels, int width, int height,
                   size_t stride)
{
    if (!pixels)
        return;
    for (int r = 0; r < height; r++)
        for (int c = 0; c < width; c++)
            PutVisible(To16(x + c), To16(y - r),
                       pixels + (static_cast<size_t>(r) * stride + static_cast<size_t>(c)) * 4);
}

void Picture_Put(int16_t x, int16_t y, const Picture &picture)
{
    PutAll(x, y, picture.Pixels, picture.Width, picture.Height, picture.BufferWidth);
}

void Picture_PutThumbnail(int16_t x, int16_t y, const Picture &picture)
{
    PutAll(x, y, picture.ThumbPixels, picture.ThumbWidth, picture.ThumbHeight,
           picture.ThumbBufferWidth);
}

void Picture_PutRotate(int16_t x, int16_t y, double angle, int16_t newWidth, int16_t newHeight,
                       const Picture &picture)
{
    if (!picture.Pixels || picture.Width == 0 || picture.Height == 0 || !std::isfinite(angle))
        return;
    const double a = (angle + 180) * std::numbers::pi / 180, cosine = std::cos(a),
                 sine = std::sin(a);
    const float sx = static_cast<float>(picture.Width) / newWidth;
    const float sy = static_cast<float>(picture.Height) / newHeight;
    for (int i = 0; i < newHeight; i++)
        for (int j = 0; j < newWidth; j++) {
            const int dx = newWidth / 2 - j, dy = newHeight / 2 - i;
            const int rx = static_cast<int>(dx * cosine - dy * sine);
            const int ry = static_cast<int>(dx * sine + dy * cosine);
            const size_t column = static_cast<size_t>(sx * static_cast<float>(j)) % picture.Width;
            const size_t row = static_cast<size_t>(sy * static_cast<float>(i)) % picture.Height;
            PutVisible(To16(x + rx), To16(y - ry),
                       picture.Pixels + (row * picture.BufferWidth + column) * 4);
        }
}
