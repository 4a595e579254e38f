// JPEG's scans: entropy decoding of sequential and progressive Huffman coding, ITU-T T.81, annexes
// F and G. Coefficients become samples in picture/jpg_block.h and pixels in picture/jpg_colour.h.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "picture/jpg_colour.h"

/// Decodes the scan at which the marker walk (picture/jpg_markers.h) stopped and all that follow
/// it: PaddedWidth x PaddedHeight pixels of JPG_PixelBytes bytes, top row first, from malloc. Null,
/// with a reason, if nothing can be decoded. May throw std::bad_alloc.
uint8_t *JPG_DecodeScans(JPG_COLOURS colours);
