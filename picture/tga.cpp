#include "picture/tga.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "extra/bytes.h"
#include "extra/local.h"
#include "extra/reason.h"
#include "picture/pixels.h"

constinit thread_local TGA_HEADER TGA_Header{};
constinit thread_local BYTES_BUFFER TGA_File{};

constexpr size_t TGA_HeaderSize = 18;
constexpr size_t TGA_FooterSize = 26;  // of version 2
constexpr size_t TGA_MaxRun = 128;
// Image types. The run-length coded ones are 8 higher.
constexpr uint8_t TGA_Mapped = 1, TGA_TrueColour = 2, TGA_Grey = 3, TGA_RunLength = 8;

static bool ByFormat()
{
    return TGA_Header.Rules == PICTURE_RULES_FORMAT;
}

// Bytes per pixel in the file.
static size_t PixelSize()
{
    return (TGA_Header.BitsPerPixel + 7u) / 8;
}

static size_t ImageSize()
{
    return size_t{TGA_Header.Width} * TGA_Header.Height * PixelSize();
}

// The colour map is between the image ID and the pixels.
static void ReadMapFields()
{
    TGA_HEADER &h = TGA_Header;
    size_t position = 0;
    const uint8_t ident = Bytes_GetByte(TGA_File, position);
    const bool has = Bytes_GetByte(TGA_File, position) != 0;
    position = 3;
    h.MapFirst = static_cast<uint16_t>(Bytes_GetLittle(TGA_File, position, 2));
    h.MapLength = static_cast<uint16_t>(Bytes_GetLittle(TGA_File, position, 2));
    h.MapBits = Bytes_GetByte(TGA_File, position);
    if (!has)
        h.MapFirst = h.MapLength = h.MapBits = 0;
    h.DataOffset += ident + (h.MapBits + 7u) / 8 * h.MapLength;
}

static void ReadHeader()
{
    TGA_HEADER &h = TGA_Header;
    h = {};
    h.Rules = Picture_Rules;
    size_t position = 2;  // past the image ID's length and the colour map's type
    h.ImageType = Bytes_GetByte(TGA_File, position);
    position = 12;
    h.Width = Bytes_GetLittle(TGA_File, position, 2);
    h.Height = Bytes_GetLittle(TGA_File, position, 2);
    h.Size = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    h.BitsPerPixel = Bytes_GetByte(TGA_File, position);
    const uint8_t descriptor = Bytes_GetByte(TGA_File, position);
    h.AlphaBits = descriptor & 15;
    h.Origin = descriptor >> 4 & 3;
    h.Passes = ByFormat() ? static_cast<uint8_t>(1 << std::min(descriptor >> 6, 2)) : uint8_t{1};
    h.DataOffset = TGA_HeaderSize;
    if (ByFormat())
        ReadMapFields();
}

// On purpose: the framework reads no other kinds, and does not detect their files.
static bool FrameworkSupports(uint8_t type)
{
    return type == TGA_TrueColour &&
           (TGA_Header.BitsPerPixel == 24 || TGA_Header.BitsPerPixel == 32);
}

static bool FormatSupports(uint8_t type)
{
    const uint8_t bits = TGA_Header.BitsPerPixel, map = TGA_Header.MapBits;
    switch (type) {
    case TGA_Mapped:
        return (bits == 8 || bits == 16) && TGA_Header.MapLength != 0 &&
               (map == 15 || map == 16 || map == 24 || map == 32);
    case TGA_TrueColour:
        return bits == 15 || bits == 16 || bits == 24 || bits == 32;
    case TGA_Grey:
        return bits == 8 || bits == 16;
    default:
        return false;
    }
}

// Whether a type is supported; `type` is the plain one for run-length coded types.
static bool Supports(uint8_t type)
{
    return ByFormat() ? FormatSupports(type) : FrameworkSupports(type);
}

// Expands packets of N-byte pixels: the low seven bits plus 1 are the number of pixels; if the high
// bit is set, one pixel is repeated. Returns the number of bytes read from `packed`.
template <size_t N>
static size_t ExpandPackets(std::span<const uint8_t> packed, BYTES_BUFFER &out)
{
    const size_t start = out.size();
    const size_t size = std::min(ImageSize(), packed.size() * TGA_MaxRun);
    out.resize(start + size + TGA_MaxRun * N);  // the last packet may exceed the image
    uint8_t *to = out.data() + start;
    const uint8_t *const end = to + size;
    size_t i = 0;
    while (i < packed.size() && to < end) {
        const size_t count = (packed[i] & 127u) + 1u;
        const bool run = packed[i] >= 128;
        const size_t stored = run ? N : std::min(count * N, packed.size() - i - 1);
        if (packed.size() - i - 1 < stored)
            break;
        const uint8_t *pixel = packed.data() + i + 1;
        if (run)
            for (size_t k = 0; k < count; k++)
                std::memcpy(to + k * N, pixel, N);
        else
            std::memcpy(to, pixel, stored);
        to += run ? count * N : stored;
        i += 1 + stored;
    }
    out.resize(std::min(static_cast<size_t>(to - out.data()), start + size));
    return i;
}

// Expands the data after the header. A version 2 footer is kept after them.
static void ExpandFile()
{
    TGA_HEADER &h = TGA_Header;
    const size_t offset = std::min<size_t>(h.DataOffset, TGA_File.size());
    BYTES_BUFFER expanded(TGA_File.begin(), TGA_File.begin() + static_cast<ptrdiff_t>(offset));
    const std::span<const uint8_t> packed = Bytes_GetSpan(TGA_File, offset);
    using EXPAND = size_t (*)(std::span<const uint8_t>, BYTES_BUFFER &);
    constexpr std::array<EXPAND, 4> expand = {ExpandPackets<1>, ExpandPackets<2>, ExpandPackets<3>,
                                              ExpandPackets<4>};
    const size_t used = expand[PixelSize() - 1](packed, expanded);
    if (expanded.size() == offset + ImageSize()) {
        const std::span<const uint8_t> footer = Bytes_GetSpan(packed, used, TGA_FooterSize);
        expanded.insert(expanded.end(), footer.begin(), footer.end());
    }
    TGA_File = std::move(expanded);
    h.ImageType = static_cast<uint8_t>(h.ImageType - TGA_RunLength);
}

static bool IsWorthExpanding()
{
    const TGA_HEADER &h = TGA_Header;
    const uint64_t packets = TGA_File.size() / (1 + PixelSize());
    return Picture_Believes(
        {h.Width, h.Height, packets * TGA_MaxRun, TGA_File.size(), ImageSize()});
}

void TGA_Load(const char *path)
{
    TGA_File = BYTES_BUFFER();
    Bytes_Guard(TGA_File, [path] {
        TGA_File = Bytes_LoadFile(path);
        ReadHeader();
        const uint8_t type = TGA_Header.ImageType;
        if (type > TGA_RunLength && Supports(static_cast<uint8_t>(type - TGA_RunLength)) &&
            TGA_File.size() >= TGA_HeaderSize && IsWorthExpanding())
            ExpandFile();
    });
}

// 5 bits each of red, green and blue from bit 10 down, scaled to 8 by repeating their high bits.
// Bit 15 is ignored: files declare it alpha but leave it 0 throughout.
static uint32_t FromWord(uint32_t word)
{
    const auto wide = [word](int shift) {
        const uint32_t value = word >> shift & 31;
        return value << 3 | value >> 2;
    };
    return Pixels_Pack(wide(10), wide(5), wide(0), 255);
}

// A pixel or colour map entry of 15, 16, 24 or 32 bits.
static uint32_t FromEntry(const uint8_t *entry, uint8_t bits)
{
    if (bits <= 16)
        return FromWord(entry[0] | static_cast<uint32_t>(entry[1]) << 8);
    return Pixels_Pack(entry[2], entry[1], entry[0], bits == 32 ? entry[3] : 255);
}

// The colours by index; entries that the map lacks are opaque black.
static std::vector<uint32_t> ReadMap()
{
    const TGA_HEADER &h = TGA_Header;
    std::vector<uint32_t> colours(size_t{1} << h.BitsPerPixel, Pixels_Pack(0, 0, 0, 255));
    const size_t entry = (h.MapBits + 7u) / 8, start = h.DataOffset - entry * h.MapLength;
    for (size_t i = 0; i < h.MapLength && h.MapFirst + i < colours.size(); i++) {
        const auto bytes = Bytes_GetSpan(TGA_File, start + i * entry, entry);
        if (bytes.size() == entry)
            colours[h.MapFirst + i] = FromEntry(bytes.data(), h.MapBits);
    }
    return colours;
}

// Calls row(bytes, out) for each row of the file with its complete pixels; missing pixels are
// transparent.
template <typename Row>
static void DecodeRows(std::span<const uint8_t> data, uint8_t *pixels, const Row &decode)
{
    const TGA_HEADER &h = Extra_Local(TGA_Header);
    const size_t pixel = PixelSize(), row = h.Width * pixel;
    const bool down = ByFormat() ? (h.Origin & 2) != 0 : h.Origin != 0;
    size_t y = 0, pass = 0;
    for (size_t stored = 0; stored < h.Height; stored++) {
        const auto held = Bytes_GetSpan(data, stored * row, row);
        const size_t count = held.size() / pixel;
        uint8_t *out = pixels + (down ? y : h.Height - 1 - y) * h.Width * 4;
        decode(held.first(count * pixel), out);
        std::memset(out + 4 * count, 0, 4 * (h.Width - count));
        y += h.Passes;
        while (y >= h.Height && pass + 1 < h.Passes)
            y = ++pass;
    }
}

// Format: the rarer kinds.
static void DecodeRare(std::span<const uint8_t> data, uint8_t *pixels)
{
    const TGA_HEADER &h = TGA_Header;
    const size_t size = PixelSize();
    const auto each = [&](const auto &pixel) {
        DecodeRows(data, pixels, [&](std::span<const uint8_t> row, uint8_t *out) {
            for (size_t i = 0; i < row.size(); i += size, out += 4)
                Pixels_Put(out, pixel(row.data() + i));
        });
    };
    if (h.ImageType == TGA_Mapped) {
        const std::vector<uint32_t> colours = ReadMap();
        each([&, wide = size == 2](const uint8_t *p) {
            return colours[wide ? p[0] | static_cast<size_t>(p[1]) << 8 : p[0]];
        });
    } else if (h.ImageType == TGA_Grey) {
        each([wide = size == 2](const uint8_t *p) {
            return Pixels_Pack(p[0], p[0], p[0], wide ? p[1] : 255);
        });
    } else {
        each([&h](const uint8_t *p) { return FromEntry(p, h.BitsPerPixel); });
    }
}

static void DecodePlain(std::span<const uint8_t> data, uint8_t *pixels)
{
    if (PixelSize() == 3)
        DecodeRows(data, pixels, [](std::span<const uint8_t> row, uint8_t *out) {
            Pixels_FromTriples(row, true, out);
        });
    else
        DecodeRows(data, pixels, [](std::span<const uint8_t> row, uint8_t *out) {
            for (size_t i = 0; i < row.size(); i += 4)
                Pixels_Put(out + i, Pixels_SwapRedBlue(Pixels_Get(row.data() + i)));
        });
}

// Format: mirrors rows that are stored from right to left.
static void Mirror(uint8_t *pixels)
{
    const TGA_HEADER &h = TGA_Header;
    for (size_t y = 0; y < h.Height; y++) {
        uint8_t *row = pixels + y * h.Width * 4;
        for (size_t a = 0, b = h.Width - 1; a < b; a++, b--)
            std::swap_ranges(row + 4 * a, row + 4 * a + 4, row + 4 * b);
    }
}

uint8_t *TGA_Decoding()
{
    const TGA_HEADER &h = TGA_Header;
    const std::span<const uint8_t> data = Bytes_GetSpan(TGA_File, h.DataOffset, ImageSize());
    const size_t row = h.Width * PixelSize();
    if (!Supports(h.ImageType)) {
        Reason_Set("image type %d of %d bits a pixel", h.ImageType, h.BitsPerPixel);
        return nullptr;
    }
    if (!Picture_Believes({h.Width, h.Height, data.size() / PixelSize(), TGA_File.size()}))
        return nullptr;
    if (data.size() < row) {
        Reason_Set("cut in its first row");
        return nullptr;
    }
    return Reason_Guard([&]() -> uint8_t * {
        PICTURE_PIXELS owner(Picture_NewUnsetPixels(h.Width, h.Height));
        uint8_t *pixels = owner.get();
        if (!pixels)
            return nullptr;
        const bool plain = h.BitsPerPixel >= 24;
        if (h.ImageType == TGA_TrueColour && plain)
            DecodePlain(data, pixels);
        else
            DecodeRare(data, pixels);
        if (ByFormat() && (h.Origin & 1) != 0)
            Mirror(pixels);
        if (data.size() < ImageSize())
            Reason_Set("cut after %zu of %u rows", data.size() / row, h.Height);
        return owner.release();
    });
}

void TGA_UnLoad()
{
    TGA_File = BYTES_BUFFER();
}

TGA_SIZE TGA_GetHeader()
{
    return TGA_Header;
}
