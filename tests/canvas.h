// A drawing target that lives for a scope.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "picture/graphics.h"
#include "picture/picture.h"

struct CANVAS {
    std::vector<uint8_t> Pixels;
    Picture Target{};
    CANVAS(uint16_t width, uint16_t height) : Pixels(size_t{width} * height * 4)
    {
        Target.Width = Target.BufferWidth = width;
        Target.Height = Target.BufferHeight = height;
        Target.Pixels = Pixels.data();
        Graphics_SetTarget(&Target);
        Graphics_SetColor(1, 2, 3, 4);
    }
    ~CANVAS()
    {
        Graphics_SetTarget(nullptr);
    }
    // Points of the first colour as '#', others by their red; trailing dots and slashes are
    // dropped.
    std::string Drawn() const
    {
        std::string text;
        for (int16_t y = 0; y < Target.Height; y++) {
            for (int16_t x = 0; x < Target.Width; x++) {
                const uint32_t point = Graphics_GetPixel(x, y);
                text += point == 0x04030201 ? '#' : point == 0 ? '.' : static_cast<char>(point);
            }
            text = text.substr(0, text.find_last_not_of('.') + 1) + '/';
        }
        return text.substr(0, text.find_last_not_of('/') + 1);
    }
};

// What is drawn on a fresh target.
inline std::string Drawn(uint16_t width, uint16_t height, const std::function<void()> &draw)
{
    const CANVAS canvas(width, height);
    draw();
    return canvas.Drawn();
}
