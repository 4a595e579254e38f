// TIFF pictures (TIFF 6.0, Adobe's technical notes 1 and 2 on it, and BigTIFF): of integer samples,
// grey in both senses, palette, RGB, CMYK or YCbCr, with or without alpha, chunky or planar, in
// strips or tiles. The compressions belong to picture/tif_packing.h, colours to
// picture/tif_colour.h.
//
// Where the rules differ:
//
//                   the framework's (PICTURE_RULES_FRAMEWORK)   TIFF's own (PICTURE_RULES_FORMAT)
//   magic number    any                                         42, or 43 for BigTIFF
//   types of values 1 to 5, others have no values               1 to 13 and 16 to 18
//   bits a sample   8; a list that is uneven counts as 8        1 to 16, all the same; 1 if missing
//   colours         grey, palette, RGB; RGB if missing          also CMYK, YCbCr, masks; grey if
//                                                               missing and of less than 3 samples
//   without strips  RGB follows the file's 8-byte header        nothing to decode
//   strips' bytes   as stated                                   0 stands for the rest of the file
//   tiles           no                                          yes
//   compressions    none, PackBits, LZW, Deflate                also CCITT, JPEG and old-style LZW
//   associated      divided out of the colours                  left as stored, as other decoders
//   do alpha page            the first                                   TIF_Page
//
// Left out under both: floating point, more than 16 bits, and what the tables of compressions and
// colours name without a way to read it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "extra/bytes.h"

struct TIF_ENTRY {
    uint16_t Tag;
    uint16_t Type;      // 1 byte, 2 text, 3 word, 4 double word, 5 fraction
    uint64_t Count;     // values
    uint64_t ByteSize;  // of all of them; 0 for another type
    uint64_t Value;     // itself when it takes up to 4 bytes (8), or where the values are
    size_t Position;    // of the values in the file
};

struct TIF_IFD {
    std::vector<TIF_ENTRY> Entries;
    uint64_t Next;  // offset of the next one; 0: none
};

enum TIF_PHOTOMETRIC : uint16_t {
    TIF_WhiteIs0,
    TIF_BlackIs0,
    TIF_RGB,
    TIF_Palette,
    TIF_Mask,
    TIF_CMYK,
    TIF_YCbCr,
};

struct TIF_HEADER {
    uint16_t Width, Height;  // pixels; 0 when they pass 16 bits
    uint8_t BitsPerSample;
    std::array<uint16_t, 3> SampleBits;  // when given as a list
    uint16_t Compression;                // as picture/tif_packing.h numbers them
    uint32_t OutputSize;                 // bytes: Width x Height x 4
    uint8_t ByteOrder;                   // 'I' lowest byte first, 'M' highest
    uint16_t Magic;                      // 42; 43: BigTIFF
    std::array<char, 128> DocumentName;  // ends with a 0
    std::array<TIF_IFD, 4> Directories;  // from the page's own on
    uint64_t NextDirectory;              // offset of the one after those; 0: none
    uint8_t DirectoryCount;              // read
    uint32_t DataPosition;               // of the first strip or tile
    uint16_t Photometric;                // TIF_PHOTOMETRIC
    uint16_t Samples;                    // a pixel
    uint16_t Alpha;                      // after the colours: 0 none, 1 multiplied in, 2 plain
    bool Planar;                         // each sample has its own strips
    uint16_t FillOrder;                  // 2: the bytes' bits are the other way round
    uint16_t Predictor;                  // 2: differences from the left neighbour
    uint32_t RowsPerStrip;               // or of a tile
    uint8_t Rules;                       // PICTURE_RULES that it was read by
    uint32_t TileWidth;                  // of a strip or tile, in pixels
    bool Tiled;
    uint16_t Orientation;  // where row 0 and column 0 are, 1 (top left) to 8; not applied
    uint32_t FaxOptions;   // of Group 3: bit 0, two dimensions
    std::array<uint8_t, 2> Subsampling;  // of YCbCr: pixels a chroma sample, across and down
};

/// The file being decoded, one at a time. The header stays after TIF_UnLoad.
extern constinit thread_local TIF_HEADER TIF_Header;
extern constinit thread_local BYTES_BUFFER TIF_File;
extern constinit thread_local size_t TIF_Position;  // next byte to read; beyond the size: cut short

/// Which page TIF_Load reads under the format's rules, from 0 on; and how many the file had that
/// was loaded last, at most TIF_MaxPages.
extern constinit thread_local uint32_t TIF_Page, TIF_PageCount;
constexpr uint32_t TIF_MaxPages = 65535;

/// Numbers at TIF_Position in the file's byte order; what is past the end reads as 0.
uint8_t TIF_GetByte();
uint16_t TIF_GetWord();
uint32_t TIF_GetDWord();

/// Reads a file and its directories by the rules of Picture_Rules. TIF_File stays empty, with a
/// reason, when the file cannot be read, when it is none of the above, when its size is 0 or passes
/// Picture_MaxBytes, when its strips cannot hold an eighth of its pixels or when they overlap so
/// often that they take more than eight times the file.
void TIF_Load(const char *path);

/// Width x Height RGBA pixels, alpha not multiplied in, the top row first; pixels that the strips
/// lack are 0. From malloc: the caller frees it. Null when nothing was loaded. The peak of memory
/// is three times the buffer's size (one and a quarter when the strips are short) and the file; of
/// files up to 100 KiB, what TIF_MaxMemory in the source allows.
uint8_t *TIF_Decoding();

/// Frees the file image.
void TIF_UnLoad();

/// Copies the header to `out` and returns it.
TIF_HEADER *TIF_GetHeader(TIF_HEADER *out);
