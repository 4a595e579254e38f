// What the numbers of TIFF files stand for: their compressions and colours, a row each, and which
// of them are read.
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

enum TIF_PHOTOMETRIC : uint16_t {
    TIF_WhiteIs0,
    TIF_BlackIs0,
    TIF_RGB,
    TIF_Palette,
    TIF_Mask,
    TIF_CMYK,
    TIF_YCbCr,
};

/// A photometric interpretation, and how many samples are its colour; 0: nobody reads it.
struct TIF_COLOURS {
    uint16_t Photometric;
    const char *Name;
    uint8_t Samples;
    bool Framework;  // read under the framework's rules, too
};

/// The row of a number; null for one that is not known.
const TIF_COLOURS *TIF_FindColours(uint16_t photometric);
