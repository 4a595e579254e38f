// Text from fixed bitmap character sets, drawn point by point in the current colour of the raster
// layer. A text is 8-bit, its accented letters in ISO/IEC 8859-2 (Latin-2); every set has its own
// rule that turns the bytes of a text into glyph numbers. The glyphs are drawn in picture/charsets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#pragma GCC visibility push(default)

/// The tables: glyph after glyph, rows from the top, one byte a row (two in CHARSET_ROM_BLITTER,
/// the left half first), the highest bit leftmost. A set bit is a point, a clear bit is not drawn.
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

/// Sets that have a table are below this.
constexpr uint8_t CharSet_Sets = 15;

struct CHARSET_SIZE {
    uint16_t Glyphs;
    uint8_t Columns, Rows;  // of a glyph
    uint8_t Blank;          // the glyph that is not drawn
};

/// Size of a set; all 0 from CharSet_Sets on.
CHARSET_SIZE CharSet_GetSize(uint8_t set);

/// Whether the set has a glyph that shows this byte of a text: a blank or a sign of ASCII, or a
/// letter of CharSet_Letters, at the number that the set's rule sends it to.
bool CharSet_CanWrite(uint8_t set, uint8_t byte);

/// Points from the left side of one glyph of a text to that of the next.
int32_t CharSet_Pitch(uint8_t set, int16_t scaleX);

struct CHARSET_EXTENT {
    int32_t Width, Height;  // points
};

/// The box that CharSet_PutText fills with a text of so many glyphs (255 at most), without the gap
/// after the last one. Both 0 for no glyphs, a scale below 1, or from CharSet_Sets on.
CHARSET_EXTENT CharSet_TextSize(size_t glyphs, uint8_t set, int16_t scaleX, int16_t scaleY);

/// The byte at `index` (modulo 65536) of the set's table; 0 past its end or without a table.
uint8_t CharSet_ROM_GetByte(uint8_t set, uint32_t index);

/// Turns the first 255 bytes of a text into glyph numbers and a 0 after them: `out` has room for
/// 256. Bytes that the set has no rule for, and all bytes without a table, stay as they are.
void CharSet_Decode(const char *text, uint8_t set, uint8_t *out);

/// Draws a glyph with its top left at (x, y) and rows going to larger y, every point as a block of
/// scaleX by scaleY points, coordinates wrapped to 16 bits. Nothing is drawn for a glyph that the
/// set does not have, its blank one, or a scale below 1.
void CharSet_PutChar(int16_t x, int16_t y, uint8_t glyph, uint8_t set, int16_t scaleX,
                     int16_t scaleY);

/// Draws the first 255 bytes of a text from left to right, CharSet_Pitch points from one to the
/// next: a glyph's columns times scaleX and a gap of 2, which is not scaled, on purpose.
void CharSet_PutText(int16_t x, int16_t y, const char *text, uint8_t set, int16_t scaleX,
                     int16_t scaleY);

#pragma GCC visibility pop
