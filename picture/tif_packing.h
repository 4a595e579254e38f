// Decompression of TIFF strips and tiles: PackBits, LZW (TIFF 6.0, sections 9 and 13),
// Deflate, facsimile coding, JPEG; the horizontal predictor (section 14). Works on TIF_Header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "extra/bytes.h"

/// Scratch buffers for expanding strips one after the other.
struct TIF_BUFFERS {
    BYTES_BUFFER Mirrored, Expanded;
};

/// The plain bytes of a strip or tile, at most `size`: stored bytes, or expanded into the buffers
/// or into `out`, which is empty or has room for all of them. `width`: pixels a row; `step`: bytes
/// (or words, for 16 bits) from a pixel to the next. `tables`: shared tables of JPEG streams.
std::span<const uint8_t> TIF_Expand(std::span<const uint8_t> stored,
                                    std::span<const uint8_t> tables, size_t size, size_t width,
                                    size_t step, TIF_BUFFERS &buffers, std::span<uint8_t> out);
