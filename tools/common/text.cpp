#include "tools/common/text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>

constexpr char32_t Text_Replacement = 0xFFFD;

std::optional<char32_t> Text_Take(std::string_view &text)
{
    constexpr std::array<char32_t, 5> least = {0, 0, 0x80, 0x800, 0x10000};  // by length
    const auto first = static_cast<uint8_t>(text[0]);
    const auto ones = static_cast<size_t>(std::countl_one(first));
    const size_t length = ones == 0 ? 1 : ones;
    std::optional<char32_t> character;
    if (ones != 1 && length < least.size() && length <= text.size()) {
        char32_t code = ones == 0 ? first : first & 0xFFu >> (ones + 1);
        const auto follows = [](char c) { return (c & 0xC0) == 0x80; };
        const std::string_view rest = text.substr(1, length - 1);
        for (const char c : rest)
            code = code << 6 | (static_cast<uint8_t>(c) & 0x3F);
        if (std::ranges::all_of(rest, follows) && code >= least[length] && code <= 0x10FFFF &&
            (code < 0xD800 || code >= 0xE000))
            character = code;
    }
    text.remove_prefix(character ? length : 1);
    return character;
}

void Text_Put(std::string &text, char32_t character)
{
    const auto put = [&](char32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80) {
        put(character);
        return;
    }
    int shift = character < 0x800 ? 6 : character < 0x10000 ? 12 : 18;
    put((shift == 6 ? 0xC0u : shift == 12 ? 0xE0u : 0xF0u) | character >> shift);
    while (shift != 0) {
        shift -= 6;
        put(0x80 | (character >> shift & 0x3F));
    }
}

std::string Text_Harmless(std::string_view utf8)
{
    std::string text;
    while (!utf8.empty()) {
        const char32_t character = Text_Take(utf8).value_or(Text_Replacement);
        Text_Put(text, Text_IsControl(character) ? U' ' : character);
    }
    return text;
}

std::string Text_FromLatin1(std::string_view latin1)
{
    std::string text;
    for (const char c : latin1)
        Text_Put(text, static_cast<uint8_t>(c));
    return text;
}

std::string Text_FromEither(std::string_view text)
{
    for (std::string_view rest = text; !rest.empty();)
        if (!Text_Take(rest))
            return Text_FromLatin1(text);
    return std::string(text);
}

bool Text_EndsWith(std::string_view name, std::string_view ending)
{
    const auto small = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return name.size() >= ending.size() &&
           std::ranges::equal(name.substr(name.size() - ending.size()), ending, {}, small, small);
}

std::string Text_JSON(std::string_view utf8)
{
    std::string text = "\"";
    while (!utf8.empty()) {
        const char32_t character = Text_Take(utf8).value_or(Text_Replacement);
        if (character == '"' || character == '\\') {
            text += '\\';
            Text_Put(text, character);
        } else if (Text_IsControl(character)) {
            std::array<char, 8> code;
            std::snprintf(code.data(), code.size(), "\\u%04x", static_cast<unsigned>(character));
            text += code.data();
        } else {
            Text_Put(text, character);
        }
    }
    return text + '"';
}
