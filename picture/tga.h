// TGA pictures (Targa): true colour of 24 and 32 bits, plain or run-length coded. The pixels are
// taken to start at byte 18: detection lets only files without image ID and colour map through.
#pragma once

#include <cstdint>

#include "extra/bytes.h"

/// What TGA_GetHeader gives.
struct TGA_SIZE {
    uint32_t Width, Height;  // pixels
    uint32_t Size;           // Width x Height x 4
    uint8_t BitsPerPixel;    // 24 and 32 are decoded
};

struct TGA_HEADER : TGA_SIZE {
    uint8_t ImageType;  // 2: plain; 10, run-length, becomes 2 once expanded
    uint8_t AlphaBits;
    uint8_t Origin;  // bit 0: columns from the right (not heeded), bit 1: rows from the top
};

/// The file being decoded, one at a time. The header stays after TGA_UnLoad.
extern constinit thread_local TGA_HEADER TGA_Header;
extern constinit thread_local BYTES_BUFFER TGA_File;  // the image, runs expanded

/// Reads a file and expands its runs, to the size that the header tells and to what the file can
/// carry.
void TGA_Load(const char *path);

/// Width x Height RGBA pixels; those that the file lacks are 0. From bottom to top only when both
/// origin bits are clear, and never mirrored, on purpose. The caller frees them. Null for a file
/// without its first row or an eighth of its pixels, for other types and depths, and past
/// Picture_MaxBytes. The expanded image stands beside the pixels: at most Width x Height x 4 bytes,
/// and 128 times the file.
uint8_t *TGA_Decoding();

/// Frees the file image.
void TGA_UnLoad();

TGA_SIZE TGA_GetHeader();
