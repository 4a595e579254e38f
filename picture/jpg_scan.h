// JPEG's scans: entropy decoding of sequential and progressive Huffman coding, ITU-T T.81, annexes
// F and G. What they hold becomes samples in picture/jpg_block.h and pixels in
// picture/jpg_colour.h.
#pragma once

#include <cstdint>

/// Decodes the scan that JPG_Load stands before and all that follow it.
///
/// Returns PaddedWidth x PaddedHeight pixels of 4 bytes (R G B A, alpha 255), top row first. From
/// malloc: the caller frees it. Damage keeps what stood before it and goes on behind the next
/// restart marker; what is missing is grey. Null when there is no frame or scan, for other than 1
/// or 3 components of 8 bits, sampling factors outside 1 to 4 or above the first component's,
/// padded sides above 65535, pictures whose blocks could not be coded in 64 times the file, and
/// more pixels than Picture_MaxBytes. Peak memory beside the file and a copy of its longest
/// restart interval: 11 bytes a pixel for files of several scans, 5 for others.
uint8_t *JPG_Decoding();
