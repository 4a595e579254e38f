#include "tools/player/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include <locale.h>
#include <wchar.h>

#include "tools/common/text.h"

using CODES = std::u32string;

// Appends the characters; false when the bytes are no UTF-8.
static bool FromUTF8(std::span<const char> bytes, CODES &codes)
{
    for (std::string_view text(bytes.data(), bytes.size()); !text.empty();) {
        const auto code = Text_Take(text);
        if (!code)
            return false;
        codes += *code;
    }
    return true;
}

// Surrogates, which these short fields cut anywhere, become U+FFFD.
static CODES FromUTF16(std::span<const char> bytes, bool big)
{
    CODES codes;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto high = static_cast<uint8_t>(bytes[big ? i : i + 1]);
        const auto low = static_cast<uint8_t>(bytes[big ? i + 1 : i]);
        const char32_t code = static_cast<char32_t>(high << 8 | low);
        if (code == 0)
            break;
        codes += code >= 0xD800 && code < 0xE000 ? U'\uFFFD' : code;
    }
    return codes;
}

static CODES Decode(std::span<const char> bytes)
{
    if (bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE')
        return FromUTF16(bytes.subspan(2), false);
    if (bytes.size() >= 2 && bytes[0] == '\xFE' && bytes[1] == '\xFF')
        return FromUTF16(bytes.subspan(2), true);
    const auto end = std::ranges::find(bytes, '\0');
    bytes = bytes.first(static_cast<size_t>(end - bytes.begin()));
    CODES codes;
    if (FromUTF8(bytes, codes))
        return codes;
    codes.clear();
    for (const char byte : bytes)
        codes += static_cast<uint8_t>(byte);
    return codes;
}

std::string Player_Text(std::span<const char> bytes)
{
    std::string text;
    for (const char32_t code : Decode(bytes))
        Text_Put(text, Text_IsControl(code) ? U' ' : code);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string Player_Text(const std::string &bytes)
{
    return Player_Text(std::span<const char>(bytes));
}

std::string Player_Cut(const std::string &utf8, size_t columns)
{
    static const locale_t known = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t before = uselocale(known);
    CODES codes;
    FromUTF8(utf8, codes);
    std::string text;
    for (const char32_t code : codes) {
        const int width = wcwidth(static_cast<wchar_t>(code));
        const size_t wanted = width < 0 ? 1 : static_cast<size_t>(width);  // below 0: unknown
        if (wanted > columns)
            break;
        columns -= wanted;
        Text_Put(text, code);
    }
    uselocale(before);
    return text;
}

std::string Player_Time(double seconds)
{
    const auto whole = static_cast<unsigned long>(std::max(seconds, 0.0));
    char text[40];
    if (whole < 3600)
        std::snprintf(text, sizeof text, "%lu:%02lu", whole / 60, whole % 60);
    else
        std::snprintf(text, sizeof text, "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60,
                      whole % 60);
    return text;
}
