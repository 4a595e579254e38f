// Converts samples of TIFF pictures to R G B A pixels: unpacking of 1 to 16 bits, grey, palette,
// RGB, CMYK and YCbCr (TIFF 6.0, sections 4 to 6, 16, 18, 20, 21). Uses TIF_Header.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Parameters of YCbCr: the weights of red, green and blue in Y; and the reference values, black
/// and white for Y, zero and maximum for Cb and Cr.
struct TIF_YCBCR {
    std::array<double, 3> Luma = {0.299, 0.587, 0.114};
    std::array<double, 6> Reference = {0, 255, 128, 255, 128, 255};
};

/// A row's samples: a pointer for each, and the step from pixel to pixel.
struct TIF_ROW {
    std::array<const uint8_t *, 5> Samples;
    size_t Step;
};

/// What painting needs besides the samples.
struct TIF_PAINT {
    uint16_t Photometric;
    /// R G B A by sample, for grey and palette pictures; grey samples are scaled to 8 bits first.
    std::vector<std::array<uint8_t, 4>> Palette;
    /// The samples in each byte, scaled to 8 bits, if they have 1, 2 or 4.
    std::array<std::array<uint8_t, 8>, 256> Digits;
    std::array<int32_t, 256> Y, CrToR, CrToG, CbToG, CbToB;  // 16 bits of fraction
    std::array<std::vector<uint8_t>, 5> Scratch;             // a row of each plane's samples
};

/// Prepares what depends on the header alone; `ycbcr` is used only if Photometric is YCbCr.
void TIF_InitPaint(TIF_PAINT &paint, uint16_t photometric, const TIF_YCBCR &ycbcr);

/// The first `count` samples of a plane's row, scaled to 8 bits in the plane's scratch; 8-bit
/// samples are returned in place.
const uint8_t *TIF_Unpack(TIF_PAINT &paint, size_t plane, std::span<const uint8_t> row,
                          size_t count);

/// A row of `count` pixels, three samples each, unpacked into the scratch from data units: several
/// Y samples, one Cb, one Cr. `line`: row within the units.
const uint8_t *TIF_UnpackUnits(TIF_PAINT &paint, std::span<const uint8_t> units, size_t line,
                               size_t count);

/// Paints `count` pixels.
void TIF_PaintRow(const TIF_PAINT &paint, const TIF_ROW &in, size_t count, uint8_t *out);

/// Divides the colours by alpha.
void TIF_DivideByAlpha(size_t count, uint8_t *out);
