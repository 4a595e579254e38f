#include "picture/charset.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/canvas.h"
#include "tests/files.h"

using NUMBERS = std::vector<int>;

static NUMBERS Decoded(const std::string &text, uint8_t set)
{
    std::array<uint8_t, 256> out;
    out.fill(255);
    CharSet_Decode(text.c_str(), set, out.data());
    NUMBERS glyphs;
    for (size_t i = 0; out.at(i); i++)
        glyphs.push_back(out[i]);
    return glyphs;
}

static NUMBERS Picture_Of(uint8_t set, int glyph)
{
    const CHARSET_SIZE size = CharSet_GetSize(set);
    const int bytes = size.Columns / 8 * size.Rows;
    NUMBERS rows;
    for (int i = 0; i < bytes; i++)
        rows.push_back(CharSet_ROM_GetByte(set, static_cast<uint32_t>(glyph * bytes + i)));
    return rows;
}

static std::string Range(char from, char to)
{
    std::string text;
    while (from <= to)
        text += from++;
    return text;
}

constexpr char hungarian[] =
    "\xC1\xC9\xCD\xD3\xD5\xD6\xDA\xDB\xDC\xE1\xE9\xED\xF3\xF5\xF6\xFA\xFB\xFC";

// The glyphs of the bytes from 126 on in all sets; 15 is a number without a set. The digest comes
// from the tables that describe the sets, in Python.
TEST(CharSet, AccentedLetters)
{
    BYTES glyphs;
    for (uint8_t set = 0; set < 16; set++)
        for (int byte = 126; byte < 256; byte++)
            for (const int glyph : Decoded({static_cast<char>(byte)}, set))
                glyphs.push_back(static_cast<uint8_t>(glyph));
    EXPECT_EQ(Digest(glyphs), 0x8ad1387a42055c00u);
}

TEST(CharSet, Texts)
{
    const struct {
        const char *what;
        std::string text;
        NUMBERS sets, glyphs;
    } rows[] = {
        {"home computers", "@AZ[`az{|0 ", {0, 1}, {64, 1, 26, 27, 32, 129, 154, 155, 124, 48, 32}},
        {"ASCII", "@AZ[`az{|0 ", {2, 3, 4, 5, 15}, {64, 65, 90, 91, 96, 97, 122, 123, 124, 48, 32}},
        {"display", "!AZ`az{ ", {14}, {1, 33, 58, 64, 65, 90, 123, 64}},
        {"signs in the order of their glyphs",
         ".,!?:;'\"-+*/()[]{}<>=\\|@#$%&0123456789",
         {6, 7, 8, 9, 10, 11, 12, 13},
         {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
          20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38}},
        {"blank, and no places for some", " ^_`~", {6, 12, 13}, {203, 94, 95, 96, 126}},
        {"letters with gaps for the Hungarian ones",
         "abehijopuvz AB",
         {6, 7, 11},
         {39, 41, 44, 48, 49, 51, 56, 60, 65, 69, 73, 203, 74, 76}},
        {"set 13's own letters",
         Range('a', 'z') + Range('A', 'Z'),
         {13},
         {109, 110, 111, 113, 114, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128,
          129, 130, 131, 132, 133, 134, 135, 138, 139, 140, 141, 143, 144, 146, 147, 148, 149, 150,
          151, 152, 153, 154, 155, 156, 157, 158, 159, 160, 161, 162, 163, 164, 165, 168}},
        {"a Hungarian word", "\xE1rv\xEDzt\xFBr\xF5", {7}, {40, 62, 69, 50, 73, 64, 68, 62, 59}},
        {"cut to 255", std::string(300, 'a'), {4}, NUMBERS(255, 97)},
    };
    for (const auto &r : rows)
        for (const int set : r.sets)
            EXPECT_EQ(Decoded(r.text, static_cast<uint8_t>(set)), r.glyphs)
                << r.what << ", set " << set;
}

// All of ASCII has glyphs, all different, except what the rules map to the blank or leave out.
TEST(CharSet, PlainLetters)
{
    for (uint8_t set = 0; set < CharSet_Sets; set++) {
        const CHARSET_SIZE size = CharSet_GetSize(set);
        const std::string most = Range('!', ']') + Range('a', '}');
        std::set<NUMBERS> seen;
        for (const int glyph : Decoded(set < 6 || set == 14 ? most + "^_~" : most, set))
            EXPECT_TRUE(glyph < size.Glyphs && glyph != size.Blank &&
                        seen.insert(Picture_Of(set, glyph)).second)
                << "glyph " << glyph << " of set " << int{set};
    }
}

// The bytes from '~' on that the set shows as in ISO/IEC 8859-2.
TEST(CharSet, WhatASetCanWrite)
{
    const std::pair<uint8_t, std::string> rows[] = {
        {4, "~"},
        {5, "~"},
        {7, "\xC1\xC8" + std::string(hungarian + 1)},  // glyph 200 has its number by chance
        {9, "\xC4\xC8\xD6\xDC\xDF\xE4\xF6\xFC"},
        {14, std::string("~") + hungarian},
        {15, ""},
    };
    for (const auto &[set, expected] : rows) {
        std::string letters;
        for (int b = 126; b < 256; b++)
            if (CharSet_CanWrite(set, static_cast<uint8_t>(b)))
                letters += static_cast<char>(b);
        EXPECT_EQ(letters, expected) << int{set};
        EXPECT_EQ(CharSet_CanWrite(set, ' '), set < 15);
        EXPECT_FALSE(CharSet_CanWrite(set, 31));
        EXPECT_EQ(CharSet_CanWrite(set, '^'), !expected.empty() && (set < 6 || set == 14));
    }
    for (uint8_t set = 0; set < 3; set++)
        EXPECT_EQ(CharSet_CanWrite(set, 0xA1), set != 2) << "A with ogonek; i with acute in set 2";
}

TEST(CharSet, SizeOfATextIsWhatItFills)
{
    const struct {
        size_t glyphs;
        uint8_t set;
        int16_t scaleX, scaleY;
        int width, height;
    } rows[] = {
        {1, 2, 1, 1, 8, 8},
        {2, 14, 1, 2, 34, 32},
        {3, 3, 2, 1, 52, 16},
        {300, 0, 1, 1, 2548, 8},
        {0, 0, 1, 1, 0, 0},
        {1, 0, 0, 1, 0, 0},
        {1, 0, 1, -1, 0, 0},
        {1, 15, 1, 1, 0, 0},
        {255, 3, 32767, 32767, 255 * (8 * 32767 + 2) - 2, 16 * 32767},
    };
    for (const auto &r : rows) {
        const CHARSET_EXTENT size = CharSet_TextSize(r.glyphs, r.set, r.scaleX, r.scaleY);
        EXPECT_EQ(size.Width, r.width) << r.glyphs << " of set " << int{r.set};
        EXPECT_EQ(size.Height, r.height) << r.glyphs << " of set " << int{r.set};
    }
}

TEST(CharSet, Bytes)
{
    const auto &table = CHARSET_ROM_PC16;
    EXPECT_EQ(CharSet_ROM_GetByte(3, 65 * 16 + 12), table[65 * 16 + 12]);
    EXPECT_EQ(CharSet_ROM_GetByte(3, 65536 + 65 * 16 + 12), table[65 * 16 + 12]);
    EXPECT_EQ(CharSet_ROM_GetByte(14, 4095), 0xFF);  // the last glyph is a block
    EXPECT_EQ(CharSet_ROM_GetByte(14, 4096) + CharSet_ROM_GetByte(14, 65535), 0);
    EXPECT_EQ(CharSet_ROM_GetByte(15, 0) + CharSet_ROM_GetByte(255, 9), 0);
    EXPECT_EQ(CharSet_GetSize(15).Glyphs, 0);
    BYTES shapes;
    for (uint8_t set = 0; set < CharSet_Sets; set++)
        for (uint32_t i = 0; i < 4096; i++)
            shapes.push_back(CharSet_ROM_GetByte(set, i));
    EXPECT_EQ(Digest(shapes), 6977890307962875182u) << "the glyphs as looked at";
}

TEST(CharSet, Points)
{
    std::string full;
    for (int y = 0; y < 20; y++)
        full += (y == 0 ? "" : "/") + std::string(40, '#');
    const std::tuple<const char *, std::function<void()>, std::string> rows[] = {
        // Glyph 2 of set 2 and glyph 4 of set 3 are corners of lines, 26 and 30 blocks.
        {"a corner", [] { CharSet_PutChar(1, 0, 2, 2, 1, 1); },
         "///....#####/....#/....#/....#/....#"},
        {"wider", [] { CharSet_PutChar(0, 1, 2, 2, 2, 1); },
         "////......##########/......##/......##/......##/......##"},
        {"16 rows", [] { CharSet_PutChar(0, 0, 4, 3, 1, 1); },
         "...##/...##/...##/...##/...##/...##/...##/...#####/...#####"},
        {"no scale", [] { CharSet_PutChar(8, 8, 26, 2, 0, 1), CharSet_PutChar(8, 8, 26, 2, 1, 0); },
         ""},
        // The right half of a block: its column 4 starts at 65536, which is 0.
        {"coordinates wrap", [] { CharSet_PutChar(0, 0, 30, 2, 16384, 4); }, full},
        {"text in set 4", [] { CharSet_PutText(0, 0, "\"' '", 4, 1, 1); },
         "..#.#........#...................#/..#.#........#...................#/"
         "..#.#.......#...................#"},
        {"letters with marks", [] { CharSet_PutText(0, 0, "\xC9l\xF5", 2, 1, 1); },
         "...##.......##.........#.#/.#####.......#........#.#/.#...........#/"
         ".####........#........###/.#...........#.......#...#/"
         ".#...........#.......#...#/.#####.......##.......###"},
        {"set 14's pitch", [] { CharSet_PutText(0, -13, "__", 14, 1, 1); },
         "/################..################/################..################"},
    };
    for (const auto &[what, draw, drawn] : rows)
        EXPECT_EQ(Drawn(40, 20, draw), drawn) << what;
}

TEST(CharSet, AnythingMayBeDrawn)
{
    const CANVAS canvas(40, 20);
    std::string all;
    for (int b = 1; b < 256; b++)
        all += static_cast<char>(b);
    for (int set = 0; set < 256; set++)
        for (const int16_t scale : std::initializer_list<int16_t>{-32768, -1, 0, 1, 2, 300, 32767})
            CharSet_PutText(scale, 0, all.c_str(), static_cast<uint8_t>(set), scale, 2);
}
