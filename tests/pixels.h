// Pictures in tests: made from bytes, seen as numbers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "picture/picture.h"
#include "tests/files.h"

using BYTES = std::vector<uint8_t>;
using PIXELS = std::vector<uint32_t>; // 0xRRGGBBAA, without what the buffer has beyond the width

struct DECODED {
    int Width, Height, Bits;
    bool Null;
    PIXELS Pixels;
};

inline DECODED DecodeFile(const std::string &path)
{
    const Picture p = Picture_Load(path.c_str(), 0, 0);
    DECODED decoded{p.Width, p.Height, p.Bits, !p.Pixels, {}};
    for (size_t y = 0; p.Pixels && y < p.Height; y++)
        for (size_t x = 0; x < p.Width; x++) {
            size_t at = (y * p.BufferWidth + x) * 4;
            decoded.Pixels.push_back(Bytes_GetBig({p.Pixels, at + 4}, at, 4));
        }
    Picture_UnLoad(p);
    return decoded;
}

inline DECODED DecodeBytes(const BYTES &file)
{
    return DecodeFile(WriteTemp("picture", file));
}

// Of the bytes R, G, B, A of all pixels.
inline uint64_t Digest(const PIXELS &pixels)
{
    BYTES bytes;
    for (const uint32_t pixel : pixels)
        for (const int shift : {24, 16, 8, 0})
            bytes.push_back(static_cast<uint8_t>(pixel >> shift));
    return Digest(std::span<const uint8_t>(bytes));
}

inline void Append(BYTES &out, const BYTES &bytes)
{
    out.insert(out.end(), bytes.begin(), bytes.end());
}

inline void AppendNumber(BYTES &out, uint32_t value, int count, bool bigEndian)
{
    for (int i = 0; i < count; i++)
        out.push_back(static_cast<uint8_t>(value >> 8 * (bigEndian ? count - 1 - i : i)));
}

// Every prefix of a file from its first `head` bytes on: it is refused, or no more than `slack` of
// the pixels that it gives differ from the whole picture's without being left out (0).
inline void ExpectPrefixesHold(const BYTES &file, size_t head, size_t slack)
{
    const DECODED whole = DecodeBytes(file);
    ASSERT_FALSE(whole.Null);
    size_t shown = 0;
    for (size_t size = head; size < file.size(); size++) {
        const DECODED part =
            DecodeBytes({file.begin(), file.begin() + static_cast<ptrdiff_t>(size)});
        if (part.Null || part.Pixels.size() != whole.Pixels.size())
            continue;
        size_t wrong = 0;
        for (size_t i = 0; i < part.Pixels.size(); i++)
            wrong += part.Pixels[i] != whole.Pixels[i] && part.Pixels[i] != 0;
        EXPECT_LE(wrong, slack) << "prefix of " << size;
        shown++;
    }
    EXPECT_GT(shown, 0u) << "no prefix shows anything";
}
