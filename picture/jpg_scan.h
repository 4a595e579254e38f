// JPEG's scans: entropy decoding, dequantisation, inverse DCT. ITU-T T.81, sequential and
// progressive Huffman coding of 8-bit samples. The samples become pixels in picture/jpg_colour.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Decodes the scan that JPG_Load stands before and all that follow it.
///
/// Returns PaddedWidth x PaddedHeight pixels of 4 bytes (R G B A, alpha 255), top row first. From
/// calloc: the caller frees it. Damage keeps what stood before it and goes on behind the next
/// restart marker; what is missing is grey. Null when there is no frame or scan, for other than 1
/// or 3 components of 8 bits, sampling factors outside 1 to 4 or above the first component's,
/// pictures whose blocks could not be coded in 64 times the file, and more pixels than
/// Picture_MaxBytes. Peak memory beside the file: 11 bytes a pixel for progressive files, 4 for
/// those with one scan, 7 for others.
uint8_t *JPG_Decoding();

/// The samples of one component, in whole blocks; perhaps only those of some rows at a time.
struct JPG_PLANE {
    std::vector<uint8_t> Samples;
    size_t Stride;        // bytes from row to row
    size_t Rows;          // that Samples holds: row y stands at y % Rows
    size_t Width, Height; // of the samples that count
    size_t H, V;          // sampling factors
};

/// Inverse DCT of a block and its level shift. ITU-T T.81, A.3.3. `coefficients` and `scale` stand
/// column by column; a scale is the quantisation step times both factors of JPG_ScaleFactor, by 8.
void JPG_InverseDCT(const int16_t *coefficients, const float *scale, uint8_t *samples,
                    size_t stride);
