// BMP, the bitmap files of Windows: 1, 4 and 8 bits with a palette, 16, 24 and 32 bits, run-length
// and bit-field forms. Row padding, the order of 32-bit pixels and the run-length escapes follow
// rules of this decoder's own, told beside them in the source; files that keep to them (widths that
// are multiples of 8, say) decode as everywhere.
#pragma once

#include <array>
#include <cstdint>

#include "extra/bytes.h"

struct BMP_HEADER {
    uint32_t DataOffset;                              // of the pixels
    uint32_t PaletteOffset;                           // of the colour table, or of the masks
    uint16_t Width, Height;                           // pixels
    uint32_t OutputSize;                              // bytes: Width x Height x 4
    uint16_t BitsPerPixel;                            // 1, 4, 8, 16, 24 or 32
    uint16_t Compression;                             // 0 none, 1 RLE8, 2 RLE4, 3 bit fields
    std::array<std::array<uint8_t, 4>, 256> Palette;  // R G B A; filled while decoding
    uint32_t RedMask, GreenMask, BlueMask;            // of bit fields; filled while decoding
    bool TopDown;  // the file's height is negative: its first row is the top one
};

/// The file being decoded, one at a time. The header stays after BMP_UnLoad.
extern constinit thread_local BMP_HEADER BMP_Header;
extern constinit thread_local BYTES_BUFFER
    BMP_File;  // the image, runs expanded to as many pixels as there are

/// Reads a file and expands its runs. BMP_File stays empty when the file cannot be read, its depth
/// or compression is none of the above, its size is 0 or passes Picture_MaxBytes, or when it
/// holds less than an eighth of its pixels, bytes of runs being taken for 128 each.
void BMP_Load(const char *path);

/// Width x Height RGBA pixels, the top row first. Only 32-bit pixels without bit fields have an
/// alpha of their own; pixels that the file lacks are 0. From malloc: the caller frees it. Null
/// when nothing was loaded. The peak of memory is 5 bytes a pixel and twice the file.
uint8_t *BMP_Decoding();

/// Length of the mask's lowest run of ones; 0 for a mask of 0.
uint8_t BMP_BitCounter(uint32_t mask);

/// Frees the file image.
void BMP_UnLoad();

/// Copies the header to `out` and returns it.
BMP_HEADER *BMP_GetHeader(BMP_HEADER *out);
