// The notation of character sets, and its parser, which makes the tables at compile time. An
// inconsistent source (a row of the wrong width, a number given twice or not at all, an unknown
// name, a mark that leaves its cell) does not compile. The parser avoids library types and calls,
// since compilers limit and store every step of constant evaluation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Maximum of glyphs and parts per set. Glyphs are numbered from 0, parts from CHARSET_MaxGlyphs.
constexpr size_t CHARSET_MaxGlyphs = 256, CHARSET_MaxParts = 64;

/// The source of one set. Names are UTF-8 of at most 8 bytes, without spaces.
struct CHARSET_SOURCE {
    uint16_t Glyphs;
    uint8_t Columns, Rows;  // of a glyph: 8 or 16
    uint8_t Blank;          // number of the glyph that is not drawn
    /// Blocks of cells side by side: a line with "number name" for each cell, then their rows, '#'
    /// for a point. "+ name" defines a part, which is no glyph of its own but a base or mark of
    /// accented letters. A6, for example, is an A of six rows that leaves room for a mark, and ´A
    /// the variant of a mark for capitals.
    const char *Pictures;
    /// "number name base mark right down": the base, with the mark moved right and down.
    const char *Marked = "";
    /// "number name": a symbol shared by the sets, centred in the cell's rows.
    const char *Symbols = "";
};

/// The bytes of a name as a number, the last one lowest: equal for equal names, 0 for "".
using CHARSET_NAME = uint64_t;

struct CHARSET_GLYPHS {
    CHARSET_NAME Names[CHARSET_MaxGlyphs + CHARSET_MaxParts];
    uint16_t Rows[CHARSET_MaxGlyphs + CHARSET_MaxParts][16];  // the leftmost point is the high bit
};

/// Takes the next word of a line from `text`; 0 at the line's end.
consteval CHARSET_NAME CharSet_TakeWord(const char *&text)
{
    while (*text == ' ')
        text++;
    CHARSET_NAME name = 0;
    for (; *text != ' ' && *text != '\n' && *text; text++) {
        if (name >> 56)
            throw "a name is too long";
        name = name << 8 | static_cast<uint8_t>(*text);
    }
    return name;
}

/// The next word of a line as a decimal number.
consteval int CharSet_TakeNumber(const char *&text)
{
    while (*text == ' ')
        text++;
    const bool negative = *text == '-';
    if (negative)
        text++;
    if (*text < '0' || *text > '9')
        throw "a number is missing";
    int number = 0;
    for (; *text >= '0' && *text <= '9'; text++)
        number = number * 10 + (*text - '0');
    return negative ? -number : number;
}

/// Reads "number name" and names that glyph; the number must be free and within the set.
consteval size_t CharSet_TakeName(CHARSET_GLYPHS &glyphs, const char *&text, size_t count)
{
    const auto number = static_cast<size_t>(CharSet_TakeNumber(text));
    if (number >= count)
        throw "a number that the set does not have";
    if (glyphs.Names[number])
        throw "a number given twice";
    glyphs.Names[number] = CharSet_TakeWord(text);
    if (!glyphs.Names[number])
        throw "a name is missing";
    return number;
}

/// The first number in from..to - 1 with this name, else `to`.
consteval size_t CharSet_Find(const CHARSET_GLYPHS &glyphs, CHARSET_NAME name, size_t from,
                              size_t to)
{
    while (from < to && glyphs.Names[from] != name)
        from++;
    return from;
}

/// The number of the glyph or part that has this name.
consteval size_t CharSet_Named(const CHARSET_GLYPHS &glyphs, CHARSET_NAME name)
{
    constexpr size_t end = CHARSET_MaxGlyphs + CHARSET_MaxParts;
    const size_t number = CharSet_Find(glyphs, name, 0, end);
    if (number == end)
        throw "a name that no glyph has";
    return number;
}

/// Eight points of a row. '#' is odd and '.' is even; the sum shows whether each is one of the two.
consteval uint32_t CharSet_ReadPoints(const char *p)
{
    const int bits = (p[0] & 1) << 7 | (p[1] & 1) << 6 | (p[2] & 1) << 5 | (p[3] & 1) << 4 |
                     (p[4] & 1) << 3 | (p[5] & 1) << 2 | (p[6] & 1) << 1 | (p[7] & 1);
    const int sum = p[0] + p[1] + p[2] + p[3] + p[4] + p[5] + p[6] + p[7];
    const int points = (p[0] & 1) + (p[1] & 1) + (p[2] & 1) + (p[3] & 1) + (p[4] & 1) + (p[5] & 1) +
                       (p[6] & 1) + (p[7] & 1);
    if (sum != 8 * '.' - points * ('.' - '#'))
        throw "neither a point nor none";
    return static_cast<uint32_t>(bits);
}

/// Reads the blocks of a source's Pictures.
consteval void CharSet_ReadPictures(CHARSET_GLYPHS &glyphs, const CHARSET_SOURCE &source)
{
    size_t part = CHARSET_MaxGlyphs;
    const char *text = source.Pictures + 1;  // past the line feed that opens the literal
    while (*text) {
        size_t cells[8] = {}, across = 0;
        while (*text != '\n') {
            if (*text == '+') {
                text++;
                cells[across++] = part;
                glyphs.Names[part++] = CharSet_TakeWord(text);
            } else {
                cells[across++] = CharSet_TakeName(glyphs, text, source.Glyphs);
            }
            while (*text == ' ')
                text++;
        }
        for (size_t y = 0; y < source.Rows; y++)
            for (size_t cell = 0; cell < across; cell++) {
                if (*text++ != (cell ? ' ' : '\n'))
                    throw "a row of the wrong width";
                uint32_t bits = CharSet_ReadPoints(text) << 8;
                if (source.Columns == 16)
                    bits |= CharSet_ReadPoints(text + 8);
                glyphs.Rows[cells[cell]][y] = static_cast<uint16_t>(bits);
                text += source.Columns;
            }
        if (*text++ != '\n')
            throw "a row of the wrong width";
    }
}

/// Draws part `mark`, moved `right` and `down`, over glyph `number`.
consteval void CharSet_Lay(CHARSET_GLYPHS &glyphs, size_t number, size_t mark, int right, int down,
                           const CHARSET_SOURCE &source)
{
    for (size_t y = 0; y < source.Rows; y++) {
        const uint32_t bits = glyphs.Rows[mark][y];
        if (!bits)
            continue;
        const uint32_t moved = right < 0 ? bits << -right : bits >> right;
        const size_t to = y + static_cast<size_t>(down);
        if (moved >> 16 || moved & (0xFFFFu >> source.Columns) ||
            (right < 0 ? moved >> -right : moved << right) != bits || to >= source.Rows)
            throw "a mark leaves its cell";
        glyphs.Rows[number][to] = static_cast<uint16_t>(glyphs.Rows[number][to] | moved);
    }
}

/// Reads a whole set: pictures, then marked letters, then symbols taken from `symbols`.
consteval CHARSET_GLYPHS CharSet_Read(const CHARSET_SOURCE &source, const CHARSET_GLYPHS &symbols)
{
    CHARSET_GLYPHS glyphs{};
    CharSet_ReadPictures(glyphs, source);
    // Line feeds precede, separate and follow the lines.
    for (const char *text = source.Marked; *text;) {
        while (*text == ' ' || *text == '\n')
            text++;
        if (!*text)
            break;
        const size_t number = CharSet_TakeName(glyphs, text, source.Glyphs);
        const size_t base = CharSet_Named(glyphs, CharSet_TakeWord(text));
        const size_t mark = CharSet_Named(glyphs, CharSet_TakeWord(text));
        for (size_t y = 0; y < source.Rows; y++)
            glyphs.Rows[number][y] = glyphs.Rows[base][y];
        const int right = CharSet_TakeNumber(text);
        CharSet_Lay(glyphs, number, mark, right, CharSet_TakeNumber(text), source);
    }
    for (const char *text = source.Symbols; *text;) {
        while (*text == ' ' || *text == '\n')
            text++;
        if (!*text)
            break;
        const size_t number = CharSet_TakeName(glyphs, text, source.Glyphs);
        const size_t symbol = CharSet_Named(symbols, glyphs.Names[number]);
        for (size_t y = 0; y < 8; y++)
            glyphs.Rows[number][(source.Rows - 8u) / 2 + y] = symbols.Rows[symbol][y];
    }
    if (CharSet_Find(glyphs, 0, 0, source.Glyphs) != source.Glyphs)
        throw "a number without a picture";
    return glyphs;
}

/// The table of a set: glyph after glyph, rows from the top, one or two bytes a row, big-endian.
template <const CHARSET_SOURCE &Source>
consteval auto CharSet_Table(const CHARSET_GLYPHS &glyphs)
{
    struct {
        std::array<uint8_t, size_t{Source.Glyphs} * Source.Rows *(Source.Columns / 8)> Table;
    } result{};
    uint8_t *out = result.Table.data();
    for (size_t glyph = 0; glyph < Source.Glyphs; glyph++)
        for (size_t y = 0; y < Source.Rows; y++) {
            const uint32_t points = glyphs.Rows[glyph][y];
            *out++ = static_cast<uint8_t>(points >> 8);
            if (Source.Columns == 16)
                *out++ = static_cast<uint8_t>(points);
        }
    return result.Table;
}
