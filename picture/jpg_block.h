// JPEG's blocks of 8 x 8 coefficients: dequantisation and the inverse DCT. ITU-T T.81, A.3.3.
#pragma once

#include <cstddef>
#include <cstdint>

/// Samples of a block with their level shift, 8 rows of `stride` bytes. `coefficients` and `scale`
/// stand column by column; a scale is the quantisation step times both factors of JPG_ScaleFactor,
/// by 8. Coefficients from index `end` (1 to 64) on in zigzag order must be 0.
void JPG_InverseDCT(const int16_t *coefficients, const float *scale, size_t end, uint8_t *samples,
                    size_t stride);
