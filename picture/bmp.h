// BMP, the bitmap files of Windows and OS/2: 1, 2, 4 and 8 bits with a palette, 16, 24 and 32 bits,
// run-length coding and bit fields.
//
// The framework's rules and the format's (Picture_Rules, Microsoft's "Bitmap Storage") differ in:
//   headers      only the first 40 bytes count; every size from 12 on, masks of V2 to V5 with alpha
//   depths       1, 4, 8, 16, 24, 32 bits; also 2 bits
//   rows         padded by the framework's own rule; padded to 4 bytes
//   runs         ends of lines and deltas do not move the write position; they do
//   masks        adjacent in 16 bits, from the highest byte on in 32; in any position
//   32 bits      bytes are alpha, blue, green, red; blue, green, red, unused
#pragma once

#include <array>
#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct BMP_HEADER {
    uint32_t DataOffset;     // of the pixels
    uint32_t PaletteOffset;  // of the colour table, or of the masks
    uint16_t Width, Height;  // pixels
    uint32_t OutputSize;     // bytes: Width x Height x 4
    uint16_t BitsPerPixel;   // 1, 4, 8, 16, 24 or 32; by the format's rules also 2
    uint16_t Compression;    // 0 none, 1 RLE8, 2 RLE4, 3 bit fields
    std::array<std::array<uint8_t, 4>, 256> Palette;  // R G B A; filled while decoding
    uint32_t RedMask, GreenMask, BlueMask;            // of bit fields; filled while decoding
    bool TopDown;  // the file's height is negative: its first row is the top row
    // only by the format's rules
    uint8_t Rules;          // PICTURE_RULES of the load
    uint32_t HeaderSize;    // bytes: 12 is OS/2's first
    uint16_t PaletteCount;  // entries in the file
    uint8_t PaletteEntry;   // bytes: 3 in OS/2 1.x, sometimes in 2.x, else 4
    uint32_t AlphaMask;     // 0: opaque
};

/// The file being decoded, one at a time per thread. The header stays after BMP_UnLoad.
extern constinit thread_local BMP_HEADER BMP_Header;
extern constinit thread_local BYTES_BUFFER
    BMP_File;  // the image, runs expanded to at most Width x Height pixels

/// Reads a file and expands its runs. BMP_File stays empty, with a reason, if the file cannot be
/// read, its depth or compression is not supported, its size is 0 or exceeds Picture_MaxBytes, or
/// its data cannot hold an eighth of its pixels (a byte of runs counts as 128 pixels).
void BMP_Load(const char *path);

/// Width x Height RGBA pixels, the top row first; missing pixels are 0. Framework: only 32-bit
/// pixels without bit fields have alpha. Format: only pixels with an alpha mask have it, and it is
/// ignored if it is 0 everywhere. From malloc: the caller frees it. Null if nothing was loaded.
/// Peak memory: 5 bytes a pixel and twice the file.
uint8_t *BMP_Decoding();

/// Length of the mask's lowest run of ones; 0 for a mask of 0.
uint8_t BMP_BitCounter(uint32_t mask);

/// Frees the file image.
void BMP_UnLoad();

/// Copies the header to `out` and returns it.
BMP_HEADER *BMP_GetHeader(BMP_HEADER *out);

#pragma GCC visibility pop
