// JPEG's blocks of 8 x 8 coefficients: dequantisation and the inverse DCT. ITU-T T.81, A.3.3.
#pragma once

#include <cstddef>
#include <cstdint>

/// Writes the samples of a block, level-shifted, as 8 rows of `stride` bytes. `coefficients` and
/// `scale` are in column order; a scale is the quantisation step times both factors of
/// JPG_ScaleFactor, divided by 8. Coefficients from zigzag index `end` (1 to 64) on must be 0.
void JPG_InverseDCT(const int16_t *coefficients, const float *scale, size_t end, uint8_t *samples,
                    size_t stride);
