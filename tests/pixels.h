// Pictures in tests: files and pixels as text.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "tests/pictures.h"

// Bytes from pairs of hexadecimal digits, with optional spaces.
inline BYTES Hex(const std::string &text)
{
    BYTES bytes;
    std::string digits;
    for (const char c : text)
        if (c != ' ' && (digits += c).size() == 2) {
            bytes.push_back(static_cast<uint8_t>(std::strtoul(digits.c_str(), nullptr, 16)));
            digits.clear();
        }
    return bytes;
}

// The low `count` bits of a number, highest or lowest first.
inline std::string Digits(size_t value, size_t count, bool highFirst = true)
{
    std::string digits;
    for (size_t i = 0; i < count; i++)
        digits += value >> (highFirst ? count - 1 - i : i) & 1 ? '1' : '0';
    return digits;
}

// Bytes from bits, with optional spaces, that fill each from its highest or its lowest one.
inline BYTES Bits(const std::string &text, bool highFirst = true)
{
    BYTES bytes;
    size_t count = 0;
    for (const char c : text)
        if (c != ' ') {
            bytes.resize(count / 8 + 1);
            bytes.back() |=
                static_cast<uint8_t>((c - '0') << (highFirst ? 7 - count % 8 : count % 8));
            count++;
        }
    return bytes;
}

// Pixels: an opaque grey as 2 digits, 0 as "-", others as 8.
inline std::string ShowPixels(const BYTES &pixels)
{
    std::string text;
    for (size_t i = 0; i < pixels.size(); i += 4) {
        const int r = pixels[i], g = pixels[i + 1], b = pixels[i + 2], a = pixels[i + 3];
        char digits[10] = "-";
        if (r == g && g == b && a == 255)
            std::snprintf(digits, sizeof digits, "%02X", r);
        else if ((r | g | b | a) != 0)
            std::snprintf(digits, sizeof digits, "%02X%02X%02X%02X", r, g, b, a);
        if (i != 0)
            text += ' ';
        text += digits;
    }
    return text;
}

// A file's pixels; "" for the null picture.
inline std::string Show(const BYTES &file)
{
    return ShowPixels(PixelsOf(file));
}

// Files by the format's own rules: their pixels in the notation of Show, and the reasons left.
struct FORMAT_ROW {
    const char *what;
    BYTES file;
    const char *pixels;
    const char *reason = "";
};

inline void CheckByFormat(uint8_t format, const std::vector<FORMAT_ROW> &rows)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    for (const FORMAT_ROW &r : rows) {
        EXPECT_EQ(Show(r.file), r.pixels) << r.what;
        EXPECT_STREQ(Picture_Reason(), r.reason) << r.what;
        EXPECT_TRUE(*r.pixels == 0 || LOADED(r.file).Record.Format == format) << r.what;
    }
}
