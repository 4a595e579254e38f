// JPEG's components as pixels: chroma upsampling, and YCbCr to RGB (JFIF 1.02).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Meaning of a picture's components.
enum JPG_COLOURS : uint8_t {
    JPG_COLOURS_NONE,    // cannot be shown
    JPG_COLOURS_STORED,  // returned as stored, interleaved
    JPG_COLOURS_GREY,    // the first component; others are ignored
    JPG_COLOURS_YCBCR,
    JPG_COLOURS_RGB,
    JPG_COLOURS_CMYK,  // as Adobe stores them: 255 is no ink
    JPG_COLOURS_YCCK,  // the same, with the inverses of C, M and Y as YCbCr
};

/// Bytes per pixel: R G B A, or the components as stored.
constexpr size_t JPG_PixelBytes(JPG_COLOURS colours, size_t components)
{
    return colours == JPG_COLOURS_STORED ? components : 4;
}

/// The samples of one component in whole blocks. Only the last two rows of MCUs are kept: row y is
/// at y % Rows.
struct JPG_PLANE {
    size_t Width, Height;          // of the samples, without padding
    size_t H, V, FullH, FullV;     // sampling factors, its own and the MCU's
    size_t Stride, Rows;           // of Samples
    bool Repeats;                  // upsampled by repeating, not by interpolation
    std::vector<uint8_t> Samples;  // 128 at first
    // Scratch for upsampling a row: the vertical blend, with room at both ends; per pixel the
    // source index and the weight of the next sample (1/256), unless the factor is 1, 2 or 4; the
    // result, two pixels per number.
    std::vector<uint16_t> Blend, Places, Nearness, Stretched;

    uint8_t *Row(size_t y)
    {
        return Samples.data() + y % Rows * Stride;
    }
};

/// How samples are upsampled.
enum JPG_STRETCH : uint8_t {
    JPG_STRETCH_LINEAR,  // interpolated between sample centres, clamped at the edges
    // As common decoders do: factors of 3 and 4, and rows of at most 2 samples, are repeated;
    // others are interpolated.
    JPG_STRETCH_USUAL,
};

/// Makes the plane of a component with these `factors` (horizontal * 16 + vertical) in a picture of
/// width x height pixels, whose MCUs have the factors `full`.
JPG_PLANE JPG_MakePlane(uint8_t factors, uint8_t full, uint32_t width, uint32_t height,
                        JPG_STRETCH stretch);

/// Rows of pixels that can be made once `rows` rows have their samples. Interpolated rows also need
/// the next row of chroma, so the last ones have to wait.
size_t JPG_RowsReady(const JPG_PLANE &first, size_t rows);

/// Makes pixel rows from..to - 1 from a picture's planes, JPG_PixelBytes bytes a pixel; alpha is
/// 255.
void JPG_MakeRows(std::span<JPG_PLANE *const> planes, JPG_COLOURS colours, size_t from, size_t to,
                  uint8_t *pixels);
