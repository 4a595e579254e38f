// JPEG's components as pixels: chroma brought to full size, YCbCr to RGB (JFIF 1.02).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// What a picture's components are.
enum JPG_COLOURS : uint8_t {
    JPG_COLOURS_NONE,    // nothing that can be shown
    JPG_COLOURS_STORED,  // given as they are, interleaved
    JPG_COLOURS_GREY,    // the first one; others do not count
    JPG_COLOURS_YCBCR,
    JPG_COLOURS_RGB,
    JPG_COLOURS_CMYK,  // as Adobe stores them: 255 is no ink
    JPG_COLOURS_YCCK,  // the same with C, M and Y as YCbCr of their inverses
};

/// Bytes that a pixel of `components` components becomes: R G B A, or what is stored.
constexpr size_t JPG_PixelBytes(JPG_COLOURS colours, size_t components)
{
    return colours == JPG_COLOURS_STORED ? components : 4;
}

/// The samples of one component in whole blocks, of which the last two rows of MCUs are kept: row y
/// stands at y % Rows.
struct JPG_PLANE {
    size_t Width, Height;          // of the samples that count; others pad
    size_t H, V, FullH, FullV;     // sampling factors, its own and an MCU's
    size_t Stride, Rows;           // of Samples
    bool Repeats;                  // no interpolation
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

/// How samples become as many as there are pixels.
enum JPG_STRETCH : uint8_t {
    JPG_STRETCH_LINEAR,  // interpolated between their centres; beyond the outermost they stay
    // Repeated where they are a third or a quarter of the pixels, or 2 a row at the most; else as
    // above. The usual decoders do so.
    JPG_STRETCH_USUAL,
};

/// A component of `factors` (horizontal * 16 + vertical) in a picture of these pixels, whose MCUs
/// have the factors `full`.
JPG_PLANE JPG_MakePlane(uint8_t factors, uint8_t full, uint32_t width, uint32_t height,
                        JPG_STRETCH stretch);

/// The rows of pixels that can be made once `rows` of them have their samples; those of chroma may
/// lie between two, of which the lower one is not there yet.
size_t JPG_RowsReady(const JPG_PLANE &first, size_t rows);

/// Makes pixel rows from..to of a picture's planes, of JPG_PixelBytes bytes a pixel; alpha is 255.
void JPG_MakeRows(std::span<JPG_PLANE *const> planes, JPG_COLOURS colours, size_t from, size_t to,
                  uint8_t *pixels);
