#include "tools/viewer/sheet.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "picture/charset.h"
#include "picture/graphics.h"
#include "tools/common/text.h"

constexpr uint8_t Sheet_Set = 3;          // for the viewer's own texts
constexpr uint8_t Sheet_CyrillicSet = 5;  // capitals from A start at glyph 0, YO is 127
constexpr uint8_t Sheet_SpanishSet = 12;  // n with tilde where other sets have n with caron
constexpr std::array<const char *, 9> Sheet_Samples = {
    "The quick brown fox jumps over the lazy dog.",
    "THE QUICK BROWN FOX JUMPS OVER THE LAZY DOG.",
    "0123456789",
    "Árvíztűrő tükörfúrógép, ÁRVÍZTŰRŐ TÜKÖRFÚRÓGÉP",
    "Příliš žluťoučký kůň úpěl ďábelské ódy",
    "Zażółć gęślą jaźń",
    "Fünf größere Äpfel, Öl und Übermut",
    "Ştiinţă şi ţară în pământ",
    "Ľubozvučný vták, stĺp a ŕba",
};
constexpr const char *Sheet_Spanish = "El pingüino y el niňo: ÁÉÍÓÚ áéíóú üňŇ";
constexpr const char *Sheet_Russian = "СЪЕШЬ ЕЩЁ ЭТИХ МЯГКИХ БУЛОК ДА ВЫПЕЙ ЧАЮ";

// Draws into an image.
template <typename Drawing>
static void Draw(VIEWER_IMAGE &image, uint8_t grey, const Drawing &drawing)
{
    Picture target{};
    target.Width = target.BufferWidth = static_cast<uint16_t>(image.Width);
    target.Height = target.BufferHeight = static_cast<uint16_t>(image.Height);
    target.Pixels = image.Pixels.data();
    Graphics_SetTarget(&target);
    Graphics_SetColor(grey, grey, grey, 255);
    drawing();
    Graphics_SetTarget(nullptr);
}

static VIEWER_IMAGE Blank(uint32_t width, uint32_t height, uint8_t alpha, uint8_t grey)
{
    VIEWER_IMAGE image{width, height, BYTES_BUFFER(size_t{width} * height * 4, grey)};
    for (size_t i = 3; i < image.Pixels.size(); i += 4)
        image.Pixels[i] = alpha;
    return image;
}

// The byte of ISO/IEC 8859-2; 0 if it has none.
static uint8_t ByteOf(char32_t character)
{
    if (character >= ' ' && character < 127)
        return static_cast<uint8_t>(character);
    std::string letter;
    Text_Put(letter, character);
    const size_t at = letter.size() == 2 ? CharSet_Letters.find(letter) : std::string::npos;
    return at == std::string::npos || at % 2 != 0
               ? uint8_t{0}
               : static_cast<uint8_t>(CharSet_FirstLetter + at / 2);
}

static uint8_t CyrillicByte(char32_t character)
{
    if (character == U'Ё')
        return 127;
    // A text cannot contain number 0, the letter A; the Latin letter has its shape.
    return character == U'А'                        ? uint8_t{'A'}
           : character >= U'Б' && character <= U'Я' ? static_cast<uint8_t>(character - U'А')
                                                    : ByteOf(character);
}

// The sample texts that the set can write, encoded for it.
static std::vector<std::string> SamplesOf(uint8_t set)
{
    std::vector<std::string> samples;
    const auto add = [&](std::string_view utf8, uint8_t (*byteOf)(char32_t), bool checked) {
        std::string text;
        while (!utf8.empty()) {
            const uint8_t byte = byteOf(Text_Take(utf8).value_or(U'?'));
            if (byte == 0 || (checked && !CharSet_CanWrite(set, byte)))
                return;
            text += static_cast<char>(byte);
        }
        samples.push_back(text);
    };
    for (const char *sample : Sheet_Samples)
        add(sample, ByteOf, true);
    if (set == Sheet_SpanishSet)
        add(Sheet_Spanish, ByteOf, true);
    if (set == Sheet_CyrillicSet)
        add(Sheet_Russian, CyrillicByte, false);
    return samples;
}

VIEWER_IMAGE Sheet_Glyphs(uint8_t set)
{
    constexpr uint32_t across = 16, gap = 6, labels = 32;
    const CHARSET_SIZE size = CharSet_GetSize(set);
    const uint8_t numbers = size.Rows <= 8 ? 2 : Sheet_Set;  // a set of the same height
    const CHARSET_SIZE small = CharSet_GetSize(numbers);
    const uint32_t cellWidth = std::max<uint32_t>(size.Columns, 2 * small.Columns + 2u) + gap;
    const uint32_t cellHeight = std::max<uint32_t>(size.Rows, small.Rows) + gap;
    const uint32_t rows = (size.Glyphs + across - 1) / across;
    const std::vector<std::string> samples = SamplesOf(set);
    int32_t longest = 0;
    for (const std::string &sample : samples)
        longest = std::max(longest, CharSet_TextSize(sample.size(), set, 1, 1).Width);

    const uint32_t top = Sheet_Margin + small.Rows + gap;
    const uint32_t below = top + rows * cellHeight + gap, line = size.Rows + gap;
    VIEWER_IMAGE image =
        Blank(std::max(labels + across * cellWidth, static_cast<uint32_t>(longest) + Sheet_Margin) +
                  Sheet_Margin,
              below + static_cast<uint32_t>(samples.size()) * line + Sheet_Margin, 255, 255);
    const auto at = [](uint32_t n) { return static_cast<int16_t>(n); };
    const auto x = [&](uint32_t column) { return at(labels + column * cellWidth); };
    const auto y = [&](uint32_t row) { return at(top + row * cellHeight); };
    Draw(image, 150, [&] {
        std::array<char, 8> number;
        for (uint32_t column = 0; column < across; column++) {
            std::snprintf(number.data(), number.size(), "%X", column);
            CharSet_PutText(x(column), Sheet_Margin, number.data(), numbers, 1, 1);
        }
        for (uint32_t row = 0; row < rows; row++) {
            std::snprintf(number.data(), number.size(), "%02X", row * across);
            CharSet_PutText(Sheet_Margin / 2, y(row), number.data(), numbers, 1, 1);
        }
    });
    Draw(image, 0, [&] {
        for (uint32_t i = 0; i < size.Glyphs; i++)
            CharSet_PutChar(x(i % across), y(i / across), static_cast<uint8_t>(i), set, 1, 1);
        for (uint32_t i = 0; i < samples.size(); i++)
            CharSet_PutText(Sheet_Margin, at(below + i * line), samples[i].c_str(), set, 1, 1);
    });
    return image;
}

VIEWER_IMAGE Sheet_Lines(std::span<const std::string> lines)
{
    constexpr uint8_t ground = 200;
    const uint32_t height = CharSet_GetSize(Sheet_Set).Rows + 4u;
    size_t longest = 0;
    for (const std::string &line : lines)
        longest = std::max(longest, std::min<size_t>(line.size(), 255));
    VIEWER_IMAGE image =
        Blank(static_cast<uint32_t>(longest) * Sheet_LetterWidth + 2 * Sheet_Margin,
              static_cast<uint32_t>(lines.size()) * height + Sheet_Margin, ground, 0);
    Draw(image, 255, [&] {
        uint32_t y = Sheet_Margin / 2 + 2;
        for (const std::string &line : lines) {
            CharSet_PutText(Sheet_Margin, static_cast<int16_t>(y), line.c_str(), Sheet_Set, 1, 1);
            y += height;
        }
    });
    return image;
}

// A substitute for a character that Latin-2 does not have.
static std::string Substitute(char32_t character)
{
    // U+00C0 to U+00FF without accents.
    constexpr std::string_view plain =
        "AAAAAAACEEEEIIIIDNOOOOOxOUUUUYTsaaaaaaaceeeeiiiidnooooo/ouuuuyty";
    static_assert(plain.size() == 64);
    if (character >= 0xC0 && character <= 0xFF)
        return std::string(1, plain[character - 0xC0]);
    switch (character) {
    case 0x00A0:
        return " ";
    case 0x2010:
    case 0x2013:
    case 0x2014:
        return "-";
    case 0x2018:
    case 0x2019:
        return "'";
    case 0x201C:
    case 0x201D:
    case 0x201E:
        return "\"";
    case 0x2026:
        return "...";
    }
    std::array<char, 16> code;
    std::snprintf(code.data(), code.size(), "{%04X}", static_cast<unsigned>(character));
    return code.data();
}

std::string Sheet_Latin2(std::string_view utf8)
{
    std::string text;
    while (!utf8.empty()) {
        const char32_t character = Text_Take(utf8).value_or(0);
        const uint8_t byte = ByteOf(character);
        if (Text_IsControl(character))
            text += '?';
        else if (byte != 0 && CharSet_CanWrite(Sheet_Set, byte))
            text += static_cast<char>(byte);
        else
            text += Substitute(character);
    }
    return text;
}

std::string Sheet_Cut(const std::string &text, size_t room)
{
    if (text.size() <= room)
        return text;
    if (room <= 3)
        return text.substr(0, room);
    // The end is more informative than the middle.
    return text.substr(0, (room - 3 + 1) / 2) + "..." + text.substr(text.size() - (room - 3) / 2);
}

std::string Sheet_Caption(std::string_view name, const std::string &facts, size_t room)
{
    const size_t rest = facts.size() + 2, least = 12;
    const size_t most = std::max(room > rest ? room - rest : 0, least);
    std::string text = Sheet_Cut(Sheet_Latin2(name), most) + "  " + facts;
    if (text.size() > room && room > 3)  // half a number would be a wrong one
        text.replace(room - 3, std::string::npos, "...");
    return text.substr(0, room);
}
