// TGA pictures (Targa): true colour of 24 and 32 bits, plain or run-length coded; by the format's
// rules (Truevision TGA 2.0) all other kinds, too.
//
// The framework's rules and the format's (Picture_Rules) differ in:
//   pixels    at byte 18; after the image ID and the colour map, whose sizes are in the header
//   kinds     true colour of 24 and 32 bits; also colour maps, grey, 15 and 16 bits
//   alpha     the fourth byte; also the second byte of 16-bit grey. AlphaBits is ignored by both
//   origin    bottom left if both bits are clear, else top left; each bit by itself
//   passes    rows in order; every second or fourth row first, as older files may have them
#pragma once

#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

/// The result of TGA_GetHeader.
struct TGA_SIZE {
    uint32_t Width, Height;  // pixels
    uint32_t Size;           // Width x Height x 4
    uint8_t BitsPerPixel;    // 24 and 32 are decoded
};

struct TGA_HEADER : TGA_SIZE {
    uint8_t Rules;      // PICTURE_RULES of the load
    uint8_t ImageType;  // 2: plain; 10: run-length, becomes 2 after expansion
    uint8_t AlphaBits;
    uint8_t Origin;  // bit 0: columns from the right (framework: ignored), bit 1: rows from the top
    uint32_t DataOffset;  // of the pixels
    // only by the format's rules: the colour map; interleaved rows
    uint16_t MapFirst, MapLength;  // index of the first entry, number of entries
    uint8_t MapBits;               // per entry
    uint8_t Passes;                // 1; 2 or 4 if every second or fourth row is stored first
};

/// The file being decoded, one at a time per thread. The header stays after TGA_UnLoad.
extern constinit thread_local TGA_HEADER TGA_Header;
extern constinit thread_local BYTES_BUFFER TGA_File;  // the image, runs expanded

/// Reads a file and expands its runs, limited by the header's size and by what the file can hold.
void TGA_Load(const char *path);

/// Width x Height RGBA pixels; missing ones are 0. The framework draws from bottom to top only if
/// both origin bits are clear, and never mirrors, on purpose. The caller frees the buffer. Null for
/// a file without its first row or an eighth of its pixels, for other types and depths, and above
/// Picture_MaxBytes. The expanded image is held in memory in addition to the pixels: at most Width
/// x Height x 4 bytes, and 128 times the file.
uint8_t *TGA_Decoding();

/// Frees the file image.
void TGA_UnLoad();

TGA_SIZE TGA_GetHeader();

#pragma GCC visibility pop
