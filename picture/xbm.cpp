#include "picture/xbm.h"

#include <algorithm>
#include <string_view>

#include "extra/bytes.h"
#include "picture/pixels.h"
#include "platform/system.h"

constinit thread_local XBM_HEADER XBM_Header{};
constinit thread_local BYTES_BUFFER XBM_File{};

constexpr int8_t XBM_EitherCase = -32;  // for System_StrSearch
constexpr size_t XBM_Padding = 8;       // NULs behind the text: how far a number may be read

static constexpr PIXELS_BILEVEL XBM_Bits = Pixels_MakeBilevel(false);

// What System_ReadHexNumber makes of each character.
static const std::array<uint8_t, 256> XBM_Digit = [] {
    std::array<uint8_t, 256> digits{};
    for (size_t i = 0; i < digits.size(); i++) {
        const char c = static_cast<char>(i);
        uint32_t position = 0;
        digits[i] = static_cast<uint8_t>(System_ReadHexNumber(&c, &position, 1));
    }
    return digits;
}();

static const char *Text()
{
    return reinterpret_cast<const char *>(XBM_File.data());
}

// The number behind a name, 0 where the name does not occur.
static uint16_t NumberBehind(std::string_view name)
{
    uint32_t position = 0;
    if (!System_StrSearch(Text(), name.data(), &position, XBM_EitherCase))
        return 0;
    position += static_cast<uint32_t>(name.size());
    System_StrSkipSpace(Text(), &position);
    return static_cast<uint16_t>(System_ReadNumber(Text(), &position));
}

static bool IsHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

static bool FindData()
{
    XBM_HEADER &h = XBM_Header;
    if (!System_StrSearch(Text(), "_bits", &h.DataOffset, XBM_EitherCase) ||
        !System_StrSearch(Text(), "0x", &h.DataOffset, XBM_EitherCase))
        return false;
    h.Variant = IsHexDigit(Text()[h.DataOffset + 4]) ? XBM_X10 : XBM_X11;
    return true;
}

void XBM_Load(const char *path)
{
    XBM_File = Bytes_LoadFile(path);
    XBM_File.insert(XBM_File.end(), XBM_Padding, 0);
    XBM_HEADER &h = XBM_Header;
    h = {};
    h.Width = NumberBehind("_width");
    h.Height = NumberBehind("_height");
    h.HotX = NumberBehind("_hot_x");
    h.HotY = NumberBehind("_hot_y");
    h.BitsPerPixel = 1;
    h.BytesPerRow = static_cast<uint16_t>((h.Width + 7) / 8);
    h.Size = uint32_t{h.BytesPerRow} * 8 * h.Height * 4;
    constexpr size_t shortest = 3;  // characters a byte, two bytes being a word as "0x0000"
    if (!FindData() || h.BytesPerRow > 0xFFFF / 8 ||
        h.BytesPerRow * shortest > XBM_File.size() - h.DataOffset)
        XBM_File = {};
}

// The next `digits` behind a "0x" from `position` on. False at the end of the text.
static bool ReadHex(size_t &position, size_t digits, uint32_t &value)
{
    const std::span<const uint8_t> text = std::span(XBM_File).first(XBM_File.size() - XBM_Padding);
    size_t i = position;
    while (i + 1 < text.size() && text[i] != 0 && !(text[i] == '0' && (text[i + 1] | 32) == 'x'))
        i++;
    if (i + 1 >= text.size() || text[i] == 0)
        return false;
    value = 0;
    for (size_t k = 0; k < digits; k++)
        value = value << 4 | XBM_Digit[XBM_File[i + 2 + k]];
    position = i + 2 + digits;
    return true;
}

uint8_t *XBM_Decoding()
{
    const XBM_HEADER &h = XBM_Header;
    if (XBM_File.empty())
        return nullptr;
    uint8_t *pixels = Picture_NewPixels(h.BytesPerRow * 8u, h.Height);
    if (!pixels)
        return nullptr;
    // Words run on: a row with an odd number of bytes begins its next row in the middle of a word.
    const bool words = h.Variant == XBM_X10;
    const size_t count = size_t{h.BytesPerRow} * h.Height;
    size_t position = h.DataOffset;
    uint32_t value = 0;
    for (size_t i = 0; i < count; i++) {
        if (words && i % 2 == 1)
            value >>= 8;
        else if (!ReadHex(position, words ? 4 : 2, value))
            break;
        const auto &bits = XBM_Bits[value & 0xFF];
        std::memcpy(pixels + i * bits.size(), bits.data(), bits.size());
    }
    return pixels;
}

void XBM_UnLoad()
{
    XBM_File = {};
}

XBM_HEADER *XBM_GetHeader(XBM_HEADER *out)
{
    *out = XBM_Header;
    return out;
}
