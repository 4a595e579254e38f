// How the strips and tiles of a TIFF file are packed: PackBits, LZW (TIFF 6.0, sections 9 and 13),
// Deflate, facsimile coding, JPEG; the horizontal predictor (section 14). Works on TIF_Header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "extra/bytes.h"

/// What strips are brought into, to be used for one after the other.
struct TIF_BUFFERS {
    BYTES_BUFFER Mirrored, Expanded;
};

/// The plain bytes of a strip or tile, `size` of them or fewer: those stored, or made in the
/// buffers or in `out`, which may be empty or have room for all of them. `width`: pixels a row;
/// `step`: bytes or, of 16 bits, words from a pixel to the next. `tables`: what JPEG streams share.
std::span<const uint8_t> TIF_Expand(std::span<const uint8_t> stored,
                                    std::span<const uint8_t> tables, size_t size, size_t width,
                                    size_t step, TIF_BUFFERS &buffers, std::span<uint8_t> out);
