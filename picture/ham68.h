// HAM68, the framework's own picture format: bit planes in Hold-And-Modify form. A pixel takes a
// colour of a small palette, or holds its left neighbour's and replaces one component. HAM6 has 6
// planes, 16 colours and 4-bit components, HAM8 has 8 planes, 64 colours and 6-bit components.
//
// File, numbers big-endian: "HAM6" or "HAM8", bytes per plane row (2), height (2), planes (1),
// compression (1), description (90), palette (HAM6: 16 words A R G B of 4 bits each; HAM8: 64 times
// R G B), then for every row its planes, lowest bit first. In compressed planes 1 is the escape
// byte: 1 255 is a single 1, and 1, a 16-bit count and a value are a run.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct HAM68_HEADER {
    uint16_t Width, Height;  // pixels
    uint8_t Planes;          // 6 or 8
    uint16_t BytesPerRow;    // of one plane
    uint8_t Compression;     // 1: run-length
    std::array<char, 90> Description;
    uint16_t DataOffset;                             // next byte to read in HAM68_File
    std::array<std::array<uint8_t, 4>, 64> Palette;  // R G B A
};

/// The file being decoded, one at a time per thread. The header stays after HAM68_UnLoad.
extern constinit thread_local HAM68_HEADER HAM68_Header;
extern constinit thread_local BYTES_BUFFER HAM68_File;  // the image, planes expanded

/// Palettes written by the encoder: grey ramps, as 12-bit words and as R G B.
extern const std::array<uint16_t, 16> HAM68_Colors16;
extern const std::array<std::array<uint8_t, 3>, 64> HAM68_Colors64;
/// Description written by the encoder.
extern const std::array<char, 90> HAM68_Description;

/// Reads a file. If `rawPlanes` is 6 or 8, the file is a palette and planes without a header,
/// `width` pixels wide (0: 320), and its height follows from its size. Otherwise it has a header.
/// An invalid size (0, wider than its rows allow, larger than Picture_MaxBytes or than eight times
/// what the file can hold) leaves HAM68_File empty.
void HAM68_Load(const char *path, uint16_t width, uint8_t rawPlanes);

/// Width x Height RGBA pixels, opaque; missing bytes read as 0. From malloc: the caller frees it.
/// Null if nothing was loaded. Peak memory: 5 bytes a pixel and the file.
uint8_t *HAM68_Decoding(uint8_t planes);

/// Writes RGBA pixels (row stride `width`) with grey palettes. `code`: planes, or planes x 256 to
/// compress. On purpose, uncompressed files lack their last byte, and pixels beyond a multiple of 8
/// are not stored. Returns 0 if everything was written.
int HAM68_Encoding(const uint8_t *pixels, uint16_t width, uint16_t height, const char *path,
                   uint16_t code);

/// For encoders: appends a row of codes, truncated to a multiple of 8, to `out` as planes, the
/// lowest bit first.
void HAM68_AppendPlanes(std::span<const uint8_t> codes, uint8_t planes, std::vector<uint8_t> &out);

/// For encoders: compresses planes.
std::vector<uint8_t> HAM68_CompressRuns(std::span<const uint8_t> plain);

/// Frees the file image.
void HAM68_UnLoad();

/// Copies the header to `out` and returns it.
HAM68_HEADER *HAM68_GetHeader(HAM68_HEADER *out);

#pragma GCC visibility pop
