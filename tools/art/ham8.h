// An encoder of HAM8 pictures for artwork. The framework's own encoder takes one pixel after the
// other and a grey palette; this one searches for the palette and for the codes of whole rows, so
// that edges have no fringes. The format: picture/ham68.h.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

using HAM8_RGB = std::array<uint8_t, 3>;
using HAM8_PALETTE = std::array<HAM8_RGB, 64>;

struct HAM8_IMAGE {
    uint16_t Width, Height;  // pixels, the width a multiple of 8
    HAM8_PALETTE Palette;
    std::vector<uint8_t> Codes;  // one a pixel, top row first
    uint64_t Cost;               // sum of the squared errors of all components
};

/// Codes for `pixels` (width x height of them, top row first). `rounds` is the number of palettes
/// tried after the first; the best is kept. Deterministic.
HAM8_IMAGE HAM8_Encode(std::span<const HAM8_RGB> pixels, uint16_t width, int rounds);

/// The image as a file, plain or run-length compressed, whichever is smaller.
std::vector<uint8_t> HAM8_File(const HAM8_IMAGE &image);
