// The 2D raster layer: points, lines, circles and ellipses in the current colour. Points are drawn
// into a picture in memory; before a target is set they are discarded. Coordinates are signed
// 16-bit: (x, y) is column x of row y; points outside the target are skipped. Mode, target and
// colour are per thread.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

struct Picture;

/// Lines, rectangles, circles and ellipses are drawn only while this is 1.
extern constinit thread_local uint8_t Graphics_Mode;

void Graphics_SetMode(uint8_t mode);

/// Sets the target, a picture of the caller's that must outlive its use here; null: none.
void Graphics_SetTarget(const Picture *target);

void Graphics_SetColor(uint8_t r, uint8_t g, uint8_t b, uint8_t a);
void Graphics_PutPixel(int16_t x, int16_t y);

/// Draws a block of width x height points with its top left at (x, y); coordinates wrap at 16 bits.
/// Nothing if a side is below 1.
void Graphics_PutBlock(int16_t x, int16_t y, int32_t width, int32_t height);

/// The point as R | G << 8 | B << 16 | A << 24, or without A. 0 outside the target, or without one.
uint32_t Graphics_GetPixel(int16_t x, int16_t y);
uint32_t Graphics_GetRGBPixel(int16_t x, int16_t y);

/// Both ends of a line are drawn. A distance beyond 16 bits wraps.
void Graphics_Line(int16_t x1, int16_t y1, int16_t x2, int16_t y2);
void Graphics_Rectangle(int16_t x1, int16_t y1, int16_t x2, int16_t y2);

/// Outlines centred at (cx, cy). A circle needs a radius of at least 1 and omits its diagonal
/// points, on purpose. Ellipses are computed in 64 bits, so large radii stay on the curve.
void Graphics_Circle(int16_t cx, int16_t cy, int16_t r);
void Graphics_Ellipse(int16_t cx, int16_t cy, int16_t rx, int16_t ry);

struct GRAPHICS_POINT {
    int16_t X, Y;
};

/// Calls point(x, y) for every point of the line except the last, which it returns. Bresenham's
/// algorithm in 16-bit arithmetic: a distance beyond 16 bits wraps. At most 32768 calls.
template <typename Point>
GRAPHICS_POINT Graphics_WalkLine(int16_t x1, int16_t y1, int16_t x2, int16_t y2, Point point)
{
    const auto wrap = [](int v) { return static_cast<int16_t>(v); };
    const int16_t dx = wrap(x2 - x1), dy = wrap(y2 - y1);
    const int16_t sx = dx < 0 ? -1 : 1, sy = dy < 0 ? -1 : 1;
    const int16_t width = wrap(dx * sx), height = wrap(dy * sy);
    const bool steep = width <= height;
    const int16_t longer = steep ? height : width, shorter = steep ? width : height;
    int16_t x = x1, y = y1, error = wrap(2 * shorter - longer);
    while (steep ? y != y2 : x != x2) {
        point(x, y);
        const bool both = error > 0;
        error = wrap(error + (both ? 2 * (shorter - longer) : 2 * shorter));
        if (both || !steep)
            x = wrap(x + sx);
        if (both || steep)
            y = wrap(y + sy);
    }
    return {x, y};
}

// No effect; kept for the layer's interface.
void Graphics_Init();
void Graphics_Draw();
void Graphics_SwapBuffers();
void Graphics_Destroy();
void Graphics_Move(int16_t x, int16_t y);
void Graphics_TextOutXY(int16_t x, int16_t y, const char *text);
void Graphics_Arc(int16_t cx, int16_t cy, int16_t r, int16_t from, int16_t to);
void Graphics_FillRectangle(int16_t x1, int16_t y1, int16_t x2, int16_t y2);
void Graphics_FillCircle(int16_t cx, int16_t cy, int16_t r);
void Graphics_FillEllipse(int16_t cx, int16_t cy, int16_t rx, int16_t ry);
void Graphics_FillArc(int16_t cx, int16_t cy, int16_t r, int16_t from, int16_t to);

#pragma GCC visibility pop
