// The compressions and photometric interpretations of TIFF files, one row each, and which of them
// are supported.
#pragma once

#include <cstdint>

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

/// A compression. `Ratio`: bytes of samples that one stored byte can stand for; 0: not supported.
struct TIF_PACKING {
    uint16_t Compression;
    const char *Name;
    uint16_t Ratio;
    bool Framework;  // also supported by the framework's rules
    bool Predictor;  // may be combined with a predictor
    bool Fax;        // for bilevel pictures only
};

/// The row of a number; null for an unknown one.
const TIF_PACKING *TIF_FindPacking(uint16_t compression);

enum TIF_PHOTOMETRIC : uint16_t {
    TIF_WhiteIs0,
    TIF_BlackIs0,
    TIF_RGB,
    TIF_Palette,
    TIF_Mask,
    TIF_CMYK,
    TIF_YCbCr,
};

/// A photometric interpretation and its number of colour samples; 0: not supported.
struct TIF_COLOURS {
    uint16_t Photometric;
    const char *Name;
    uint8_t Samples;
    bool Framework;  // also supported by the framework's rules
};

/// The row of a number; null for an unknown one.
const TIF_COLOURS *TIF_FindColours(uint16_t photometric);
