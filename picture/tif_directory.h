// The directories of TIFF files: their pages, the values of their tags, and what TIF_Header says of
// a page. TIFF 6.0, section 2, and BigTIFF. Works on TIF_File and TIF_Header.
#pragma once

#include <cstddef>
#include <cstdint>

struct TIF_ENTRY;

enum TIF_TAG : uint16_t {
    TIF_ImageWidth = 256,
    TIF_ImageLength = 257,
    TIF_BitsPerSample = 258,
    TIF_Compression = 259,
    TIF_Photometric = 262,
    TIF_FillOrder = 266,
    TIF_DocumentName = 269,
    TIF_StripOffsets = 273,
    TIF_Orientation = 274,
    TIF_SamplesPerPixel = 277,
    TIF_RowsPerStrip = 278,
    TIF_StripByteCounts = 279,
    TIF_PlanarConfiguration = 284,
    TIF_T4Options = 292,
    TIF_Predictor = 317,
    TIF_ColorMap = 320,
    TIF_TileWidth = 322,
    TIF_TileLength = 323,
    TIF_TileOffsets = 324,
    TIF_TileByteCounts = 325,
    TIF_ExtraSamples = 338,
    TIF_SampleFormat = 339,
    TIF_JPEGTables = 347,
    TIF_YCbCrCoefficients = 529,
    TIF_YCbCrSubsampling = 530,
    TIF_ReferenceBlackWhite = 532,
};

constexpr uint32_t TIF_HeaderSize = 8;
constexpr uint16_t TIF_Small = 42, TIF_Big = 43;  // magic numbers; the second has 64-bit offsets
constexpr uint16_t TIF_MaxSamples = 8;

/// Whether the file is read by the format's rules.
bool TIF_ByFormat();

/// Fills TIF_Header from TIF_File.
void TIF_ReadHeader();

/// The entry of a tag in the page's directory; null when there is none.
const TIF_ENTRY *TIF_Find(TIF_TAG tag);

/// The i-th number of an entry, which may be null; 0 when it has fewer. Of a fraction its first
/// byte, on purpose.
uint64_t TIF_GetValue(const TIF_ENTRY *entry, size_t i);

/// The i-th fraction of an entry.
double TIF_GetFraction(const TIF_ENTRY *entry, size_t i);

/// The number of a tag that has one, within 16 bits: larger ones are 0.
uint16_t TIF_GetTag(TIF_TAG tag, uint16_t missing);

/// Values of an entry that the file really has.
size_t TIF_CountValues(const TIF_ENTRY &entry);
