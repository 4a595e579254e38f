// The directories of TIFF files: their pages, the values of their tags, and TIF_Header's
// description of a page. TIFF 6.0, section 2, and BigTIFF. Uses TIF_File and TIF_Header.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct TIF_ENTRY {
    uint16_t Tag;
    uint16_t Type;      // 1 byte, 2 text, 3 word, 4 double word, 5 fraction
    uint64_t Count;     // values
    uint64_t ByteSize;  // of all values; 0 for an unknown type
    uint64_t Value;     // the value if it fits 4 bytes (BigTIFF: 8), else its position
    size_t Position;    // of the values in the file
};

struct TIF_IFD {
    std::vector<TIF_ENTRY> Entries;
    uint64_t Next;  // offset of the next one; 0: none
};

struct TIF_HEADER {
    uint16_t Width, Height;  // pixels; 0 if above 16 bits
    uint8_t BitsPerSample;
    std::array<uint16_t, 3> SampleBits;  // if given as a list
    uint16_t Compression;                // TIF_COMPRESSION
    uint32_t OutputSize;                 // bytes: Width x Height x 4
    uint8_t ByteOrder;                   // 'I' lowest byte first, 'M' highest
    uint16_t Magic;                      // 42; 43: BigTIFF
    std::array<char, 128> DocumentName;  // ends with a 0
    std::array<TIF_IFD, 4> Directories;  // starting with the page's own
    uint64_t NextDirectory;              // offset of the one after those; 0: none
    uint8_t DirectoryCount;              // read
    uint32_t DataPosition;               // of the first strip or tile
    uint16_t Photometric;                // TIF_PHOTOMETRIC
    uint16_t Samples;                    // a pixel
    uint16_t Alpha;                      // alpha sample: 0 none, 1 associated, 2 unassociated
    bool Planar;                         // each sample has its own strips
    uint16_t FillOrder;                  // 2: the bits of each byte are reversed
    uint16_t Predictor;                  // 2: differences from the left neighbour
    uint32_t RowsPerStrip;               // or of a tile
    uint8_t Rules;                       // PICTURE_RULES of the load
    uint32_t TileWidth;                  // of a strip or tile, in pixels
    bool Tiled;
    uint16_t Orientation;  // place of row 0 and column 0, 1 (top left) to 8; not applied
    uint32_t FaxOptions;   // of Group 3: bit 0, two dimensions
    std::array<uint8_t, 2> Subsampling;  // of YCbCr: pixels per chroma sample, across and down
};

/// The file being decoded, one at a time per thread. The header stays after TIF_UnLoad.
extern constinit thread_local TIF_HEADER TIF_Header;
extern constinit thread_local BYTES_BUFFER TIF_File;
extern constinit thread_local size_t TIF_Position;  // next byte to read; beyond the size: cut short

/// Page that TIF_Load reads under the format's rules, from 0; and number of pages of the last file
/// loaded, at most TIF_MaxPages.
extern constinit thread_local uint32_t TIF_Page, TIF_PageCount;
constexpr uint32_t TIF_MaxPages = 65535;

/// Numbers at TIF_Position in the file's byte order; bytes past the end read as 0.
uint8_t TIF_GetByte();
uint16_t TIF_GetWord();
uint32_t TIF_GetDWord();

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
constexpr uint16_t TIF_Small = 42, TIF_Big = 43;  // magic numbers; BigTIFF has 64-bit offsets
constexpr uint16_t TIF_MaxSamples = 8;

/// Whether the file is read by the format's rules.
bool TIF_ByFormat();

/// Fills TIF_Header from TIF_File.
void TIF_ReadHeader();

/// The entry of a tag in the page's directory, or null.
const TIF_ENTRY *TIF_Find(TIF_TAG tag);

/// Value `i` of an entry; 0 if the entry is null or has fewer values. On purpose, a fraction gives
/// its first byte.
uint64_t TIF_GetValue(const TIF_ENTRY *entry, size_t i);

/// Value `i` of an entry, as a fraction.
double TIF_GetFraction(const TIF_ENTRY *entry, size_t i);

/// The value of a tag, or `missing` without the tag; 0 if the value exceeds 16 bits.
uint16_t TIF_GetTag(TIF_TAG tag, uint16_t missing);

/// Number of an entry's values that the file really has.
size_t TIF_CountValues(const TIF_ENTRY &entry);

#pragma GCC visibility pop
