// How the strips and tiles of a TIFF file are packed: PackBits, LZW (TIFF 6.0, sections 9 and 13),
// Deflate, facsimile coding, JPEG; the horizontal predictor (section 14). Works on TIF_Header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "extra/bytes.h"

enum TIF_COMPRESSION : uint16_t {
    TIF_Plain = 1,
    TIF_Huffman = 2,
    TIF_Group3 = 3,
    TIF_Group4 = 4,
    TIF_LZW = 5,
    TIF_JPEG = 7,
    TIF_Deflate = 8,
    TIF_OldDeflate = 32946,
    TIF_HuffmanWords = 32771,
    TIF_PackBits = 32773,
};

/// A compression, and who reads it. `Ratio`: bytes of samples that one stored byte can stand for; 0
/// where nobody reads it.
struct TIF_PACKING {
    uint16_t Compression;
    const char *Name;
    uint16_t Ratio;
    bool Framework;  // read under the framework's rules, too
    bool Predictor;  // may be combined with it
    bool Fax;        // of bilevel pictures
};

/// The row of a number; null for one that is not known.
const TIF_PACKING *TIF_FindPacking(uint16_t compression);

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
