#include "picture/charset.h"

#include <bit>
#include <cstddef>
#include <span>
#include <string_view>

#include "picture/charsets/blitter.h"
#include "picture/charsets/cbm.h"
#include "picture/charsets/cirill.h"
#include "picture/charsets/computer.h"
#include "picture/charsets/cplus4.h"
#include "picture/charsets/language.h"
#include "picture/charsets/pc16.h"
#include "picture/charsets/pc8.h"
#include "picture/charsets/symbols.h"
#include "picture/graphics.h"

// The sets as they were read, with the names that the translation goes by.
constexpr CHARSET_GLYPHS symbols = CharSet_Read(CHARSET_SOURCE_SYMBOLS, {});
constexpr CHARSET_GLYPHS cplus4 = CharSet_Read(CHARSET_SOURCE_CPLUS4, symbols);
constexpr CHARSET_GLYPHS cbm = CharSet_Read(CHARSET_SOURCE_CBM, symbols);
constexpr CHARSET_GLYPHS pc8 = CharSet_Read(CHARSET_SOURCE_PC8, symbols);
constexpr CHARSET_GLYPHS pc16 = CharSet_Read(CHARSET_SOURCE_PC16, symbols);
constexpr CHARSET_GLYPHS computer = CharSet_Read(CHARSET_SOURCE_COMPUTER, symbols);
constexpr CHARSET_GLYPHS cirill = CharSet_Read(CHARSET_SOURCE_CIRILL, symbols);
constexpr CHARSET_GLYPHS language = CharSet_Read(CHARSET_SOURCE_LANGUAGE, symbols);
constexpr CHARSET_GLYPHS blitter = CharSet_Read(CHARSET_SOURCE_BLITTER, symbols);

constinit const std::array<uint8_t, 2048> CHARSET_ROM_CPLUS4 =
    CharSet_Table<CHARSET_SOURCE_CPLUS4>(cplus4);
constinit const std::array<uint8_t, 2048> CHARSET_ROM_CBM = CharSet_Table<CHARSET_SOURCE_CBM>(cbm);
constinit const std::array<uint8_t, 2048> CHARSET_ROM_PC8 = CharSet_Table<CHARSET_SOURCE_PC8>(pc8);
constinit const std::array<uint8_t, 4096> CHARSET_ROM_PC16 =
    CharSet_Table<CHARSET_SOURCE_PC16>(pc16);
constinit const std::array<uint8_t, 1024> CHARSET_ROM_COMPUTER =
    CharSet_Table<CHARSET_SOURCE_COMPUTER>(computer);
constinit const std::array<uint8_t, 1024> CHARSET_ROM_CIRILL =
    CharSet_Table<CHARSET_SOURCE_CIRILL>(cirill);
constinit const std::array<uint8_t, 1632> CHARSET_ROM_LANGUAGE =
    CharSet_Table<CHARSET_SOURCE_LANGUAGE>(language);
constinit const std::array<uint8_t, 4096> CHARSET_ROM_BLITTER =
    CharSet_Table<CHARSET_SOURCE_BLITTER>(blitter);

struct CHARSET_ROM {
    std::span<const uint8_t> Table;
    CHARSET_SIZE Size;
};

static constexpr std::array<CHARSET_ROM, 8> ROMs = {{
    {CHARSET_ROM_CPLUS4, CHARSET_SOURCE_CPLUS4.Size},
    {CHARSET_ROM_CBM, CHARSET_SOURCE_CBM.Size},
    {CHARSET_ROM_PC8, CHARSET_SOURCE_PC8.Size},
    {CHARSET_ROM_PC16, CHARSET_SOURCE_PC16.Size},
    {CHARSET_ROM_COMPUTER, CHARSET_SOURCE_COMPUTER.Size},
    {CHARSET_ROM_CIRILL, CHARSET_SOURCE_CIRILL.Size},
    {CHARSET_ROM_LANGUAGE, CHARSET_SOURCE_LANGUAGE.Size},
    {CHARSET_ROM_BLITTER, CHARSET_SOURCE_BLITTER.Size},
}};

// The ROM of a set that has one; the language sets 6 to 13 share theirs.
static constexpr const CHARSET_ROM &ROMOf(uint8_t set)
{
    return ROMs[set < 6 ? set : set < 14 ? 6 : 7];
}

// The glyph number of every byte of a text.
using CHARSET_CODES = std::array<uint8_t, 256>;

constexpr std::string_view hungarian = "ÁÉÍÓŐÖÚŰÜáéíóőöúűü";

// The accented letters that each of the sets 6 to 13 knows.
constexpr std::array<std::string_view, 8> languages = {
    "",
    hungarian,
    "Éé",
    "ÄÖÜßäöü",
    "ÂĂĹĆÇČÉĚÎÔŮÝâăĺćçčéěîôůý",
    "ÂĂÉÓâăéó",
    "ÁÉÍŇÓÚÜáéíňóúü",
    "ÁÄÇÉËĚĐÓŮÝáäçéëěđóůý",
};

// In CHARSET_ROM_LANGUAGE: set 13's own letters, then the accented letters of the others.
constexpr size_t ownLetters = 109, otherLetters = 175;

static consteval CHARSET_CODES Unchanged()
{
    CHARSET_CODES codes{};
    for (size_t b = 0; b < codes.size(); b++)
        codes[b] = static_cast<uint8_t>(b);
    return codes;
}

// Sends the byte of each letter to the number that find(letter) gives.
template <typename Find>
static consteval void SendLetters(CHARSET_CODES &codes, std::string_view letters, Find find)
{
    for (; !letters.empty(); letters.remove_prefix(2)) {
        const std::string_view letter = letters.substr(0, 2);
        codes.at(CharSet_FirstLetter + CharSet_Letters.find(letter) / 2) =
            static_cast<uint8_t>(find(letter));
    }
}

static consteval void SendHungarian(CHARSET_CODES &codes, const CHARSET_GLYPHS &glyphs)
{
    SendLetters(codes, hungarian,
                [&](std::string_view letter) { return CharSet_Named(glyphs, letter); });
}

static consteval CHARSET_CODES HomeCodes(const CHARSET_GLYPHS &glyphs)
{
    CHARSET_CODES codes = Unchanged();
    for (uint8_t b = 65; b <= 96; b++)
        codes[b] = b - 64;
    for (uint8_t b = 97; b <= 123; b++)
        codes[b] = b + 32;
    SendHungarian(codes, glyphs);
    return codes;
}

static consteval CHARSET_CODES PCCodes(const CHARSET_GLYPHS &glyphs)
{
    CHARSET_CODES codes = Unchanged();
    SendHungarian(codes, glyphs);
    return codes;
}

static consteval CHARSET_CODES LanguageCodes(size_t set)
{
    struct {
        size_t From, To;
    } const places[] = {
        {ownLetters, set == 13 ? otherLetters : ownLetters},
        {0, ownLetters},
        {otherLetters, CHARSET_SOURCE_LANGUAGE.Size.Glyphs},
    };
    const auto find = [&](std::string_view name) {
        for (const auto &place : places)
            if (const size_t n = CharSet_Find(language, name, place.From, place.To); n != place.To)
                return n;
        throw "a letter without a glyph";
    };
    CHARSET_CODES codes = Unchanged();
    codes[' '] = CHARSET_SOURCE_LANGUAGE.Size.Blank;
    for (uint8_t b = 33; b <= 125; b++) {
        const char name = static_cast<char>(b);
        if (b < 94 || b > 96)
            codes[b] = static_cast<uint8_t>(find({&name, 1}));
    }
    SendLetters(codes, languages[set - 6], find);
    if (set == 9)
        codes[140] = static_cast<uint8_t>(find("ẞ"));  // Latin-2 has none
    return codes;
}

static consteval CHARSET_CODES BlitterCodes()
{
    CHARSET_CODES codes = Unchanged();
    codes[' '] = CHARSET_SOURCE_BLITTER.Size.Blank;
    for (uint8_t b = 33; b <= 122; b++)
        codes[b] = b - 32;
    SendHungarian(codes, blitter);
    return codes;
}

static constexpr std::array<CHARSET_CODES, CharSet_Sets> codes = {
    HomeCodes(cplus4), HomeCodes(cbm),    PCCodes(pc8),      PCCodes(pc16),     Unchanged(),
    Unchanged(),       LanguageCodes(6),  LanguageCodes(7),  LanguageCodes(8),  LanguageCodes(9),
    LanguageCodes(10), LanguageCodes(11), LanguageCodes(12), LanguageCodes(13), BlitterCodes(),
};

CHARSET_SIZE CharSet_GetSize(uint8_t set)
{
    return set < CharSet_Sets ? ROMOf(set).Size : CHARSET_SIZE{};
}

uint8_t CharSet_ROM_GetByte(uint8_t set, uint32_t index)
{
    if (set >= CharSet_Sets)
        return 0;
    const std::span<const uint8_t> table = ROMOf(set).Table;
    const size_t at = index % 65536;
    return at < table.size() ? table[at] : uint8_t{0};
}

void CharSet_Decode(const char *text, uint8_t set, uint8_t *out)
{
    for (int i = 0; i < 255 && *text; i++) {
        const auto b = static_cast<uint8_t>(*text++);
        *out++ = set < CharSet_Sets ? codes[set][b] : b;
    }
    *out = 0;
}

void CharSet_PutChar(int16_t x, int16_t y, uint8_t glyph, uint8_t set, int16_t scaleX,
                     int16_t scaleY)
{
    if (set >= CharSet_Sets)
        return;
    const auto &[table, size] = ROMOf(set);
    if (glyph == size.Blank || glyph >= size.Glyphs)
        return;
    const size_t bytes = size.Columns / 8;
    auto rows = table.subspan(glyph * size.Rows * bytes);
    for (int r = 0; r < size.Rows; r++, rows = rows.subspan(bytes)) {
        const auto top = static_cast<int16_t>(y + r * scaleY);
        auto points = static_cast<uint16_t>(rows[0] << 8 | (bytes == 2 ? rows[1] : 0));
        while (points) {  // from the left, neighbours at once
            const int start = std::countl_zero(points);
            const int count = std::countl_one(static_cast<uint16_t>(points << start));
            Graphics_PutBlock(static_cast<int16_t>(x + start * scaleX), top, count * scaleX,
                              scaleY);
            points &= static_cast<uint16_t>(0xFFFF >> (start + count));
        }
    }
}

void CharSet_PutText(int16_t x, int16_t y, const char *text, uint8_t set, int16_t scaleX,
                     int16_t scaleY)
{
    std::array<uint8_t, 256> glyphs;
    CharSet_Decode(text, set, glyphs.data());
    const int pitch = set == 14 ? 16 : 8;
    for (size_t i = 0; glyphs[i]; i++) {
        CharSet_PutChar(x, y, glyphs[i], set, scaleX, scaleY);
        x = static_cast<int16_t>(x + pitch * scaleX + 2);
    }
}
