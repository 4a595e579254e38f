// TIFF pictures (TIFF 6.0, Adobe's technical notes 1 and 2 on it, and BigTIFF): of integer samples,
// grey in both senses, palette, RGB, CMYK or YCbCr, with or without alpha, chunky or planar, in
// strips or tiles. Compressions are in picture/tif_packing.h, colours in picture/tif_colour.h.
//
// Where the rules differ:
//
//                   the framework's (PICTURE_RULES_FRAMEWORK)   TIFF's own (PICTURE_RULES_FORMAT)
//   magic number    any                                         42, or 43 for BigTIFF
//   types of values 1 to 5, others have no values               1 to 13 and 16 to 18
//   bits a sample   8; an uneven list counts as 8               1 to 16, all equal; 1 if missing
//   colours         grey, palette, RGB; RGB if missing          also CMYK, YCbCr, masks; grey if
//                                                               missing and of less than 3 samples
//   without strips  RGB follows the file's 8-byte header        nothing to decode
//   strips' bytes   as stated                                   0 means the rest of the file
//   tiles           no                                          yes
//   compressions    none, PackBits, LZW, Deflate                also CCITT, JPEG and old-style LZW
//   short palette   black where it ends                         its indexes are greys
//   extra sample    alpha if stated, or if nothing is;          alpha
//                   never in palettes
//   alpha that is   divided out of the colours                  colours stay as stored, as in other
//   multiplied in                                               decoders
//   page            the first                                   TIF_Page
//
// Not supported by either: floating point, more than 16 bits, and the entries of the tables of
// compressions and colours that have no decoder.
#pragma once

#include <cstdint>

#include "picture/tif_directory.h"

#pragma GCC visibility push(default)

/// Reads a file and its directories by the rules of Picture_Rules. TIF_File stays empty, with a
/// reason, if the file cannot be read or is not of a kind listed above, if its size is 0 or exceeds
/// Picture_MaxBytes, if its strips cannot hold an eighth of its pixels, or if they overlap so much
/// that together they exceed eight times the file.
void TIF_Load(const char *path);

/// Width x Height RGBA pixels, the top row first, alpha not multiplied in except as stated above;
/// pixels that the strips lack are 0, and leave a reason. From malloc: the caller frees it. Null if
/// nothing was loaded. Peak memory: three times the buffer's size (one and a quarter if the strips
/// are short) and the file, within what Picture_Believes allows a file.
uint8_t *TIF_Decoding();

/// Frees the file image.
void TIF_UnLoad();

/// Copies the header to `out` and returns it.
TIF_HEADER *TIF_GetHeader(TIF_HEADER *out);

#pragma GCC visibility pop
