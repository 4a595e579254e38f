#include "picture/xbm.h"

#include <optional>
#include <string_view>

#include "extra/bytes.h"
#include "extra/reason.h"
#include "picture/pixels.h"
#include "platform/system.h"

constinit thread_local XBM_HEADER XBM_Header{};
constinit thread_local BYTES_BUFFER XBM_File{};

constexpr int8_t XBM_EitherCase = -32;  // for System_StrSearch
constexpr size_t XBM_Padding = 8;  // NULs after the text, so that a number may be read past its end

constexpr PIXELS_BILEVEL XBM_Bits = Pixels_MakeBilevel(false);

// The value that System_ReadHexNumber gives each character.
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

// The number after a name, or 0 without the name.
static uint16_t NumberAfter(std::string_view name)
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
    static constexpr auto isDigit = [] {
        std::array<bool, 256> table{};
        for (const char digit : std::string_view("0123456789ABCDEFabcdef"))
            table[static_cast<uint8_t>(digit)] = true;
        return table;
    }();
    return isDigit[static_cast<uint8_t>(c)];
}

static bool ByFormat()
{
    return XBM_Header.Rules == PICTURE_RULES_FORMAT;
}

// Format: the array's type decides.
static bool HasShorts(uint32_t end)
{
    uint32_t position = 0;
    return System_StrSearch(Text(), "short", &position, 0) && position < end;
}

static bool FindData()
{
    XBM_HEADER &h = XBM_Header;
    if (!System_StrSearch(Text(), "_bits", &h.DataOffset, XBM_EitherCase))
        return false;
    const uint32_t name = h.DataOffset;
    // Exact case: in either case a brace would match a bracket, too.
    if (!(ByFormat() ? System_StrSearch(Text(), "{", &h.DataOffset, 0)
                     : System_StrSearch(Text(), "0x", &h.DataOffset, XBM_EitherCase)))
        return false;
    const bool words = ByFormat() ? HasShorts(name) : IsHexDigit(Text()[h.DataOffset + 4]);
    h.Variant = words ? XBM_X10 : XBM_X11;
    return true;
}

void XBM_Load(const char *path)
{
    XBM_File = BYTES_BUFFER();
    Bytes_Guard(XBM_File, [path] {
        XBM_File = Bytes_LoadFile(path);
        XBM_File.insert(XBM_File.end(), XBM_Padding, 0);
    });
    XBM_HEADER &h = XBM_Header;
    h = {};
    if (XBM_File.empty())
        return;
    h.Rules = Picture_Rules;
    h.Width = NumberAfter("_width");
    h.Height = NumberAfter("_height");
    h.HotX = NumberAfter("_hot_x");
    h.HotY = NumberAfter("_hot_y");
    h.BitsPerPixel = 1;
    h.BytesPerRow = static_cast<uint16_t>((h.Width + 7) / 8);
    h.Size = static_cast<uint32_t>(uint64_t{h.BytesPerRow} * 8 * h.Height * 4);
    constexpr size_t shortest = 3;  // characters per byte, for words such as "0x0000"
    if (!FindData() || h.BytesPerRow > 0xFFFF / 8 ||
        h.BytesPerRow * shortest > XBM_File.size() - h.DataOffset) {
        Reason_Set("no bits, or too few for a row");
        XBM_File = BYTES_BUFFER();
    }
}

// Reads `digits` hexadecimal digits after the next "0x". False at the end of the text; the file has
// the padding, too.
static bool ReadHex(std::span<const uint8_t> file, size_t &position, size_t digits, uint32_t &value)
{
    const std::span<const uint8_t> text = file.first(file.size() - XBM_Padding);
    size_t i = position;
    while (i + 1 < text.size() && text[i] != 0 && !(text[i] == '0' && (text[i + 1] | 32) == 'x'))
        i++;
    if (i + 1 >= text.size() || text[i] == 0)
        return false;
    value = 0;
    for (size_t k = 0; k < digits; k++)
        value = value << 4 | XBM_Digit[file[i + 2 + k]];
    position = i + 2 + digits;
    return true;
}

// Format: the next C number, hexadecimal, octal or decimal. False at the end of the array or of the
// text.
static bool ReadNumber(std::span<const uint8_t> file, size_t &position, uint32_t &value)
{
    const char *text = reinterpret_cast<const char *>(file.data());
    const size_t end = file.size() - XBM_Padding;
    size_t i = position;
    while (i < end && text[i] != '}' && !(text[i] >= '0' && text[i] <= '9'))
        i++;
    if (i >= end || text[i] == '}')
        return false;
    const bool hexadecimal = text[i] == '0' && (text[i + 1] | 32) == 'x';
    // Fast path for two digits, the common case. The padding has no digits.
    if (hexadecimal && IsHexDigit(text[i + 2]) && IsHexDigit(text[i + 3]) &&
        !IsHexDigit(text[i + 4])) {
        value = static_cast<uint32_t>(XBM_Digit[static_cast<uint8_t>(text[i + 2])] << 4 |
                                      XBM_Digit[static_cast<uint8_t>(text[i + 3])]);
        position = i + 4;
        return true;
    }
    const uint32_t base = hexadecimal ? 16 : text[i] == '0' ? 8 : 10;
    i += hexadecimal ? 2 : 0;
    for (value = 0; i < end && IsHexDigit(text[i]); i++)
        value = value * base + XBM_Digit[static_cast<uint8_t>(text[i])];
    position = i;
    return true;
}

// Writes the bytes of all rows in order; next(i) gives byte i, or nothing at the end of the file.
template <typename Next>
static bool PutBytes(uint8_t *pixels, const Next &next)
{
    const size_t count = size_t{XBM_Header.BytesPerRow} * XBM_Header.Height;
    for (size_t i = 0; i < count; i++) {
        const std::optional<uint8_t> byte = next(i);
        if (!byte)
            return false;
        const auto &bits = XBM_Bits[*byte];
        std::memcpy(pixels + i * bits.size(), bits.data(), bits.size());
    }
    return true;
}

// On purpose: words cross row ends, so after a row with an odd number of bytes the next row starts
// in the middle of a word.
static bool DecodeByFramework(uint8_t *pixels)
{
    const bool words = XBM_Header.Variant == XBM_X10;
    size_t position = XBM_Header.DataOffset;
    uint32_t value = 0;
    return PutBytes(pixels, [&, file = std::span(XBM_File)](size_t i) -> std::optional<uint8_t> {
        if (words && i % 2 == 1)
            value >>= 8;
        else if (!ReadHex(file, position, words ? 4 : 2, value))
            return std::nullopt;
        return static_cast<uint8_t>(value);
    });
}

static bool DecodeByFormat(uint8_t *pixels)
{
    const bool words = XBM_Header.Variant == XBM_X10;
    const size_t row = XBM_Header.BytesPerRow;
    size_t position = XBM_Header.DataOffset;
    uint32_t value = 0;
    return PutBytes(pixels, [&, file = std::span(XBM_File)](size_t i) -> std::optional<uint8_t> {
        if (words && i % row % 2 == 1)
            value >>= 8;
        else if (!ReadNumber(file, position, value))
            return std::nullopt;
        return static_cast<uint8_t>(value);
    });
}

uint8_t *XBM_Decoding()
{
    const XBM_HEADER &h = XBM_Header;
    if (XBM_File.empty())
        return nullptr;
    // A byte of bits takes at least two characters.
    const size_t held = (XBM_File.size() - h.DataOffset) / 2;
    if (!Picture_Believes({h.BytesPerRow * 8u, h.Height, held * 8, XBM_File.size()}))
        return nullptr;
    uint8_t *pixels = Picture_NewPixels(h.BytesPerRow * 8u, h.Height);
    if (pixels && !(ByFormat() ? DecodeByFormat(pixels) : DecodeByFramework(pixels)))
        Reason_Set("cut before its last row");
    return pixels;
}

void XBM_UnLoad()
{
    XBM_File = BYTES_BUFFER();
}

XBM_HEADER *XBM_GetHeader(XBM_HEADER *out)
{
    *out = XBM_Header;
    return out;
}
