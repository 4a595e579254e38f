// Text from fixed bitmap character sets, drawn point by point in the current colour of the raster
// layer. A text is 8-bit, its accented letters in ISO/IEC 8859-2 (Latin-2); every set has its own
// rule that maps the bytes of a text to glyph numbers. The glyphs are in picture/charsets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#pragma GCC visibility push(default)

/// The tables: glyph after glyph, rows from the top, one byte a row (two in CHARSET_ROM_BLITTER,
/// the left half first), the highest bit leftmost. Set bits are drawn.
extern const std::array<uint8_t, 2048> CHARSET_ROM_CPLUS4;    // set 0
extern const std::array<uint8_t, 2048> CHARSET_ROM_CBM;       // 1
extern const std::array<uint8_t, 2048> CHARSET_ROM_PC8;       // 2
extern const std::array<uint8_t, 4096> CHARSET_ROM_PC16;      // 3
extern const std::array<uint8_t, 1024> CHARSET_ROM_COMPUTER;  // 4
extern const std::array<uint8_t, 1024> CHARSET_ROM_CIRILL;    // 5
extern const std::array<uint8_t, 1632> CHARSET_ROM_LANGUAGE;  // 6 to 13
extern const std::array<uint8_t, 4096> CHARSET_ROM_BLITTER;   // 14

/// ISO/IEC 8859-2 from CharSet_FirstLetter on, every letter as two bytes of UTF-8.
constexpr uint8_t CharSet_FirstLetter = 161;
constexpr std::string_view CharSet_Letters =
    "Ą˘Ł¤ĽŚ§¨ŠŞŤŹ\u00ADŽŻ°ą˛ł´ľśˇ¸šşťź˝žż"
    "ŔÁÂĂÄĹĆÇČÉĘËĚÍÎĎĐŃŇÓÔŐÖ×ŘŮÚŰÜÝŢßŕáâăäĺćçčéęëěíîďđńňóôőö÷řůúűüýţ˙";
static_assert(CharSet_Letters.size() == (256 - CharSet_FirstLetter) * 2);

/// Number of sets; larger numbers have no table.
constexpr uint8_t CharSet_Sets = 15;

struct CHARSET_SIZE {
    uint16_t Glyphs;
    uint8_t Columns, Rows;  // of a glyph
    uint8_t Blank;          // number of the glyph that is not drawn
};

/// Size of a set; all 0 for an unknown set.
CHARSET_SIZE CharSet_GetSize(uint8_t set);

/// Whether the set has a glyph for this byte of a text: a space or printable ASCII, or a letter of
/// CharSet_Letters, at the number that the set's rule maps it to.
bool CharSet_CanWrite(uint8_t set, uint8_t byte);

/// Horizontal distance from one glyph of a text to the next, in points.
int32_t CharSet_Pitch(uint8_t set, int16_t scaleX);

struct CHARSET_EXTENT {
    int32_t Width, Height;  // points
};

/// Size of the box that CharSet_PutText fills with a text of this many glyphs (at most 255),
/// without the gap after the last one. Both 0 for no glyphs, a scale below 1, or an unknown set.
CHARSET_EXTENT CharSet_TextSize(size_t glyphs, uint8_t set, int16_t scaleX, int16_t scaleY);

/// The byte at `index` (modulo 65536) of the set's table; 0 past its end or for an unknown set.
uint8_t CharSet_ROM_GetByte(uint8_t set, uint32_t index);

/// Maps the first 255 bytes of a text to glyph numbers, followed by a 0: `out` has room for 256.
/// Bytes without a rule, and all bytes of an unknown set, are copied unchanged.
void CharSet_Decode(const char *text, uint8_t set, uint8_t *out);

/// Draws a glyph with its top left at (x, y) and rows going to larger y, every point as a block of
/// scaleX by scaleY points; coordinates wrap at 16 bits. Draws nothing for an unknown glyph, the
/// blank one, or a scale below 1.
void CharSet_PutChar(int16_t x, int16_t y, uint8_t glyph, uint8_t set, int16_t scaleX,
                     int16_t scaleY);

/// Draws the first 255 bytes of a text from left to right, CharSet_Pitch points apart: a glyph's
/// columns times scaleX plus a gap of 2, which is not scaled, on purpose.
void CharSet_PutText(int16_t x, int16_t y, const char *text, uint8_t set, int16_t scaleX,
                     int16_t scaleY);

#pragma GCC visibility pop
