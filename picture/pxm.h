// PNM pictures (portable anymaps, P1 to P6; by the format's rules P7, PAM, too): bitmaps, grey and
// colour, as text or as bytes.
//
// The framework's rules and the format's (Picture_Rules, the Netpbm formats' manual pages) differ
// in:
//   header    one comment line after the magic, then before numbers; comments and blanks anywhere
//   samples   of 8 bits, larger ones keep their low byte, truncated; of 8 or 16, any maximum,
//   rounded bitmaps   rows of Width / 8 bytes; padded up to bytes
#pragma once

#include <cstddef>
#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct PXM_HEADER {
    uint8_t Type;            // the digit of the magic
    uint16_t Width, Height;  // pixels
    uint16_t Maximum;        // sample that is full brightness; 0 for bitmaps
    uint32_t Size;           // Width x Height x 4
    uint8_t BitsPerPixel;    // 1, 8 or 24 (PAM: up to 32); 0 for a type that is not known
    uint8_t Rules;           // PICTURE_RULES of the load
    uint8_t Depth;           // samples a pixel; 0 for bitmaps
};

/// The file being decoded, one at a time. The header stays after PXM_UnLoad.
extern constinit thread_local PXM_HEADER PXM_Header;
extern constinit thread_local BYTES_BUFFER PXM_File;
extern constinit thread_local size_t PXM_Position;  // next byte to read

/// Reads a file and its header. The line behind the magic is skipped, whatever it holds, unless it
/// begins with a digit; further comment lines may stand before each number.
void PXM_Load(const char *path);

/// Width x Height RGBA pixels, opaque; those that the file lacks are 0. A sample s is
/// trunc(s / Maximum x 255), computed in single precision, its low byte. A P4 row has Width / 8
/// bytes, on purpose: the pixels of a remainder are black. The caller frees them. Null for another
/// type, for a file without its first row or an eighth of its pixels, and past Picture_MaxBytes.
/// Nothing but the file and one row of samples stands beside the pixels.
uint8_t *PXM_Decoding();

/// Frees the file image.
void PXM_UnLoad();

PXM_HEADER PXM_GetHeader();

#pragma GCC visibility pop
