#include "picture/graphics.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "picture/picture.h"
#include "platform/system.h"

constinit thread_local uint8_t Graphics_Mode = 0;

namespace
{
struct GRAPHICS_STATE {
    const Picture *Target;
    std::array<uint8_t, 4> Colour;
};

struct GRAPHICS_RUN {
    int32_t From, To;  // To is one past the last; empty unless To > From
};
}  // namespace

// Accessed for every point, and small: initial-exec storage, which a shared library reaches without
// a call.
[[gnu::tls_model("initial-exec")]] static constinit thread_local GRAPHICS_STATE graphicsState{};

void Graphics_SetMode(uint8_t mode)
{
    Graphics_Mode = mode;
}

void Graphics_SetTarget(const Picture *target)
{
    graphicsState.Target = target;
}

// The four bytes of a point of the target; null outside.
static uint8_t *PixelAt(int16_t x, int16_t y)
{
    const Picture *t = graphicsState.Target;
    if (!t || !t->Pixels || x < 0 || y < 0 || x >= t->Width || y >= t->Height)
        return nullptr;
    return t->Pixels + (static_cast<size_t>(y) * t->BufferWidth + static_cast<size_t>(x)) * 4;
}

void Graphics_SetColor(uint8_t r, uint8_t g, uint8_t b, uint8_t a)
{
    graphicsState.Colour = {r, g, b, a};
}

void Graphics_PutPixel(int16_t x, int16_t y)
{
    if (uint8_t *pixel = PixelAt(x, y))
        std::memcpy(pixel, graphicsState.Colour.data(), 4);
}

// The visible parts of `count` coordinates from `first` on, wrapped to 16 bits, in a target of
// `limit` points: one run up to where the coordinates wrap, and one from 0 after that.
static std::array<GRAPHICS_RUN, 2> VisibleRuns(int16_t first, int32_t count, int32_t limit)
{
    constexpr int32_t lap = 0x10000, shown = 0x8000;  // the upper half of a lap is negative
    const int32_t from = static_cast<uint16_t>(first), to = from + std::min(count, lap);
    limit = std::min(limit, shown);
    return {{{from, std::min(to, limit)}, {0, std::min(to - lap, limit)}}};
}

void Graphics_PutBlock(int16_t x, int16_t y, int32_t width, int32_t height)
{
    if (!PixelAt(0, 0))
        return;
    const auto colour = graphicsState.Colour;  // a copy, so that no pixel may alias it
    const auto across = VisibleRuns(x, width, graphicsState.Target->Width);
    for (const GRAPHICS_RUN &down : VisibleRuns(y, height, graphicsState.Target->Height))
        for (int32_t row = down.From; row < down.To; row++) {
            uint8_t *const pixels = PixelAt(0, static_cast<int16_t>(row));
            for (const GRAPHICS_RUN &run : across)
                for (int32_t column = run.From; column < run.To; column++)
                    std::memcpy(pixels + column * 4, colour.data(), colour.size());
        }
}

uint32_t Graphics_GetPixel(int16_t x, int16_t y)
{
    const uint8_t *p = PixelAt(x, y);
    return p ? System_MakeUDWord(p[0], p[1], p[2], p[3]) : 0;
}

uint32_t Graphics_GetRGBPixel(int16_t x, int16_t y)
{
    return Graphics_GetPixel(x, y) & 0xFFFFFF;
}

void Graphics_Line(int16_t x1, int16_t y1, int16_t x2, int16_t y2)
{
    if (Graphics_Mode != 1)
        return;
    const GRAPHICS_POINT end = Graphics_WalkLine(x1, y1, x2, y2, Graphics_PutPixel);
    Graphics_PutPixel(end.X, end.Y);
}

void Graphics_Rectangle(int16_t x1, int16_t y1, int16_t x2, int16_t y2)
{
    Graphics_Line(x1, y1, x2, y1);
    Graphics_Line(x2, y1, x2, y2);
    Graphics_Line(x2, y2, x1, y2);
    Graphics_Line(x1, y2, x1, y1);
}

// Draws the four points mirrored about both axes through the centre, wrapped to 16 bits.
static void PlotMirrored(int32_t cx, int32_t cy, int32_t x, int32_t y)
{
    for (const int32_t px : {cx + x, cx - x})
        for (const int32_t py : {cy + y, cy - y})
            Graphics_PutPixel(static_cast<int16_t>(px), static_cast<int16_t>(py));
}

void Graphics_Circle(int16_t cx, int16_t cy, int16_t r)
{
    if (Graphics_Mode != 1)
        return;
    int32_t a = r, x = r, y = 0;
    while (x > y) {
        PlotMirrored(cx, cy, x, y);
        PlotMirrored(cx, cy, y, x);
        y++;
        a -= y;
        if (a < 0) {
            x--;
            a += x;
        }
    }
}

void Graphics_Ellipse(int16_t cx, int16_t cy, int16_t rx, int16_t ry)
{
    if (Graphics_Mode != 1)
        return;
    // 64 bits: 32 bits would overflow for radii above about 1300.
    const int64_t A = int64_t{rx} * rx, B = int64_t{ry} * ry;
    int64_t x = 0, y = ry;
    const auto plot = [&] {
        PlotMirrored(cx, cy, static_cast<int32_t>(x), static_cast<int32_t>(y));
    };
    // Midpoint algorithm: first the part flatter than 45 degrees, then the steeper part.
    int64_t d = (ry - A) * ry + A / 4;
    plot();
    while (A * y > B * (x + 1)) {
        const bool down = d >= 0;
        d += B * (2 * x + 3) + (down ? A * (2 - 2 * y) : 0);
        y -= down;
        x++;
        plot();
    }
    d = B * (x + 1) * (x + 1) + A * (y - 1) * (y - 1) - A * B;
    while (y >= 1) {
        const bool right = d < 0;
        d += A * (3 - 2 * y) + (right ? B * (2 * x + 2) : 0);
        x += right;
        y--;
        plot();
    }
}

void Graphics_Init() {}

void Graphics_Draw() {}

void Graphics_SwapBuffers() {}

void Graphics_Destroy() {}

void Graphics_Move(int16_t, int16_t) {}

void Graphics_TextOutXY(int16_t, int16_t, const char *) {}

void Graphics_Arc(int16_t, int16_t, int16_t, int16_t, int16_t) {}

void Graphics_FillRectangle(int16_t, int16_t, int16_t, int16_t) {}

void Graphics_FillCircle(int16_t, int16_t, int16_t) {}

void Graphics_FillEllipse(int16_t, int16_t, int16_t, int16_t) {}

void Graphics_FillArc(int16_t, int16_t, int16_t, int16_t, int16_t) {}
