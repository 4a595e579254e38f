// How a character set is written down, and the reader that turns it into tables while compiling.
// What does not fit together (a row of the wrong width, a number given twice or not at all, a name
// nobody knows, a mark that leaves its cell) does not compile.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "picture/charset.h"

/// Glyphs and parts that one set may have; glyphs have the numbers from 0 on, parts from here.
constexpr size_t CHARSET_MAX_GLYPHS = 256, CHARSET_MAX_PARTS = 64;

/// One set as a person edits it. Names are UTF-8 without spaces.
struct CHARSET_SOURCE {
    CHARSET_SIZE Size;
    /// Blocks of cells side by side: a line of "number name" for each, then their rows, '#' for a
    /// point. "+ name" is a part for letters with marks and no glyph of its own: A5 is an A that
    /// leaves room by having five rows, and where the marks of capitals differ, ´A is theirs.
    std::string_view Pictures;
    /// "number name base mark right down": the base and, moved by so much, the mark.
    std::string_view Marked = {};
    /// "number name": from the symbols that the sets share, in the middle of the cell's rows.
    std::string_view Symbols = {};
};

struct CHARSET_GLYPHS {
    /// Empty for numbers that are not taken.
    std::array<std::string_view, CHARSET_MAX_GLYPHS + CHARSET_MAX_PARTS> Names{};
    /// Rows from the top, the leftmost point in the highest bit.
    std::array<std::array<uint16_t, 16>, CHARSET_MAX_GLYPHS + CHARSET_MAX_PARTS> Rows{};
};

/// Takes the text up to the next '\n', or what is left, from `text`.
consteval std::string_view CharSet_TakeLine(std::string_view &text)
{
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return line;
}

/// Takes the next word from `text`; empty at its end.
consteval std::string_view CharSet_TakeWord(std::string_view &text)
{
    const size_t start = text.find_first_not_of(" \n");
    text.remove_prefix(start == text.npos ? text.size() : start);
    const std::string_view word = text.substr(0, text.find_first_of(" \n"));
    text.remove_prefix(word.size());
    return word;
}

/// The next word as a number.
consteval int CharSet_TakeNumber(std::string_view &text)
{
    std::string_view word = CharSet_TakeWord(text);
    const bool negative = word.starts_with('-');
    word.remove_prefix(negative ? 1 : 0);
    if (word.empty())
        throw "a number is missing";
    int number = 0;
    for (const char digit : word) {
        if (digit < '0' || digit > '9')
            throw "not a number";
        number = number * 10 + (digit - '0');
    }
    return negative ? -number : number;
}

/// Takes "number name" and gives that number the name, if it is free and one of the set's.
consteval size_t CharSet_TakeName(CHARSET_GLYPHS &glyphs, std::string_view &text, size_t count)
{
    const auto number = static_cast<size_t>(CharSet_TakeNumber(text));
    if (number >= count)
        throw "a number that the set does not have";
    if (!glyphs.Names[number].empty())
        throw "a number given twice";
    glyphs.Names[number] = CharSet_TakeWord(text);
    return number;
}

/// The number from `from` to below `to` that has this name, else `to`.
constexpr size_t CharSet_Find(const CHARSET_GLYPHS &glyphs, std::string_view name, size_t from,
                              size_t to)
{
    while (from < to && glyphs.Names[from] != name)
        from++;
    return from;
}

/// The number of the glyph or part that has this name.
constexpr size_t CharSet_Named(const CHARSET_GLYPHS &glyphs, std::string_view name)
{
    const size_t number = CharSet_Find(glyphs, name, 0, glyphs.Names.size());
    if (number == glyphs.Names.size())
        throw "a name that no glyph has";
    return number;
}

/// Reads the blocks of a source's Pictures.
consteval CHARSET_GLYPHS CharSet_ReadPictures(const CHARSET_SOURCE &source)
{
    CHARSET_GLYPHS glyphs;
    const size_t columns = source.Size.Columns;
    size_t part = CHARSET_MAX_GLYPHS;
    std::string_view text = source.Pictures;
    CharSet_TakeLine(text);  // the rest of the line that opens the literal
    while (!text.empty()) {
        std::string_view names = CharSet_TakeLine(text);
        std::array<size_t, 8> cells{};
        size_t across = 0;
        while (!names.empty()) {
            if (names.starts_with("+ ")) {
                CharSet_TakeWord(names);
                glyphs.Names[part] = CharSet_TakeWord(names);
                cells[across++] = part++;
            } else {
                cells[across++] = CharSet_TakeName(glyphs, names, source.Size.Glyphs);
            }
            names.remove_prefix(std::min(names.find_first_not_of(' '), names.size()));
        }
        for (size_t y = 0; y < source.Size.Rows; y++) {
            const std::string_view row = CharSet_TakeLine(text);
            if (row.size() + 1 != across * (columns + 1))
                throw "a row of the wrong width";
            for (size_t cell = 0; cell < across; cell++) {
                uint32_t bits = 0;
                for (const char point : row.substr(cell * (columns + 1), columns)) {
                    if (point != '#' && point != '.')
                        throw "neither a point nor none";
                    bits = bits << 1 | (point == '#');
                }
                glyphs.Rows[cells[cell]][y] = static_cast<uint16_t>(bits << (16 - columns));
            }
        }
    }
    return glyphs;
}

/// Lays part `mark`, moved `right` and `down`, over the rows of glyph `number`.
consteval void CharSet_Lay(CHARSET_GLYPHS &glyphs, size_t number, size_t mark, int right, int down,
                           const CHARSET_SOURCE &source)
{
    for (size_t y = 0; y < source.Size.Rows; y++) {
        const uint32_t bits = glyphs.Rows[mark][y];
        if (!bits)
            continue;
        const uint32_t moved = right < 0 ? bits << -right : bits >> right;
        const size_t to = y + static_cast<size_t>(down);
        if (moved >> 16 || moved & (0xFFFFu >> source.Size.Columns) ||
            (right < 0 ? moved >> -right : moved << right) != bits || to >= source.Size.Rows)
            throw "a mark leaves its cell";
        glyphs.Rows[number][to] = static_cast<uint16_t>(glyphs.Rows[number][to] | moved);
    }
}

/// Reads a whole set: pictures, then marked letters, then what it takes from `symbols`.
consteval CHARSET_GLYPHS CharSet_Read(const CHARSET_SOURCE &source, const CHARSET_GLYPHS &symbols)
{
    CHARSET_GLYPHS glyphs = CharSet_ReadPictures(source);
    std::string_view text = source.Marked;
    while (text.size() > 1) {  // a '\n' closes the literal
        const size_t number = CharSet_TakeName(glyphs, text, source.Size.Glyphs);
        const size_t base = CharSet_Named(glyphs, CharSet_TakeWord(text));
        const size_t mark = CharSet_Named(glyphs, CharSet_TakeWord(text));
        glyphs.Rows[number] = glyphs.Rows[base];
        const int right = CharSet_TakeNumber(text);
        CharSet_Lay(glyphs, number, mark, right, CharSet_TakeNumber(text), source);
    }
    text = source.Symbols;
    while (text.size() > 1) {
        const size_t number = CharSet_TakeName(glyphs, text, source.Size.Glyphs);
        const auto &rows = symbols.Rows[CharSet_Named(symbols, glyphs.Names[number])];
        for (size_t y = 0; y < 8; y++)
            glyphs.Rows[number][(source.Size.Rows - 8) / 2 + y] = rows[y];
    }
    if (CharSet_Find(glyphs, {}, 0, source.Size.Glyphs) != source.Size.Glyphs)
        throw "a number without a picture";
    return glyphs;
}

/// The table of a set: glyph after glyph, rows from the top, one or two bytes a row, big-endian.
template <const CHARSET_SOURCE &Source>
consteval auto CharSet_Table(const CHARSET_GLYPHS &glyphs)
{
    constexpr size_t bytes = Source.Size.Columns / 8;
    std::array<uint8_t, Source.Size.Glyphs * Source.Size.Rows * bytes> table{};
    for (size_t i = 0; i < table.size(); i++) {
        const size_t row = i / bytes;
        const uint32_t points = glyphs.Rows[row / Source.Size.Rows][row % Source.Size.Rows];
        table[i] = static_cast<uint8_t>(i % bytes ? points : points >> 8);
    }
    return table;
}
