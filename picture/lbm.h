// ILBM and PBM, the pictures of the Interchange File Format (EA IFF 85): interleaved bit planes
// with a palette (1 to 8), half-bright, Hold-And-Modify, 24 planes of true colour, and PBM's bytes;
// uncompressed or ByteRun1.
//
// The framework's rules and the format's (Picture_Rules, EA IFF 85 "ILBM") differ in:
//   forms      ILBM and PBM; also ACBM, whose planes are contiguous
//   alpha      none; by mask plane and transparent colour, or in planes 25 to 32 of true colour
//   palette    as many entries as the planes index; those of the chunk (4-bit ones are scaled, 32
//              for six planes mean half-bright), greys without a chunk
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct LBM_HEADER {
    uint32_t FileSize;     // bytes
    uint8_t Compression;   // 1: ByteRun1
    uint16_t Width;        // pixels
    uint16_t BufferWidth;  // Width rounded up to a multiple of 8
    uint16_t Height;
    uint8_t Planes;
    std::array<std::array<uint8_t, 3>, 256> Palette;  // R G B
    uint32_t OutputSize;                              // bytes: BufferWidth x Height x 4
    std::array<char, 128> Annotation;                 // ends with a 0
    uint16_t X, Y;
    uint8_t Masking;  // 1: a mask plane follows those of each row
    uint8_t Pad;
    uint16_t TransparentColor;
    uint8_t XAspect, YAspect;
    uint16_t PageWidth, PageHeight;
    uint32_t BodyOffset;    // of the pixels; 0: none
    uint32_t BodySize;      // bytes, by the chunk; if that says 0, the rest of the file
    uint32_t FormType;      // "ILBM", "PBM " or "ACBM", the first letter highest
    uint32_t ViewMode;      // CAMG: 0x80 half-bright, 0x800 Hold-And-Modify
    uint16_t PaletteCount;  // entries of the CMAP chunk
    uint8_t Rules;          // PICTURE_RULES of the load
};

/// The file being decoded, one at a time per thread. The header stays after LBM_UnLoad.
extern constinit thread_local LBM_HEADER LBM_Header;
extern constinit thread_local BYTES_BUFFER LBM_File;  // the image, ending with its expanded BODY
extern constinit thread_local size_t LBM_Position;  // next byte to read; beyond the size: cut short

/// Big-endian numbers at LBM_Position; bytes past the end read as 0.
uint8_t LBM_GetByte();
uint16_t LBM_GetWord();
uint32_t LBM_GetDWord();

/// Reads a file and expands its BODY. LBM_File stays empty if the file cannot be read, its planes
/// or size are not supported or exceed Picture_MaxBytes, or it cannot hold an eighth of its pixels.
void LBM_Load(const char *path);

/// BufferWidth x Height RGBA pixels, the top row first, opaque but for the alpha above; missing
/// rows are 0. From malloc: the caller frees it. Null if nothing was loaded. Peak memory: three
/// times the buffer's size and the file.
uint8_t *LBM_Decoding();

/// Frees the file image.
void LBM_UnLoad();

/// Copies the header to `out` and returns it.
LBM_HEADER *LBM_GetHeader(LBM_HEADER *out);

#pragma GCC visibility pop
