// TIFF pictures of 8-bit samples (TIFF 6.0): grey in both senses, palette and RGB, with or without
// alpha, chunky or planar, in strips; plain or under PackBits, LZW or Deflate (the zlib stream
// belongs to picture/inflate.h), with or without the horizontal predictor. The first of the file's
// pictures. Plain RGB that follows the file's 8-byte header needs no strips told.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "extra/bytes.h"

struct TIF_ENTRY {
    uint16_t Tag;
    uint16_t Type;      // 1 byte, 2 text, 3 word, 4 double word, 5 fraction
    uint32_t Count;     // values
    uint64_t ByteSize;  // of all of them; 0 for another type
    uint32_t Value;     // itself when it takes up to 4 bytes, or where the values are
    size_t Position;    // of the values in the file
};

struct TIF_IFD {
    std::vector<TIF_ENTRY> Entries;
    uint32_t Next;  // offset of the next one; 0: none
};

struct TIF_HEADER {
    uint16_t Width, Height;              // pixels; 0 when they pass 16 bits
    uint8_t BitsPerSample;               // 8 is what decodes
    std::array<uint16_t, 3> SampleBits;  // when given as a list
    uint16_t Compression;                // 1 none, 5 LZW, 8 and 32946 Deflate, 32773 PackBits
    uint32_t OutputSize;                 // bytes: Width x Height x 4
    uint8_t ByteOrder;                   // 'I' lowest byte first, 'M' highest
    uint16_t Magic;                      // 42
    std::array<char, 128> DocumentName;  // ends with a 0
    std::array<TIF_IFD, 4> Directories;  // the first of the file
    uint32_t NextDirectory;              // offset of the one behind those; 0: none
    uint8_t DirectoryCount;              // read
    uint32_t DataPosition;               // of the first strip
    uint16_t Photometric;                // 0 white is 0, 1 black is 0, 2 RGB, 3 palette
    uint16_t Samples;                    // a pixel
    uint16_t Alpha;                      // behind the colour: 0 none, 1 multiplied in, 2 plain
    bool Planar;                         // each sample has its own strips
    uint16_t FillOrder;                  // 2: the bytes' bits are the other way round
    uint16_t Predictor;                  // 2: differences from the left neighbour
    uint32_t RowsPerStrip;
};

/// The file being decoded, one at a time. The header stays after TIF_UnLoad.
extern constinit thread_local TIF_HEADER TIF_Header;
extern constinit thread_local BYTES_BUFFER TIF_File;
extern constinit thread_local size_t TIF_Position;  // next byte to read; beyond the size: cut short

/// Numbers at TIF_Position in the file's byte order; what is past the end reads as 0.
uint8_t TIF_GetByte();
uint16_t TIF_GetWord();
uint32_t TIF_GetDWord();

/// Reads a file and its directories. TIF_File stays empty when the file cannot be read, when it is
/// none of the above, when its size is 0 or passes Picture_MaxBytes, or when its strips cannot hold
/// an eighth of its pixels.
void TIF_Load(const char *path);

/// Width x Height RGBA pixels, alpha not multiplied in, the top row first; pixels that the strips
/// lack are 0. From malloc: the caller frees it. Null when nothing was loaded. The peak of memory
/// is three times the buffer's size (one and a quarter when the strips are short) and the file.
uint8_t *TIF_Decoding();

/// Frees the file image.
void TIF_UnLoad();

/// Copies the header to `out` and returns it.
TIF_HEADER *TIF_GetHeader(TIF_HEADER *out);
