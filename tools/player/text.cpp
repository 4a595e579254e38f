#include "tools/player/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include <locale.h>
#include <wchar.h>

#include "tools/common/text.h"

// Short fields may split a surrogate pair; what is left of it becomes U+FFFD.
static std::string FromUTF16(std::span<const char> bytes, bool big)
{
    std::string text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto high = static_cast<uint8_t>(bytes[big ? i : i + 1]);
        const auto low = static_cast<uint8_t>(bytes[big ? i + 1 : i]);
        const char32_t code = static_cast<char32_t>(high << 8 | low);
        if (code == 0)
            break;
        Text_Put(text, code >= 0xD800 && code < 0xE000 ? U'\uFFFD' : code);
    }
    return text;
}

static std::string Decode(std::span<const char> bytes)
{
    if (bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE')
        return FromUTF16(bytes.subspan(2), false);
    if (bytes.size() >= 2 && bytes[0] == '\xFE' && bytes[1] == '\xFF')
        return FromUTF16(bytes.subspan(2), true);
    return Text_FromEither({bytes.begin(), std::ranges::find(bytes, '\0')});
}

std::string Player_Text(std::span<const char> bytes)
{
    std::string text = Text_Harmless(Decode(bytes));
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
    std::string text;
    for (std::string_view rest = utf8; !rest.empty();) {
        const char32_t code = Text_Take(rest).value_or(U'\uFFFD');
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
