// JPEG's components as pixels: chroma brought to full size, YCbCr to RGB (JFIF 1.02).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// The samples of one component in whole blocks, of which the last two rows of MCUs are kept: row y
/// stands at y % Rows.
struct JPG_PLANE {
    size_t Width, Height;          // of the samples that count; others pad
    size_t H, V, FullH, FullV;     // sampling factors, its own and the first component's
    size_t Stride, Rows;           // of Samples
    std::vector<uint8_t> Samples;  // first of all 128
    // For bringing a row to the pixels' width: two rows mixed by their nearness, with room at both
    // ends; for a width not 1, 2 or 4 times its own each pixel's place among those and its nearness
    // to the next, in parts of 256; the result, two pixels a number.
    std::vector<uint16_t> Blend, Places, Nearness, Stretched;

    uint8_t *Row(size_t y)
    {
        return Samples.data() + y % Rows * Stride;
    }
};

/// A component of `factors` (horizontal * 16 + vertical) in a picture of these pixels, whose first
/// component has the factors `full`.
JPG_PLANE JPG_MakePlane(uint8_t factors, uint8_t full, uint32_t width, uint32_t height);

/// The rows of pixels that can be made once `rows` of them have their samples; those of chroma may
/// lie between two, of which the lower one is not there yet.
size_t JPG_RowsReady(const JPG_PLANE &first, size_t rows);

/// Makes pixel rows from..to of planes of one or three components, R G B A with alpha 255. In
/// between samples' centres chroma goes in a straight line; outside the outermost it stays.
void JPG_MakeRows(std::span<JPG_PLANE *const> planes, size_t from, size_t to, uint8_t *pixels);
