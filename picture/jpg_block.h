// JPEG's blocks of 8 x 8 coefficients: dequantisation and the inverse DCT. ITU-T T.81, A.3.3.
#pragma once

#include <cstddef>
#include <cstdint>

/// Place of a coefficient in a block: two columns at a time, row by row, so that a pair of
/// neighbours fills a lane of 32 bits.
constexpr size_t JPG_PlaceOf(size_t row, size_t column)
{
    return column / 2 * 16 + row * 2 + column % 2;
}

/// The divisor of scales: 8, and 2^16 since a coefficient is taken as the upper half of a lane.
constexpr float JPG_ScaleUnit = 1 << 19;

/// Writes the samples of a block, level-shifted, as 8 rows of `stride` bytes. `coefficients` are at
/// their JPG_PlaceOf, `scale` column by column: the quantisation step times both factors of
/// JPG_ScaleFactor, divided by JPG_ScaleUnit. Coefficients from zigzag index `end` (1 to 64) on
/// must be 0.
void JPG_InverseDCT(const int16_t *coefficients, const float *scale, size_t end, uint8_t *samples,
                    size_t stride);
