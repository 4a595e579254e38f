#include "tools/player/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include <locale.h>
#include <wchar.h>

using CODES = std::u32string;

static bool IsControl(char32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

static void PutUTF8(std::string &text, char32_t code)
{
    const auto put = [&](char32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80) {
        put(code);
        return;
    }
    int shift = code < 0x800 ? 6 : code < 0x10000 ? 12 : 18;
    put((shift == 6 ? 0xC0u : shift == 12 ? 0xE0u : 0xF0u) | code >> shift);
    while (shift != 0) {
        shift -= 6;
        put(0x80 | (code >> shift & 0x3F));
    }
}

// Bytes that follow a first byte in UTF-8 (RFC 3629); -1 for none that starts a character.
static int Followers(uint8_t first)
{
    if (first < 0x80)
        return 0;
    if (first >= 0xC2 && first < 0xE0)
        return 1;
    if (first >= 0xE0 && first < 0xF0)
        return 2;
    return first >= 0xF0 && first < 0xF5 ? 3 : -1;
}

// Appends the characters; false when the bytes are no UTF-8.
static bool FromUTF8(std::span<const char> bytes, CODES &codes)
{
    constexpr char32_t least[] = {0, 0x80, 0x800, 0x10000};
    for (size_t i = 0; i < bytes.size();) {
        const auto first = static_cast<uint8_t>(bytes[i++]);
        const int followers = Followers(first);
        if (followers < 0 || bytes.size() - i < static_cast<size_t>(followers))
            return false;
        char32_t code = followers == 0 ? first : first & 0x3Fu >> followers;
        for (int k = 0; k < followers; k++, i++) {
            const auto next = static_cast<uint8_t>(bytes[i]);
            if (next >> 6 != 2)
                return false;
            code = code << 6 | (next & 0x3Fu);
        }
        if (code < least[followers] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000))
            return false;
        codes += code;
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
        PutUTF8(text, IsControl(code) ? U' ' : code);
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
        PutUTF8(text, code);
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
