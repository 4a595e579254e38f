// JPEG's marker segments: tables, frame and scan headers, JFIF, Exif and Adobe's segment. ITU-T
// T.81 annex B, JFIF 1.02, Exif 2.3 (TIFF 6.0 fields). The public interface is picture/jpg.h, which
// lists the rules.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "extra/bytes.h"
#include "picture/pixels.h"

#pragma GCC visibility push(default)

/// A Huffman table as stored in a DHT segment. Index n is for codes of n + 1 bits.
struct JPG_HUFFMAN {
    uint8_t Defined, Number;
    uint8_t Class;                   // 0: DC; 0x10: AC
    std::array<uint8_t, 16> Counts;  // of codes
    uint16_t Total;
    std::array<uint8_t, 256> Symbols;      // in the order of their codes
    std::array<uint16_t, 16> First, Last;  // codes; 65535 and 0 if none has that length
};

/// A quantisation table as stored in a DQT segment.
struct JPG_QUANTISATION {
    uint8_t Defined, Number;
    uint8_t Precision;              // 0: 8 bits; otherwise 16
    std::array<float, 64> Values;   // of 8 bits, by row and column, scaled for the inverse DCT
    std::array<uint16_t, 64> Wide;  // of 16 bits, as stored, in zigzag order
};

struct JPG_COMPONENT {
    uint8_t Id;
    uint8_t Sampling;  // horizontal factor * 16 + vertical
    uint8_t Quantisation;
};

struct JPG_SCAN_COMPONENT {
    uint8_t Id;
    uint8_t Tables;  // DC * 16 + AC
};

struct JPG_HEADER {
    uint32_t FileSize;                // bytes; the marker walk ends there
    uint16_t Width, Height;           // pixels
    uint32_t OutputSize;              // bytes of the padded picture
    uint8_t ScanMode;                 // index of JPG_Modes
    std::array<char, 32> Identifier;  // of the last APP0, APP1 or APP13 segment
    uint8_t MajorVersion, MinorVersion, Units;
    uint16_t XDensity, YDensity;
    uint16_t ThumbWidth, ThumbHeight;
    uint8_t *Thumbnail;  // JFIF's, RGBA, from calloc; JPG_GetThumbnail returns it
    uint8_t Precision;   // bits of a sample
    uint8_t ComponentCount;
    std::array<JPG_COMPONENT, 4> Components;
    std::array<JPG_HUFFMAN, 4> DC, AC;
    std::array<JPG_QUANTISATION, 4> Quantisation;
    uint8_t ScanComponentCount;
    std::array<JPG_SCAN_COMPONENT, 4> ScanComponents;
    uint8_t Ss, Se, AhAl, Ah, Al;  // first and last coefficient; bits, combined and separate
    std::array<char, 128> Comment;
    uint16_t RestartInterval;  // MCUs; 0: none
    uint32_t DataOffset;       // of the first entropy-coded byte; 0: no scan found
};

struct JPG_DECODER {
    uint8_t H, V;  // sampling factors of an MCU, which is 8 H x 8 V pixels
    uint32_t PaddedWidth, PaddedHeight;
    uint32_t McusAcross, McusDown;
    uint32_t ThumbPaddedWidth, ThumbPaddedHeight;
    bool Progressive;     // by the frame header's marker
    bool InScans;         // the first scan was found: from now on EOI ends the picture
    bool Ended;           // EOI was found
    bool Embedded;        // decoding the thumbnail
    bool Stream;          // part of another file: only Adobe's application segment is read
    uint8_t Rules;        // Picture_Rules when the load started
    uint8_t Refused;      // marker of the last unsupported frame header; 0: none
    bool JFIF, Adobe;     // such a segment was found
    uint8_t Transform;    // Adobe's: 0 none, 1 YCbCr, 2 YCCK
    uint32_t IFDEntries;  // read so far, in all Exif segments
    size_t Start;         // of the picture in the file
    uint64_t Beside;      // memory of the picture whose thumbnail this is, bytes
    uint64_t MaxPixels;   // limit for a part of another file
};

struct JPG_EXIF_ENTRY {
    uint16_t Tag, Type;
    uint32_t Count, Size, Value;  // Size: bytes
};

struct JPG_IFD {
    uint16_t Count;
    std::array<JPG_EXIF_ENTRY, 128> Entries;
    uint32_t Next;
};

struct JPG_EXIF {
    uint16_t Base;      // file position that offsets are relative to
    uint8_t ByteOrder;  // 'I' little-endian, 'M' big-endian
    uint8_t IFDNumber;  // of the IFD read last
    std::array<JPG_IFD, 16> IFDs;
    std::array<char, 64> Description;
    std::array<char, 32> Make;
    std::array<char, 16> Model;
    uint8_t ThumbCompression;                    // 6: JPEG
    uint32_t ThumbOffset, ThumbLength;           // in the file
    char LatitudeReference, LongitudeReference;  // '0': none
    float Latitude, Longitude;                   // degrees
};

/// The file being decoded, one at a time per thread. Header and Exif stay after JPG_UnLoad.
extern constinit thread_local JPG_HEADER JPG_Header;
extern constinit thread_local JPG_DECODER JPG_Decoder;
extern constinit thread_local JPG_EXIF JPG_Exif;
extern constinit thread_local BYTES_BUFFER JPG_File;
extern constinit thread_local size_t JPG_Position;  // next byte of the file

/// Names of the scan modes, for display.
extern const std::array<const char *, 6> JPG_Modes;
/// Index in natural order (row by row) of each coefficient in zigzag order, and the inverse.
extern const std::array<uint8_t, 64> JPG_ZigZag, JPG_ZigZag2;
/// 1 and cos(k pi / 16) sqrt(2): the row and column factors of Values.
extern const std::array<float, 8> JPG_ScaleFactor;

/// Numbers at JPG_Position, 0 past the end: big-endian; and in the byte order of the Exif data, 0
/// while that is unknown.
uint8_t JPG_GetByte();
uint16_t JPG_GetWord();
uint16_t JPG_GetExifWord();
uint32_t JPG_GetExifDWord();

/// Reads the IFD at JPG_Position into the current slot, and all that it links to.
void JPG_LoadExif();

/// Whether the file is read by the format's rules, not by the framework's.
inline bool JPG_ByFormat()
{
    return JPG_Decoder.Rules == PICTURE_RULES_FORMAT;
}

/// Sets the default Huffman tables, for files without any, such as frames of Motion JPEG. They do
/// not count as defined.
void JPG_SetTypicalTables();

/// Walks the markers from JPG_Position to the next scan. DataOffset and JPG_Position become the
/// position of its first entropy-coded byte, or 0 without a scan.
void JPG_WalkMarkers();

#pragma GCC visibility pop
