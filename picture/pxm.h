// PNM pictures (portable anymaps, P1 to P6; by the format's rules also P7, PAM): bitmaps, grey and
// colour, as text or binary.
//
// The framework's rules and the format's (Picture_Rules, the Netpbm formats' manual pages) differ
// in:
//   header    one comment line after the magic, then before numbers; comments and blanks anywhere
//   samples   8 bits, low byte of larger ones, truncated; 8 or 16 bits, any maximum, rounded
//   bitmaps   rows of Width / 8 bytes; padded to whole bytes
#pragma once

#include <cstddef>
#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct PXM_HEADER {
    uint8_t Type;            // the digit of the magic
    uint16_t Width, Height;  // pixels
    uint16_t Maximum;        // sample value of full brightness; 0 for bitmaps
    uint32_t Size;           // Width x Height x 4
    uint8_t BitsPerPixel;    // 1, 8 or 24 (PAM: up to 32); 0 for an unknown type
    uint8_t Rules;           // PICTURE_RULES of the load
    uint8_t Depth;           // samples a pixel; 0 for bitmaps
};

/// The file being decoded, one at a time per thread. The header stays after PXM_UnLoad.
extern constinit thread_local PXM_HEADER PXM_Header;
extern constinit thread_local BYTES_BUFFER PXM_File;
extern constinit thread_local size_t PXM_Position;  // next byte to read

/// Reads a file and its header. The framework skips the line after the magic, whatever it holds,
/// unless it begins with a digit; comment lines may precede each number.
void PXM_Load(const char *path);

/// Width x Height RGBA pixels; missing ones are 0. By the framework's rules they are opaque, a
/// sample s gives the low byte of trunc(s / Maximum x 255), computed in single precision, and a P4
/// row has Width / 8 bytes, on purpose: the remaining pixels are black. The caller frees the
/// buffer. Null for another type, for a file without its first row or an eighth of its pixels, and
/// above Picture_MaxBytes. Memory in addition to the pixels: the file and one row of samples.
uint8_t *PXM_Decoding();

/// Frees the file image.
void PXM_UnLoad();

PXM_HEADER PXM_GetHeader();

#pragma GCC visibility pop
