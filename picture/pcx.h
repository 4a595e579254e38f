// PCX pictures (PC Paintbrush): 2 and 16 colours in bit planes, 256 colours, and 24 bits, plain or
// run-length coded.
//
// The framework's rules and the format's (Picture_Rules, ZSoft's "PCX Technical Reference") differ
// in:
//   depths   planes times bits of 1, 4, 8 or 24; every pair of 1, 2, 4 or 8 bits and 1 to 4 planes
//   lines    at least as long as the width needs at 8 bits a plane; as long as the header says
//   palette  256 colours at the end, unmarked; only after their mark, else greys. For 2 colours two
//            of the header's 16 entries; black and white if these are equal
#pragma once

#include <cstdint>

#include "extra/bytes.h"
#include "picture/pixels.h"

#pragma GCC visibility push(default)

struct PCX_HEADER {
    uint32_t FileSize;     // bytes; for a run-length coded file the expanded size
    uint8_t Encoding;      // 1: run-length
    uint8_t BitsPerPlane;  // per pixel
    uint16_t XMin, YMin, XMax, YMax;
    uint8_t Planes;
    uint16_t Width, Height;  // pixels
    uint8_t BitsPerPixel;    // of all planes: 1, 4, 8 or 24
    uint32_t Size;           // Width x Height x 4
    PIXELS_PALETTE Palette;
    uint16_t BytesPerLine;  // of one plane; at least what Width needs
    uint8_t Rules;          // PICTURE_RULES of the load
};

/// The file being decoded, one at a time per thread. The header stays after PCX_UnLoad.
extern constinit thread_local PCX_HEADER PCX_Header;
extern constinit thread_local BYTES_BUFFER PCX_File;  // the image, runs expanded

/// Reads a file and expands its runs, limited by the header's size and by what the file can hold. A
/// bytes-per-line field too small for the width is corrected.
void PCX_Load(const char *path);

/// Width x Height RGBA pixels, opaque; missing rows are 0. The caller frees them. Null for a file
/// without its first row or an eighth of its pixels, for depths other than 1, 4, 8 and 24 (3 planes
/// of 8), and above Picture_MaxBytes. The expanded image is held in memory in addition to the
/// pixels: at most 32 times the file, and three quarters of Width x Height x 4 if lines are not
/// padded.
uint8_t *PCX_Decoding();

/// Frees the file image.
void PCX_UnLoad();

/// Copies the header to `out` and returns it.
PCX_HEADER *PCX_GetHeader(PCX_HEADER *out);

#pragma GCC visibility pop
