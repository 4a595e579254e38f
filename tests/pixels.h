// Pictures in tests: files and pixels as text.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "picture/picture.h"
#include "tests/files.h"

using BYTES = std::vector<uint8_t>;

// Bytes written as pairs of hexadecimal digits, with any spaces between them.
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

inline void Append(BYTES &out, const BYTES &bytes)
{
    out.insert(out.end(), bytes.begin(), bytes.end());
}

inline void AppendNumber(BYTES &out, size_t value, int count, bool bigEndian)
{
    for (int i = 0; i < count; i++)
        out.push_back(static_cast<uint8_t>(value >> 8 * (bigEndian ? count - 1 - i : i)));
}

// A decoded picture's bytes without what its buffer has beyond the width; empty for the null
// picture.
struct DECODED {
    int Width, Height, Bits;
    BYTES Pixels;

    explicit DECODED(const std::string &path)
    {
        const Picture p = Picture_Load(path.c_str(), 0, 0);
        Width = p.Width, Height = p.Height, Bits = p.Bits;
        for (size_t y = 0; p.Pixels && y < p.Height; y++) {
            const uint8_t *row = p.Pixels + y * p.BufferWidth * 4;
            Pixels.insert(Pixels.end(), row, row + p.Width * 4);
        }
        Picture_UnLoad(p);
    }
    explicit DECODED(const BYTES &file) : DECODED(WriteTemp("picture", file)) {}
};

// The pixels: an opaque grey as 2 digits, 0 as "-", others as 8; no text for the null picture.
inline std::string Show(const BYTES &file)
{
    std::string text;
    const BYTES pixels = DECODED(file).Pixels;
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

// Files of tests/data, their facts and the digests of their pixels.
struct REAL_FILE {
    const char *Path;
    int Width, Height, Bits;
    uint64_t Pixels;
};

inline void ExpectFiles(const std::vector<REAL_FILE> &files)
{
    for (const REAL_FILE &file : files) {
        const DECODED d(std::string(TEST_DATA) + file.Path);
        EXPECT_EQ(std::tuple(d.Width, d.Height, d.Bits),
                  std::tuple(file.Width, file.Height, file.Bits))
            << file.Path;
        EXPECT_EQ(Digest(d.Pixels), file.Pixels) << file.Path;
    }
}

// Every prefix of a file from its first `head` bytes on: it is refused, or no more than `slack` of
// the bytes that it gives differ from the whole picture's without being left out (0).
inline void ExpectPrefixesHold(const BYTES &file, size_t head, size_t slack)
{
    const BYTES whole = DECODED(file).Pixels;
    size_t shown = 0;
    for (size_t size = head; size < file.size(); size++) {
        const auto end = file.begin() + static_cast<ptrdiff_t>(size);
        const BYTES part = DECODED(BYTES(file.begin(), end)).Pixels;
        size_t wrong = 0;
        for (size_t i = 0; i < part.size() && part.size() == whole.size(); i++)
            wrong += part[i] != whole[i] && part[i] != 0;
        EXPECT_LE(wrong, slack) << "prefix of " << size;
        shown += part.size() == whole.size();
    }
    EXPECT_GT(shown, 0u) << "no prefix shows anything";
}
