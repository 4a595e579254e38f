// PNG pictures: chunks, scanline filters, Adam7. ISO/IEC 15948 (W3C "PNG"), every colour type and
// depth. The zlib stream is decoded by picture/inflate.h, the filters by picture/png_filter.h.
//
// The rules (Picture_Rules)      framework                  format
// transparent grey or colour     stored only                alpha 0, by all bits of its samples
// index beyond the palette       previous file's palette    opaque black
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct PNG_TEXT {
    std::array<char, 80> Keyword;  // as all texts here: truncated to fit, NUL-terminated
    std::array<char, 256> Text;
};

struct PNG_INTERNATIONAL_TEXT {
    std::array<char, 80> Keyword;
    uint8_t CompressionFlag, CompressionMethod;
    std::array<char, 17> Language;
    std::array<char, 80> TranslatedKeyword;
    std::array<char, 256> Text;  // UTF-8; empty if compressed
};

struct PNG_HEADER {
    uint32_t FileSize;       // bytes
    uint16_t Width, Height;  // pixels: low 16 bits of the fields below
    uint8_t BitsPerPixel;    // bit depth times samples per pixel
    uint32_t OutputSize;     // Width x Height x 4 bytes
    uint32_t IHDRWidth, IHDRHeight;
    uint8_t BitDepth;   // of a sample
    uint8_t ColorType;  // 0 grey, 2 RGB, 3 palette, 4 grey + alpha, 6 RGB + alpha
    uint8_t Compression, Filter, Interlace;
    uint32_t Gamma;  // times 100,000
    std::array<uint8_t, 256> PaletteRed, PaletteGreen, PaletteBlue, PaletteAlpha;
    uint8_t TextCount;
    std::array<PNG_TEXT, 10> Texts;
    uint8_t InternationalTextCount;
    std::array<PNG_INTERNATIONAL_TEXT, 10> InternationalTexts;
    uint8_t BackgroundIndex;                                  // by colour type: the palette index,
    uint16_t BackgroundGrey;                                  // the grey level,
    uint16_t BackgroundRed, BackgroundGreen, BackgroundBlue;  // or the colour, at the file's depth
    uint32_t PixelsPerUnitX, PixelsPerUnitY;
    uint8_t Unit;  // index into PNG_Unit
    uint16_t Year;
    uint8_t Month, Day, Hour, Minute, Second;     // last change, UTC
    uint16_t KeyGrey, KeyRed, KeyGreen, KeyBlue;  // transparent colour
    uint32_t DataOffset;                          // of the first IDAT chunk; 0: none
    uint8_t HasKey;                               // 1: the transparent colour is applied
};

/// The gathered IDAT data, one zlib stream of Length bytes at the start of Data.
struct PNG_DECODER {
    BYTES_BUFFER Data;
    uint32_t Length;
};

/// The file being decoded, one at a time per thread. The header stays after PNG_UnLoad.
extern constinit thread_local PNG_HEADER PNG_Header;
extern constinit thread_local BYTES_BUFFER PNG_File;  // used only while loading
extern constinit thread_local size_t
    PNG_Position;  // next byte: of the file while loading, then of the inflated data
extern constinit thread_local PNG_DECODER PNG_Decoder;

/// Display names, by colour type, interlace method and unit.
extern const std::array<const char *, 7> PNG_ColorType;
extern const std::array<const char *, 2> PNG_Interlace, PNG_Unit;

/// Reads the file's chunks into PNG_Header and gathers its IDAT data up to IEND. CRCs and the order
/// of chunks are not checked, unknown chunks are skipped, a truncated chunk is read as far as it
/// goes. Of an animation only the default picture is read, which leaves a reason. A file that
/// cannot be opened leaves nothing to decode.
void PNG_Load(const char *path);

/// Inflates, unfilters and converts what PNG_Load gathered.
///
/// Returns Width x Height pixels of 4 bytes (R G B A, 8 bits each, alpha not premultiplied), top
/// row first. 16-bit samples keep their high byte, greys of less than 8 bits are scaled to 0..255.
/// What a damaged stream lacks is 0, alpha too. From calloc: the caller frees it. Null, with a
/// reason, for a header that the standard does not allow, a side of 0 or above 65535, no data, or
/// more pixels than Picture_Believes of a stream at its best ratio of 1032 to 1. Peak memory in
/// addition to the file and the pixels: 400 KB and seven rows.
uint8_t *PNG_Decoding();

/// Frees the gathered data.
void PNG_UnLoad();

/// Copies the header to `out` and returns it.
PNG_HEADER *PNG_GetHeader(PNG_HEADER *out);

#pragma GCC visibility pop
