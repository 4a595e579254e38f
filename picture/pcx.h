// PCX pictures (PC Paintbrush): 2 and 16 colours in bit planes, 256 colours, and 24 bits, plain or
// run-length coded.
//
// The framework's rules and the format's (Picture_Rules, ZSoft's "PCX Technical Reference") differ
// in:
//   depths   planes times bits of 1, 4, 8 or 24; every pair of 1, 2, 4 or 8 bits and 1 to 4 planes
//   lines    at least as long as the width needs at 8 bits a plane; as long as the header says
//   palette  256 colours at the end, unmarked; only after their mark, else greys. The
//   header's
//            has two of 16 entries for 2 colours, which are black and white where both are equal
#pragma once

#include <cstdint>

#include "extra/bytes.h"
#include "picture/pixels.h"

#pragma GCC visibility push(default)

struct PCX_HEADER {
    uint32_t FileSize;     // bytes; of a run-length coded file once expanded
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

/// The file being decoded, one at a time. The header stays after PCX_UnLoad.
extern constinit thread_local PCX_HEADER PCX_Header;
extern constinit thread_local BYTES_BUFFER PCX_File;  // the image, runs expanded

/// Reads a file and expands its runs, to the size that the header tells and to what the file can
/// carry. A bytes-per-line field too small for the width is not believed.
void PCX_Load(const char *path);

/// Width x Height RGBA pixels, opaque; rows that the file lacks are 0. The caller frees them.
/// Null for a file without its first row or an eighth of its pixels, for another depth than 1, 4, 8
/// and 24 (3 planes of 8), and past Picture_MaxBytes. The expanded image stands beside the pixels:
/// at most 32 times the file, and three quarters of Width x Height x 4 where lines are not padded.
uint8_t *PCX_Decoding();

/// Frees the file image.
void PCX_UnLoad();

/// Copies the header to `out` and returns it.
PCX_HEADER *PCX_GetHeader(PCX_HEADER *out);

#pragma GCC visibility pop
