#include "picture/charset.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <span>

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

constexpr int32_t CHARSET_Gap = 2;  // between glyphs, points, at every scale

// The sets as parsed from their sources, with the glyph names that the mapping uses.
static constexpr CHARSET_GLYPHS symbols = CharSet_Read(CHARSET_SOURCE_SYMBOLS, {});
static constexpr CHARSET_GLYPHS cplus4 = CharSet_Read(CHARSET_SOURCE_CPLUS4, symbols);
static constexpr CHARSET_GLYPHS cbm = CharSet_Read(CHARSET_SOURCE_CBM, symbols);
static constexpr CHARSET_GLYPHS pc8 = CharSet_Read(CHARSET_SOURCE_PC8, symbols);
static constexpr CHARSET_GLYPHS pc16 = CharSet_Read(CHARSET_SOURCE_PC16, symbols);
static constexpr CHARSET_GLYPHS computer = CharSet_Read(CHARSET_SOURCE_COMPUTER, symbols);
static constexpr CHARSET_GLYPHS cirill = CharSet_Read(CHARSET_SOURCE_CIRILL, symbols);
static constexpr CHARSET_GLYPHS language = CharSet_Read(CHARSET_SOURCE_LANGUAGE, symbols);
static constexpr CHARSET_GLYPHS blitter = CharSet_Read(CHARSET_SOURCE_BLITTER, symbols);

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

namespace
{
struct CHARSET_ROM {
    std::span<const uint8_t> Table;
    CHARSET_SIZE Size;
};

// The mapping of every byte of a text.
struct CHARSET_CODES {
    uint8_t Glyphs[256];
    bool Written[256];  // the glyph shows the byte's character
};
}  // namespace

static consteval CHARSET_SIZE SizeOf(const CHARSET_SOURCE &source)
{
    return {source.Glyphs, source.Columns, source.Rows, source.Blank};
}

static constexpr std::array<CHARSET_ROM, 8> ROMs = {{
    {CHARSET_ROM_CPLUS4, SizeOf(CHARSET_SOURCE_CPLUS4)},
    {CHARSET_ROM_CBM, SizeOf(CHARSET_SOURCE_CBM)},
    {CHARSET_ROM_PC8, SizeOf(CHARSET_SOURCE_PC8)},
    {CHARSET_ROM_PC16, SizeOf(CHARSET_SOURCE_PC16)},
    {CHARSET_ROM_COMPUTER, SizeOf(CHARSET_SOURCE_COMPUTER)},
    {CHARSET_ROM_CIRILL, SizeOf(CHARSET_SOURCE_CIRILL)},
    {CHARSET_ROM_LANGUAGE, SizeOf(CHARSET_SOURCE_LANGUAGE)},
    {CHARSET_ROM_BLITTER, SizeOf(CHARSET_SOURCE_BLITTER)},
}};

// The table of a set; the language sets 6 to 13 share one.
static constexpr const CHARSET_ROM &ROMOf(uint8_t set)
{
    return ROMs[set < 6 ? set : set < 14 ? 6 : 7];
}

static constexpr const char *hungarian = "ÁÉÍÓŐÖÚŰÜáéíóőöúűü";

// The accented letters that each of the sets 6 to 13 has.
static constexpr const char *languages[8] = {
    "",
    hungarian,
    "Éé",
    "ÄÖÜßäöü",
    "ÂĂĹĆÇČÉĚÎÔŮÝâăĺćçčéěîôůý",
    "ÂĂÉÓâăéó",
    "ÁÉÍŇÓÚÜáéíňóúü",
    "ÁÄÇÉËĚĐÓŮÝáäçéëěđóůý",
};

// Positions in CHARSET_ROM_LANGUAGE: set 13's own letters, then the accented letters of the others.
constexpr size_t ownLetters = 109, otherLetters = 175;

// The letter at `text`, two bytes of UTF-8.
static consteval CHARSET_NAME LetterAt(const char *text)
{
    return static_cast<CHARSET_NAME>(static_cast<uint8_t>(text[0]) << 8 |
                                     static_cast<uint8_t>(text[1]));
}

static consteval CHARSET_NAME NameOf(const char *word)
{
    return CharSet_TakeWord(word);
}

namespace
{
struct CHARSET_NAMES {
    CHARSET_NAME Names[256];
};
}  // namespace

// Name of the glyph for each byte; 0 for bytes that are not characters.
static consteval CHARSET_NAMES NamesOfBytes()
{
    CHARSET_NAMES result{};
    result.Names[size_t{' '}] = NameOf("space");
    for (size_t b = 33; b <= 126; b++)
        result.Names[b] = b;
    const char *letters = CharSet_Letters.data();
    for (size_t b = CharSet_FirstLetter; b < 256; b++, letters += 2)
        result.Names[b] = LetterAt(letters);
    result.Names[173] = NameOf("hyphen");
    return result;
}

static constexpr CHARSET_NAMES characters = NamesOfBytes();

static consteval uint8_t ByteOf(CHARSET_NAME letter)
{
    for (size_t b = CharSet_FirstLetter; b < 256; b++)
        if (characters.Names[b] == letter)
            return static_cast<uint8_t>(b);
    throw "a letter that Latin-2 does not have";
}

static consteval CHARSET_CODES Unchanged()
{
    CHARSET_CODES codes{};
    for (size_t b = 0; b < 256; b++)
        codes.Glyphs[b] = static_cast<uint8_t>(b);
    return codes;
}

static consteval void SendHungarian(CHARSET_CODES &codes, const CHARSET_GLYPHS &glyphs)
{
    for (const char *text = hungarian; *text; text += 2)
        codes.Glyphs[ByteOf(LetterAt(text))] =
            static_cast<uint8_t>(CharSet_Named(glyphs, LetterAt(text)));
}

static consteval void FindWritten(CHARSET_CODES &codes, const CHARSET_GLYPHS &glyphs)
{
    for (size_t b = 32; b < 256; b++)
        if (const CHARSET_NAME name = characters.Names[b])
            codes.Written[b] = glyphs.Names[codes.Glyphs[b]] == name;
}

static consteval CHARSET_CODES HomeCodes(const CHARSET_GLYPHS &glyphs)
{
    CHARSET_CODES codes = Unchanged();
    for (size_t b = 65; b <= 96; b++)
        codes.Glyphs[b] = static_cast<uint8_t>(b - 64);
    for (size_t b = 97; b <= 123; b++)
        codes.Glyphs[b] = static_cast<uint8_t>(b + 32);
    SendHungarian(codes, glyphs);
    FindWritten(codes, glyphs);
    return codes;
}

static consteval CHARSET_CODES PCCodes(const CHARSET_GLYPHS &glyphs)
{
    CHARSET_CODES codes = Unchanged();
    SendHungarian(codes, glyphs);
    FindWritten(codes, glyphs);
    return codes;
}

static consteval CHARSET_CODES PlainCodes(const CHARSET_GLYPHS &glyphs)
{
    CHARSET_CODES codes = Unchanged();
    FindWritten(codes, glyphs);
    return codes;
}

// Set 13 searches its own letters first; the other sets skip those.
static consteval uint8_t LanguageGlyph(size_t set, CHARSET_NAME name)
{
    const size_t end = CHARSET_SOURCE_LANGUAGE.Glyphs;
    const size_t places[3][2] = {
        {ownLetters, set == 13 ? otherLetters : ownLetters}, {0, ownLetters}, {otherLetters, end}};
    for (const auto &[from, to] : places)
        if (const size_t number = CharSet_Find(language, name, from, to); number != to)
            return static_cast<uint8_t>(number);
    throw "a letter without a glyph";
}

static consteval CHARSET_CODES LanguageCodes(size_t set)
{
    CHARSET_CODES codes = Unchanged();
    for (size_t b = 32; b <= 125; b++)
        if (b < 94 || b > 96)
            codes.Glyphs[b] = LanguageGlyph(set, characters.Names[b]);
    for (const char *text = languages[set - 6]; *text; text += 2)
        codes.Glyphs[ByteOf(LetterAt(text))] = LanguageGlyph(set, LetterAt(text));
    if (set == 9)
        codes.Glyphs[140] = LanguageGlyph(set, NameOf("ẞ"));  // not in Latin-2
    FindWritten(codes, language);
    return codes;
}

static consteval CHARSET_CODES BlitterCodes()
{
    CHARSET_CODES codes = Unchanged();
    codes.Glyphs[size_t{' '}] = CHARSET_SOURCE_BLITTER.Blank;
    for (size_t b = 33; b <= 122; b++)
        codes.Glyphs[b] = static_cast<uint8_t>(b - 32);
    SendHungarian(codes, blitter);
    FindWritten(codes, blitter);
    return codes;
}

static constexpr CHARSET_CODES codes[CharSet_Sets] = {
    HomeCodes(cplus4),    HomeCodes(cbm),     PCCodes(pc8),      PCCodes(pc16),
    PlainCodes(computer), PlainCodes(cirill), LanguageCodes(6),  LanguageCodes(7),
    LanguageCodes(8),     LanguageCodes(9),   LanguageCodes(10), LanguageCodes(11),
    LanguageCodes(12),    LanguageCodes(13),  BlitterCodes(),
};

CHARSET_SIZE CharSet_GetSize(uint8_t set)
{
    return set < CharSet_Sets ? ROMOf(set).Size : CHARSET_SIZE{};
}

bool CharSet_CanWrite(uint8_t set, uint8_t byte)
{
    return set < CharSet_Sets && codes[set].Written[byte];
}

int32_t CharSet_Pitch(uint8_t set, int16_t scaleX)
{
    return CharSet_GetSize(set).Columns * scaleX + CHARSET_Gap;
}

CHARSET_EXTENT CharSet_TextSize(size_t glyphs, uint8_t set, int16_t scaleX, int16_t scaleY)
{
    if (glyphs == 0 || set >= CharSet_Sets || scaleX < 1 || scaleY < 1)
        return {};
    const auto count = static_cast<int32_t>(std::min<size_t>(glyphs, 255));
    return {count * CharSet_Pitch(set, scaleX) - CHARSET_Gap, CharSet_GetSize(set).Rows * scaleY};
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
        *out++ = set < CharSet_Sets ? codes[set].Glyphs[b] : b;
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
        while (points) {  // runs of adjacent points, from the left
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
    const int32_t pitch = CharSet_Pitch(set, scaleX);
    for (size_t i = 0; glyphs[i]; i++) {
        CharSet_PutChar(x, y, glyphs[i], set, scaleX, scaleY);
        x = static_cast<int16_t>(x + pitch);
    }
}
