#include "picture/charset.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "picture/graphics.h"
#include "picture/picture.h"

using BYTES = std::vector<int>;

static BYTES Decoded(const std::string &text, uint8_t set)
{
    std::array<uint8_t, 256> out;
    out.fill(255);
    CharSet_Decode(text.c_str(), set, out.data());
    BYTES glyphs;
    for (size_t i = 0; out.at(i); i++)
        glyphs.push_back(out[i]);
    return glyphs;
}

static BYTES Picture_Of(uint8_t set, int glyph)
{
    const CHARSET_SIZE size = CharSet_GetSize(set);
    const int bytes = size.Columns / 8 * size.Rows;
    BYTES rows;
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

// Draws on a fresh target of 40 by 20 and gives its points of the current colour, without the dots
// and slashes at the end of rows and text.
static std::string Drawn(const std::function<void()> &draw)
{
    constexpr int16_t width = 40, height = 20;
    std::vector<uint8_t> pixels(width * height * 4, 9);
    Picture target{};
    target.Width = target.BufferWidth = width;
    target.Height = target.BufferHeight = height;
    target.Pixels = pixels.data();
    Graphics_SetTarget(&target);
    Graphics_SetColor(1, 2, 3, 4);
    draw();
    std::string text;
    for (int16_t y = 0; y < height; y++) {
        for (int16_t x = 0; x < width; x++)
            text += Graphics_GetPixel(x, y) == 0x04030201   ? '#'
                    : Graphics_GetPixel(x, y) == 0x09090909 ? '.'
                                                            : '?';
        text = text.substr(0, text.find_last_not_of('.') + 1) + '/';
    }
    Graphics_SetTarget(nullptr);
    return text.substr(0, text.find_last_not_of('/') + 1);
}

TEST(CharSet, AccentedLetters)
{
    using ROWS = std::map<int, int>;
    const ROWS home = {{193, 235}, {201, 241}, {205, 226}, {211, 249}, {213, 227}, {214, 247},
                       {218, 248}, {219, 251}, {220, 243}, {225, 240}, {233, 236}, {237, 225},
                       {243, 246}, {245, 229}, {246, 244}, {250, 245}, {251, 242}, {252, 238}};
    const ROWS pc = {{193, 143}, {201, 144}, {205, 152}, {211, 149}, {213, 141}, {214, 153},
                     {218, 151}, {219, 150}, {220, 154}, {225, 160}, {233, 130}, {237, 161},
                     {243, 162}, {245, 147}, {246, 148}, {250, 163}, {251, 139}, {252, 129}};
    const std::vector<ROWS> rows = {
        home,
        home,
        pc,
        pc,
        {},
        {},
        {},
        {{193, 75},
         {201, 80},
         {205, 85},
         {211, 92},
         {213, 94},
         {214, 93},
         {218, 101},
         {219, 103},
         {220, 102},
         {225, 40},
         {233, 45},
         {237, 50},
         {243, 57},
         {245, 59},
         {246, 58},
         {250, 66},
         {251, 68},
         {252, 67}},
        {{201, 80}, {233, 45}},
        {{140, 178},
         {196, 176},
         {214, 93},
         {220, 102},
         {223, 177},
         {228, 175},
         {246, 58},
         {252, 67}},
        {{194, 184}, {195, 182}, {197, 194}, {198, 188}, {199, 186}, {200, 200},
         {201, 80},  {204, 190}, {206, 192}, {212, 196}, {217, 198}, {221, 202},
         {226, 183}, {227, 181}, {229, 193}, {230, 187}, {231, 185}, {232, 199},
         {233, 45},  {236, 189}, {238, 191}, {244, 195}, {249, 197}, {253, 201}},
        {{194, 184},
         {195, 182},
         {201, 80},
         {211, 92},
         {226, 183},
         {227, 181},
         {233, 45},
         {243, 57}},
        {{193, 75},
         {201, 80},
         {205, 85},
         {210, 180},
         {211, 92},
         {218, 101},
         {220, 102},
         {225, 40},
         {233, 45},
         {237, 50},
         {242, 179},
         {243, 57},
         {250, 66},
         {252, 67}},
        {{193, 170}, {196, 174}, {199, 142}, {201, 80},  {203, 145}, {204, 190}, {208, 172},
         {211, 92},  {217, 167}, {221, 166}, {225, 169}, {228, 173}, {231, 112}, {233, 45},
         {235, 115}, {236, 189}, {240, 171}, {243, 57},  {249, 137}, {253, 136}},
        {{193, 98},
         {201, 100},
         {205, 102},
         {211, 104},
         {213, 108},
         {214, 106},
         {218, 110},
         {219, 114},
         {220, 112},
         {225, 97},
         {233, 99},
         {237, 101},
         {243, 103},
         {245, 107},
         {246, 105},
         {250, 109},
         {251, 113},
         {252, 111}},
        {}, // a number without a set
    };
    for (uint8_t set = 0; set < rows.size(); set++) {
        const ROWS &letters = rows[set];
        for (int b = 126; b < 256; b++) // all others stay as they are
            EXPECT_EQ(Decoded({static_cast<char>(b)}, set),
                      BYTES{letters.contains(b) ? letters.at(b) : b})
                << "byte " << b << " of set " << int{set};
    }
}

TEST(CharSet, Texts)
{
    const struct {
        const char *what;
        std::string text;
        BYTES sets, glyphs;
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
        {"cut to 255", std::string(300, 'a'), {4}, BYTES(255, 97)},
    };
    for (const auto &r : rows)
        for (const int set : r.sets)
            EXPECT_EQ(Decoded(r.text, static_cast<uint8_t>(set)), r.glyphs)
                << r.what << ", set " << set;
}

TEST(CharSet, EveryGlyphIsItself)
{
    // Glyphs that look like another of a lower number, on purpose: soft hyphens, and Latin capitals
    // with the shape of Cyrillic ones.
    const std::map<int, BYTES> same = {{0, {173}},
                                       {1, {173}},
                                       {2, {173}},
                                       {3, {173}},
                                       {5, {65, 66, 67, 69, 72, 75, 77, 79, 80, 84, 88}}};
    const std::map<int, BYTES> empty = {{0, {32, 160}}, {1, {32, 160}}, {2, {32}}, {3, {32}},
                                        {4, {32}},      {5, {32}},      {14, {64}}};
    for (uint8_t set = 0; set < CharSet_Sets; set++) {
        std::set<BYTES> seen;
        BYTES repeated, blank;
        const CHARSET_SIZE size = CharSet_GetSize(set);
        for (int glyph = 0; glyph < size.Glyphs; glyph++) {
            const BYTES rows = Picture_Of(set, glyph);
            if (std::ranges::count(rows, 0) == std::ssize(rows))
                blank.push_back(glyph);
            else if (!seen.insert(rows).second)
                repeated.push_back(glyph);
        }
        EXPECT_EQ(repeated, same.contains(set) ? same.at(set) : BYTES{}) << int{set};
        EXPECT_EQ(blank, empty.contains(set) ? empty.at(set) : BYTES{203}) << int{set};
        // All of ASCII has pictures, but for what the rules send to the blank or leave out.
        std::string ascii = Range('!', ']') + Range('a', '}');
        if (set < 6 || set == 14)
            ascii += "^_~";
        seen.clear();
        for (const int glyph : Decoded(ascii, set))
            EXPECT_TRUE(glyph < size.Glyphs && glyph != size.Blank &&
                        seen.insert(Picture_Of(set, glyph)).second)
                << "glyph " << glyph << " of set " << int{set};
    }
}

TEST(CharSet, Bytes)
{
    const auto &table = CHARSET_ROM_PC16;
    EXPECT_EQ(CharSet_ROM_GetByte(3, 65 * 16 + 12), table[65 * 16 + 12]);
    EXPECT_EQ(CharSet_ROM_GetByte(3, 65536 + 65 * 16 + 12), table[65 * 16 + 12]);
    EXPECT_EQ(CharSet_ROM_GetByte(14, 4095), 0xFF); // the last glyph is a block
    for (const uint32_t past : {4096u, 65535u})
        EXPECT_EQ(CharSet_ROM_GetByte(14, past), 0);
    EXPECT_EQ(CharSet_ROM_GetByte(15, 0) + CharSet_ROM_GetByte(255, 9), 0);
    EXPECT_EQ(CharSet_GetSize(15).Glyphs, 0);
}

TEST(CharSet, Points)
{
    const std::string full = [] {
        std::string text;
        for (int y = 0; y < 20; y++)
            text += std::string(40, '#') + (y < 19 ? "/" : "");
        return text;
    }();
    const struct {
        const char *what;
        std::function<void()> draw;
        std::string drawn;
    } rows[] = {
        // Glyph 2 of set 2 and glyph 4 of set 3 are corners of lines, 26 and 30 blocks.
        {"a corner", [] { CharSet_PutChar(1, 0, 2, 2, 1, 1); },
         "///....#####/....#/....#/....#/....#"},
        {"wider", [] { CharSet_PutChar(0, 1, 2, 2, 2, 1); },
         "////......##########/......##/......##/......##/......##"},
        {"higher", [] { CharSet_PutChar(0, -4, 2, 2, 1, 2); },
         "//...#####/...#####/...#/...#/...#/...#/...#/...#/...#/...#"},
        {"16 rows", [] { CharSet_PutChar(0, 0, 4, 3, 1, 1); },
         "...##/...##/...##/...##/...##/...##/...##/...#####/...#####"},
        {"over the edges", [] { CharSet_PutChar(-5, -3, 2, 2, 1, 1); }, "###"},
        {"no scale",
         [] {
             CharSet_PutChar(8, 8, 26, 2, 0, 1);
             CharSet_PutChar(8, 8, 26, 2, 1, 0);
         },
         ""},
        {"a negative one", [] { CharSet_PutChar(8, 8, 26, 2, -1, 1); }, ""},
        {"a huge one", [] { CharSet_PutChar(0, 0, 26, 2, 32767, 32767); }, full},
        // The right half of a block: its column 4 starts at 65536, which is 0.
        {"coordinates wrap", [] { CharSet_PutChar(0, 0, 30, 2, 16384, 4); }, full},
        {"the blank", [] { CharSet_PutText(0, 0, " ", 6, 1, 1); }, ""},
        {"glyphs past the table",
         [] {
             CharSet_PutChar(0, 0, 128, 4, 1, 1);
             CharSet_PutChar(0, 0, 255, 14, 1, 1);
         },
         ""},
        {"no such set", [] { CharSet_PutText(0, 0, "abc", 15, 1, 1); }, ""},
        {"text in set 4", [] { CharSet_PutText(0, 0, "\"' '", 4, 1, 1); },
         "..#.#........#...................#/..#.#........#...................#/"
         "..#.#.......#...................#"},
        {"letters with marks", [] { CharSet_PutText(0, 0, "\xC9l\xF5", 2, 1, 1); },
         "....#.......##.........#.#/...#.........#........#.#/.#####.......#/"
         ".#...........#........###/.####........#.......#...#/"
         ".#...........#.......#...#/.#####.......##.......###"},
        {"the gap is not scaled", [] { CharSet_PutText(0, 0, "''", 4, 2, 1); },
         "......##................##/......##................##/....##................##"},
        {"set 14's pitch", [] { CharSet_PutText(0, -13, "__", 14, 1, 1); },
         "/################..################/################..################"},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Drawn(r.draw), r.drawn) << r.what;
}

TEST(CharSet, AnythingMayBeDrawn)
{
    std::string all;
    for (int b = 1; b < 256; b++)
        all += static_cast<char>(b);
    for (int set = 0; set < 256; set++)
        for (const int16_t scale : std::initializer_list<int16_t>{-32768, -1, 0, 1, 2, 300, 32767})
            EXPECT_EQ(Drawn([&] {
                          CharSet_PutText(scale, 0, all.c_str(), static_cast<uint8_t>(set), scale,
                                          2);
                      }).find('?'),
                      std::string::npos);
}
