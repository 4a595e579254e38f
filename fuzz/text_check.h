// For fuzz targets: whether text is fit for a terminal, and whether it is JSON.
#pragma once

#include <cctype>
#include <cstdint>
#include <string_view>

/// Whether the text is UTF-8 (RFC 3629) without control characters other than line feeds.
inline bool IsCleanText(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i++]);
        const uint32_t more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        uint32_t code = more == 0 ? lead : lead & (0x3Fu >> more);
        for (uint32_t n = 0; n < more; n++, i++) {
            if (i == text.size() || (text[i] & 0xC0) != 0x80)
                return false;
            code = code << 6 | (text[i] & 0x3F);
        }
        constexpr uint32_t least[] = {0, 0x80, 0x800, 0x10000};
        if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4 || code < least[more] || code > 0x10FFFF ||
            (code >= 0xD800 && code < 0xE000) || (code < 0x20 && code != '\n') ||
            (code >= 0x7F && code < 0xA0))
            return false;
    }
    return true;
}

/// Takes one JSON value (RFC 8259) off the text. False if none stands there.
inline bool TakeJSON(std::string_view &text)
{
    const auto take = [&text](std::string_view what) {
        const bool found = text.starts_with(what);
        text.remove_prefix(found ? what.size() : 0);
        return found;
    };
    const auto digits = [&text] {
        size_t n = 0;
        while (n < text.size() && std::isdigit(static_cast<unsigned char>(text[n])))
            n++;
        text.remove_prefix(n);
        return n != 0;
    };
    const auto string = [&text, &take] {
        if (!take("\""))
            return false;
        while (!text.empty() && text[0] != '"') {
            size_t length = 1;
            if (text[0] == '\\')
                length = text.size() > 1 && text[1] == 'u' ? 6 : 2;
            if (static_cast<uint8_t>(text[0]) < 0x20 || text.size() < length ||
                (length == 2 &&
                 std::string_view("\"\\/bfnrt").find(text[1]) == std::string_view::npos))
                return false;
            for (size_t i = 2; i < length; i++)
                if (!std::isxdigit(static_cast<unsigned char>(text[i])))
                    return false;
            text.remove_prefix(length);
        }
        return take("\"");
    };
    for (const auto &[open, close] : {std::pair("{", "}"), std::pair("[", "]")}) {
        if (!take(open))
            continue;
        if (take(close))
            return true;
        do {
            if (*open == '{' && (!string() || !take(":")))
                return false;
            if (!TakeJSON(text))
                return false;
        } while (take(","));
        return take(close);
    }
    if (take("true") || take("false") || take("null") || (text.starts_with('"') && string()))
        return true;
    take("-");
    return (take("0") || digits()) && (!take(".") || digits());
}

/// Fails unless the text is clean and, on demand, one JSON value and perhaps a line feed.
inline void CheckText(std::string_view text, bool json)
{
    if (!IsCleanText(text) || (json && (!TakeJSON(text) || (!text.empty() && text != "\n"))))
        __builtin_trap();
}
