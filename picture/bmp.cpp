#include "picture/bmp.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

#include "extra/bytes.h"
#include "extra/lanes.h"
#include "extra/local.h"
#include "extra/reason.h"
#include "picture/pixels.h"

constinit thread_local BMP_HEADER BMP_Header{};
constinit thread_local BYTES_BUFFER BMP_File{};

namespace
{

enum BMP_COMPRESSION : uint16_t {
    BMP_PLAIN = 0,
    BMP_RLE8 = 1,
    BMP_RLE4 = 2,
    BMP_FIELDS = 3,
    BMP_JPEG = 4,
    BMP_PNG = 5,
    BMP_ALPHAFIELDS = 6,
};

}  // namespace

// Maximum pixels per byte of runs: two bytes hold a run of 255.
constexpr size_t BMP_MaxOutOfOne = 128;
// Header sizes in bytes. One below 16 is OS/2 1.x's, which has 12.
constexpr uint32_t BMP_InfoHeader = 40, BMP_V3Header = 56, BMP_OS2Header = 64;

static uint32_t GetLittle(size_t position, int count)
{
    return Bytes_GetLittle(BMP_File, position, count);
}

static bool ByFormat()
{
    return BMP_Header.Rules == PICTURE_RULES_FORMAT;
}

static void ReadFrameworkHeader()
{
    BMP_HEADER &h = BMP_Header;
    h.Width = static_cast<uint16_t>(GetLittle(18, 4));
    const uint32_t height = GetLittle(22, 4);
    h.TopDown = height >> 31 != 0;
    h.Height = static_cast<uint16_t>(h.TopDown ? 0 - height : height);
    h.OutputSize = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    h.BitsPerPixel = static_cast<uint16_t>(GetLittle(28, 2));
    h.Compression = static_cast<uint16_t>(GetLittle(30, 4));
}

// Default masks of 16-bit and 32-bit pixels.
static void SetUsualMasks()
{
    BMP_HEADER &h = BMP_Header;
    const bool deep = h.BitsPerPixel == 32;
    h.RedMask = deep ? 0xFF0000 : 0x7C00;
    h.GreenMask = deep ? 0xFF00 : 0x3E0;
    h.BlueMask = deep ? 0xFF : 0x1F;
}

// Reads the headers that Windows and OS/2 write, of every size. Masks follow a header of 40 bytes
// or are part of a longer one. A width or height above 16 bits becomes 0.
static void ReadFormatHeader()
{
    BMP_HEADER &h = BMP_Header;
    const bool core = h.HeaderSize < 16;
    const uint32_t width = GetLittle(18, core ? 2 : 4),
                   height = GetLittle(core ? 20 : 22, core ? 2 : 4);
    h.TopDown = height >> 31 != 0;
    const uint32_t rows = h.TopDown ? 0 - height : height;
    if (width > 0xFFFF || rows > 0xFFFF)
        Reason_Set("a side of more than 65535 pixels");
    h.Width = static_cast<uint16_t>(width > 0xFFFF ? 0 : width);
    h.Height = static_cast<uint16_t>(rows > 0xFFFF ? 0 : rows);
    h.OutputSize = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    h.BitsPerPixel = static_cast<uint16_t>(GetLittle(core ? 24 : 28, 2));
    const auto has = [&h](uint32_t end) { return h.HeaderSize >= end - 14; };
    const uint32_t compression = has(34) ? GetLittle(30, 4) : 0;
    h.Compression = static_cast<uint16_t>(std::min<uint32_t>(compression, 0xFFFF));
    SetUsualMasks();
    if (h.Compression == BMP_FIELDS || h.Compression == BMP_ALPHAFIELDS) {
        h.RedMask = GetLittle(54, 4);
        h.GreenMask = GetLittle(58, 4);
        h.BlueMask = GetLittle(62, 4);
        const bool alpha = h.HeaderSize >= BMP_V3Header || h.Compression == BMP_ALPHAFIELDS;
        h.AlphaMask = alpha ? GetLittle(66, 4) : 0;
        if (h.HeaderSize == BMP_InfoHeader)  // a header without masks is followed by them
            h.PaletteOffset += h.Compression == BMP_FIELDS ? 12 : 16;
    }
    const uint32_t used = has(50) ? GetLittle(46, 4) : 0;
    const uint32_t all = h.BitsPerPixel <= 8 ? 1u << h.BitsPerPixel : 0;
    const uint32_t count = used != 0 ? std::min(used, all) : all;
    // Some writers leave the offset of the pixels 0.
    if (h.DataOffset < h.PaletteOffset)
        h.DataOffset = h.PaletteOffset + count * (core ? 3 : 4);
    const uint32_t room = h.DataOffset - h.PaletteOffset;
    const bool triples = core || (h.HeaderSize == BMP_OS2Header && room == count * 3);
    h.PaletteEntry = triples ? 3 : 4;
    h.PaletteCount = static_cast<uint16_t>(std::min(count, std::max(room / h.PaletteEntry, used)));
}

static void ReadHeader()
{
    BMP_HEADER &h = BMP_Header;
    h = {};
    h.Rules = Picture_Rules;
    h.HeaderSize = GetLittle(14, 4);
    h.DataOffset = GetLittle(10, 4);
    h.PaletteOffset = std::min<uint32_t>(h.HeaderSize, INT32_MAX) + 14;  // does not wrap
    if (ByFormat())
        ReadFormatHeader();
    else
        ReadFrameworkHeader();
}

static bool HasRuns()
{
    return BMP_Header.Compression == BMP_RLE8 || BMP_Header.Compression == BMP_RLE4;
}

// Bits of a pixel in BMP_File. The format's rules expand runs to one byte per pixel.
static size_t StoredBits()
{
    return ByFormat() && HasRuns() ? 8 : BMP_Header.BitsPerPixel;
}

static size_t RowBytes()
{
    return (size_t{BMP_Header.Width} * StoredBits() + 7) / 8;
}

// On purpose: the padding of 24-bit rows also serves other depths, and 1 and 4 bits have rules of
// their own.
static size_t FrameworkRowSkip()
{
    const BMP_HEADER &h = BMP_Header;
    switch (h.BitsPerPixel) {
    case 1:
        return h.Width % 8 != 0 ? 3 : 0;
    case 4:
        return h.Width % 4 != 0 ? 3 : 0;
    default:
        return h.Width % 4;
    }
}

static size_t FormatRowSkip()
{
    return HasRuns() ? 0 : (4 - RowBytes() % 4) % 4;
}

// Padding between a row's pixels and the next row.
static size_t RowSkip()
{
    return ByFormat() ? FormatRowSkip() : FrameworkRowSkip();
}

static bool FrameworkSupports(const BMP_HEADER &h)
{
    switch (h.BitsPerPixel) {
    case 1:
    case 4:
    case 8:
    case 24:
        return true;
    case 16:
    case 32:
        return h.Compression == BMP_PLAIN || h.Compression == BMP_FIELDS;
    default:
        return false;
    }
}

static bool FormatSupports(const BMP_HEADER &h)
{
    switch (h.Compression) {
    case BMP_PLAIN:
        return FrameworkSupports(h) || h.BitsPerPixel == 2;
    case BMP_RLE8:
        return h.BitsPerPixel == 8;
    case BMP_RLE4:
        return h.BitsPerPixel == 4;
    case BMP_FIELDS:
    case BMP_ALPHAFIELDS:
        return h.HeaderSize != BMP_OS2Header && (h.BitsPerPixel == 16 || h.BitsPerPixel == 32);
    default:
        return false;
    }
}

// Sets the reason for an unsupported file.
static void SetReason(const BMP_HEADER &h)
{
    if (h.HeaderSize == BMP_OS2Header && h.Compression == BMP_FIELDS)
        Reason_Set("Huffman compression");
    else if (h.HeaderSize == BMP_OS2Header && h.Compression == BMP_JPEG)
        Reason_Set("RLE24 compression");
    else if (h.Compression == BMP_JPEG || h.Compression == BMP_PNG)
        Reason_Set("an embedded %s picture", h.Compression == BMP_JPEG ? "JPEG" : "PNG");
    else
        Reason_Set("%d bits a pixel with compression %d", h.BitsPerPixel, h.Compression);
}

static bool IsPossible()
{
    const BMP_HEADER &h = BMP_Header;
    if (!(ByFormat() ? FormatSupports(h) : FrameworkSupports(h))) {
        SetReason(h);
        return false;
    }
    if (h.DataOffset >= BMP_File.size()) {
        Reason_Set("the pixels are missing");
        return false;
    }
    const size_t held = BMP_File.size() - h.DataOffset;
    const uint64_t expanded = HasRuns() ? uint64_t{h.Width} * h.Height : 0;
    return Picture_Believes({h.Width, h.Height,
                             HasRuns() ? held * BMP_MaxOutOfOne : held * 8 / h.BitsPerPixel,
                             BMP_File.size(), expanded});
}

namespace
{

// Writes runs into a fixed buffer and drops what does not fit.
struct BMP_WRITER {
    std::span<uint8_t> Buffer;
    size_t Position = 0;

    size_t Room(size_t count) const
    {
        return std::min(count, Buffer.size() - Position);
    }
    // Writes the two values in turn.
    void Repeat(int first, int second, size_t count)
    {
        constexpr size_t chunk = 8;
        const std::array<uint8_t, 2> pair = {static_cast<uint8_t>(first),
                                             static_cast<uint8_t>(second)};
        const uint64_t four = std::bit_cast<uint16_t>(pair) * uint64_t{0x0001000100010001};
        const auto pattern = std::bit_cast<std::array<uint8_t, chunk>>(four);
        uint8_t *out = Buffer.data() + Position;
        count = Room(count);
        if (Room(count + chunk) == count + chunk) {
            size_t i = 0;
            do  // may write up to a chunk past the run
                std::memcpy(out + i, pattern.data(), chunk);
            while ((i += chunk) < count);
        } else {
            for (size_t i = 0; i < count; i++)
                out[i] = pattern[i % chunk];
        }
        Position += count;
    }
    void Copy(std::span<const uint8_t> bytes)
    {
        const size_t count = Room(bytes.size());
        std::copy_n(bytes.begin(), count, Buffer.begin() + static_cast<ptrdiff_t>(Position));
        Position += count;
    }
    // Each in its half of a byte, the high ones then shifted right.
    void CopyNibbles(std::span<const uint8_t> bytes, size_t count, int shift)
    {
        count = Room(std::min(count, 2 * bytes.size()));
        for (size_t i = 0; i < count; i++)
            Buffer[Position + i] = static_cast<uint8_t>(i % 2 == 0 ? (bytes[i / 2] & 0xF0) >> shift
                                                                   : bytes[i / 2] & 0x0F);
        Position += count;
    }
};

}  // namespace

// Expands to one byte per pixel; RLE4's nibbles stay in their half of the byte. On purpose: ends of
// lines and of the bitmap are ignored, a delta skips bytes of the file instead of pixels, and the
// padding of RLE4's literal pixels is that of half as many.
static size_t ExpandFrameworkRuns(std::span<const uint8_t> file, std::span<uint8_t> pixels)
{
    const BMP_HEADER &h = BMP_Header;
    const bool nibbles = h.Compression == BMP_RLE4;
    BMP_WRITER out{pixels};
    size_t p = h.DataOffset;
    while (p < file.size() && out.Position < pixels.size()) {
        const size_t count = Bytes_GetByte(file, p);
        const uint8_t value = Bytes_GetByte(file, p);
        if (count != 0) {
            out.Repeat(value & (nibbles ? 0xF0 : 0xFF), value & (nibbles ? 0x0F : 0xFF), count);
        } else if (value == 2) {
            const size_t dx = Bytes_GetByte(file, p), dy = Bytes_GetByte(file, p);
            p += dy * h.Width + dx;
        } else if (value > 2 && nibbles) {
            const size_t bytes = (value + size_t{1}) / 2;
            out.CopyNibbles(Bytes_GetSpan(file, p, bytes), value, 0);
            p += bytes + value / 2 % 2;
        } else if (value > 2) {
            out.Copy(Bytes_GetSpan(file, p, value));
            p += value + size_t{value} % 2;
        }
    }
    return out.Position;
}

// Expands to one byte per pixel, RLE4 too. Pixels without a run are 0; pixels past the row's end
// are dropped. Leaves a reason if the file ends before the last pixel, without an end of the
// bitmap.
static void ExpandFormatRuns(std::span<const uint8_t> file, std::span<uint8_t> pixels)
{
    const BMP_HEADER &h = BMP_Header;
    const size_t width = h.Width;
    const bool nibbles = h.Compression == BMP_RLE4;
    BMP_WRITER out{pixels};
    const auto clearTo = [&out](size_t position) {
        position = std::min(position, out.Buffer.size());
        if (out.Position < position)
            out.Repeat(0, 0, position - out.Position);
    };
    size_t p = h.DataOffset, row = 0;  // row: start of the current row
    bool ended = false;
    while (!ended && p < file.size() && row < pixels.size()) {
        const size_t count = Bytes_GetByte(file, p);
        const uint8_t value = Bytes_GetByte(file, p);
        const size_t room = row + width - out.Position;
        if (count != 0) {
            out.Repeat(nibbles ? value >> 4 : value, nibbles ? value & 15 : value,
                       std::min(count, room));
        } else if (value == 0) {
            row += width;
            clearTo(row);
        } else if (value == 1) {
            ended = true;
        } else if (value == 2) {
            const size_t right = std::min<size_t>(Bytes_GetByte(file, p), room);
            const size_t up = Bytes_GetByte(file, p) * width;
            row += up;
            clearTo(out.Position + right + up);
        } else {
            const size_t bytes = nibbles ? (value + size_t{1}) / 2 : value;
            const auto literal = Bytes_GetSpan(file, p, bytes);
            if (nibbles)
                out.CopyNibbles(literal, std::min<size_t>(value, room), 4);
            else
                out.Copy(literal.first(std::min(literal.size(), room)));
            p += bytes + bytes % 2;
        }
    }
    if (!ended && out.Position < pixels.size())
        Reason_Set("cut after %zu of %d rows", row / width, h.Height);
    clearTo(pixels.size());
}

// Packs RLE4's pixels two to a byte and returns the number of bytes left. On purpose: as many bytes
// as the width squared needs, not as the picture has; those after them are unchanged.
static size_t PackNibbles(std::span<uint8_t> pixels)
{
    constexpr size_t block = 8;
    const size_t wanted = (size_t{BMP_Header.Width} * BMP_Header.Width + 1) / 2;
    const size_t pairs = std::min(wanted, pixels.size() / 2);
    size_t i = 0;
    for (; i + block <= pairs; i += block) {
        std::array<uint8_t, 2 * block> nibbles;
        std::array<uint8_t, block> bytes;
        std::memcpy(nibbles.data(), pixels.data() + 2 * i, nibbles.size());
        for (size_t k = 0; k < block; k++)
            bytes[k] = nibbles[2 * k] | nibbles[2 * k + 1];
        std::memcpy(pixels.data() + i, bytes.data(), bytes.size());
    }
    for (; i < pairs; i++)
        pixels[i] = pixels[2 * i] | pixels[2 * i + 1];
    if (i == wanted)
        return pixels.size();
    if (pixels.size() % 2 != 0)
        pixels[i++] = pixels.back();
    return i;
}

// The file with its runs expanded: the bytes before them unchanged, then the pixels.
static BYTES_BUFFER ExpandFile()
{
    const BMP_HEADER &h = BMP_Header;
    const size_t offset = h.DataOffset;
    const size_t pixels =
        std::min(size_t{h.Width} * h.Height, (BMP_File.size() - offset) * BMP_MaxOutOfOne);
    BYTES_BUFFER expanded(offset + pixels);
    std::copy_n(BMP_File.begin(), offset, expanded.begin());
    const std::span<uint8_t> room = std::span(expanded).subspan(offset);
    if (ByFormat()) {
        ExpandFormatRuns(BMP_File, room);
        return expanded;
    }
    size_t size = ExpandFrameworkRuns(BMP_File, room);
    if (h.Compression == BMP_RLE4)
        size = PackNibbles(room.first(size));
    expanded.resize(offset + size);
    return expanded;
}

void BMP_Load(const char *path)
{
    BMP_File = BYTES_BUFFER();
    Bytes_Guard(BMP_File, [path] {
        BMP_File = Bytes_LoadFile(path);
        ReadHeader();
        if (!IsPossible())
            BMP_File = BYTES_BUFFER();
        else if (HasRuns())
            BMP_File = ExpandFile();
    });
}

// Reads the palette. Missing entries are black.
static void ReadPalette()
{
    const size_t entry = ByFormat() ? BMP_Header.PaletteEntry : 4;
    const size_t count =
        ByFormat() ? BMP_Header.PaletteCount : size_t{1} << BMP_Header.BitsPerPixel;
    if (ByFormat())
        BMP_Header.Palette.fill({0, 0, 0, 255});
    for (size_t i = 0; i < count; i++) {
        const uint32_t bgr = GetLittle(BMP_Header.PaletteOffset + entry * i, 3);
        BMP_Header.Palette[i] = {static_cast<uint8_t>(bgr >> 16), static_cast<uint8_t>(bgr >> 8),
                                 static_cast<uint8_t>(bgr), 255};
    }
}

// On purpose: masks are read in the byte order of the pixels, and 32-bit pixels have their highest
// byte first.
static void ReadFrameworkMasks()
{
    BMP_HEADER &h = BMP_Header;
    size_t position = h.PaletteOffset == h.DataOffset ? 54 : h.PaletteOffset;
    for (uint32_t *mask : {&h.RedMask, &h.GreenMask, &h.BlueMask})
        *mask = h.BitsPerPixel == 16 ? Bytes_GetLittle(BMP_File, position, 4)
                                     : Bytes_GetBig(BMP_File, position, 4);
}

uint8_t BMP_BitCounter(uint32_t mask)
{
    return mask == 0 ? uint8_t{0}
                     : static_cast<uint8_t>(std::countr_one(mask >> std::countr_zero(mask)));
}

namespace
{

// Extracts a component from a pixel: the low 8 bits of (pixel & Mask) >> Right << Left.
struct BMP_FIELD {
    uint32_t Mask;
    int Right, Left;

    // Clamps the shifts to valid ones. If no bit would remain, the mask is 0.
    static BMP_FIELD Make(uint32_t mask, int right, int left)
    {
        right += left < 0 ? -left : 0;
        return right > 31 ? BMP_FIELD{0, 0, 0} : BMP_FIELD{mask, right, left < 0 ? 0 : left};
    }
    uint32_t operator()(uint32_t pixel) const
    {
        return (pixel & Mask) >> Right << Left & 0xFF;
    }
};

// A component at any mask of up to 32 bits, scaled to 0..255 by repeating its bits; 0 without a
// mask. The repeating is a multiplication.
struct BMP_SCALED_FIELD {
    uint32_t Mask = 0, Repeat = 0;
    int Right = 0, Excess = 0;  // Right keeps at most 8 bits

    explicit BMP_SCALED_FIELD(uint32_t mask) : Mask(mask)
    {
        if (mask == 0)
            return;
        const int low = std::countr_zero(mask),
                  bits = static_cast<int>(std::bit_width(mask >> low));
        const int kept = std::min(bits, 8);
        Right = low + bits - kept;
        int all = 0;
        for (; all < 8; all += kept)
            Repeat |= 1u << all;
        Excess = all - 8;
    }
    uint32_t operator()(uint32_t pixel) const
    {
        return ((pixel & Mask) >> Right) * Repeat >> Excess;
    }
};

struct BMP_SCALED_FIELDS {
    BMP_SCALED_FIELD Red, Green, Blue, Alpha;
    uint32_t Opaque;  // 255 if there is no alpha
};

}  // namespace

using BMP_FIELDS3 = std::array<BMP_FIELD, 3>;  // red, green, blue

// Fields are adjacent in the pixel's 16 bits, blue lowest, and are scaled to 8 bits.
static BMP_FIELDS3 Fields16()
{
    const BMP_HEADER &h = BMP_Header;
    if (h.Compression == BMP_PLAIN)
        return {{{0x7C00, 7, 0}, {0x03E0, 2, 0}, {0x001F, 0, 3}}};
    const int red = BMP_BitCounter(h.RedMask), green = BMP_BitCounter(h.GreenMask),
              blue = BMP_BitCounter(h.BlueMask);
    return {BMP_FIELD::Make(h.RedMask, green + blue, 8 - red),
            BMP_FIELD::Make(h.GreenMask, blue, 8 - green),
            BMP_FIELD::Make(h.BlueMask, 0, 8 - blue)};
}

// Fields are adjacent in the pixel's 32 bits, red lowest, and are assumed to have 8 bits.
static BMP_FIELDS3 Fields32()
{
    const BMP_HEADER &h = BMP_Header;
    const int red = BMP_BitCounter(h.RedMask), green = BMP_BitCounter(h.GreenMask);
    return {BMP_FIELD::Make(h.RedMask, 0, 0), BMP_FIELD::Make(h.GreenMask, red, 0),
            BMP_FIELD::Make(h.BlueMask, red + green, 0)};
}

// Calls row(bytes, pixels, out) for each row of the file with its number of complete pixels;
// missing pixels are transparent.
template <typename Row>
static void DecodeRows(uint8_t *pixels, const Row &row)
{
    const BMP_HEADER &h = Extra_Local(BMP_Header);
    const std::span<const uint8_t> file = BMP_File;
    const size_t bits = StoredBits(), bytes = RowBytes(), stride = bytes + RowSkip();
    for (size_t r = 0; r < h.Height; r++) {
        const auto in = Bytes_GetSpan(file, h.DataOffset + r * stride, bytes);
        const size_t count = std::min<size_t>(h.Width, in.size() * 8 / bits);
        const size_t y = h.TopDown ? r : h.Height - 1u - r;
        uint8_t *out = pixels + y * h.Width * 4;
        row(in.data(), count, out);
        std::memset(out + 4 * count, 0, 4 * (h.Width - count));
    }
}

// Decodes pixels of Bits bits through a table, Per pixels at a time, the highest bits first.
template <size_t Bits, size_t Per>
static void DecodeShallow(uint8_t *pixels)
{
    constexpr size_t step = Bits * Per, codes = size_t{1} << step;
    static_assert(8 % step == 0);
    std::array<std::array<uint32_t, Per>, codes> table;
    for (size_t code = 0; code < codes; code++)
        for (size_t i = 0; i < Per; i++)
            table[code][i] = std::bit_cast<uint32_t>(
                BMP_Header.Palette[code >> (Per - 1 - i) * Bits & ((1u << Bits) - 1)]);
    DecodeRows(pixels, [&table](const uint8_t *in, size_t count, uint8_t *out) {
        const auto entry = [&](size_t i) {  // the table entry of pixel i
            const size_t bit = i * Bits;
            return table[in[bit / 8] >> (8 - step - bit % 8) & (codes - 1)].data();
        };
        size_t i = 0;
        for (; i + Per <= count; i += Per)
            std::memcpy(out + 4 * i, entry(i), 4 * Per);
        if (i < count)
            std::memcpy(out + 4 * i, entry(i), 4 * (count - i));
    });
}

static void Decode16(uint8_t *pixels)
{
    DecodeRows(pixels, [fields = Fields16()](const uint8_t *in, size_t count, uint8_t *out) {
        const auto [red, green, blue] = fields;
        for (size_t i = 0; i < count; i++) {
            const uint32_t w = in[2 * i] | static_cast<uint32_t>(in[2 * i + 1]) << 8;
            Pixels_Put(out + 4 * i, Pixels_Pack(red(w), green(w), blue(w), 255));
        }
    });
}

static void Decode24(uint8_t *pixels)
{
    DecodeRows(pixels, [](const uint8_t *in, size_t count, uint8_t *out) {
        Pixels_FromTriples({in, 3 * count}, true, out);
    });
}

// On purpose: the first byte is alpha, the last is red.
static void Decode32(uint8_t *pixels)
{
    DecodeRows(pixels, [](const uint8_t *in, size_t count, uint8_t *out) {
        for (size_t i = 0; i < count; i++)
            Pixels_Put(out + 4 * i,
                       Pixels_Pack(in[4 * i + 3], in[4 * i + 2], in[4 * i + 1], in[4 * i]));
    });
}

static void Decode32Fields(uint8_t *pixels)
{
    DecodeRows(pixels, [fields = Fields32()](const uint8_t *in, size_t count, uint8_t *out) {
        const auto [red, green, blue] = fields;
        for (size_t i = 0; i < count; i++) {
            const uint32_t first = in[4 * i], second = in[4 * i + 1], third = in[4 * i + 2];
            const uint32_t w = first << 24 | second << 16 | third << 8 | in[4 * i + 3];
            Pixels_Put(out + 4 * i, Pixels_Pack(red(w), green(w), blue(w), 255));
        }
    });
}

// Sets a reason if the file ends before its last row.
static void SetCutReason()
{
    const BMP_HEADER &h = BMP_Header;
    const size_t stride = RowBytes() + RowSkip(), held = BMP_File.size() - h.DataOffset;
    const size_t rows = (held + RowSkip()) / stride;
    if (rows < h.Height)
        Reason_Set("cut after %zu of %d rows", rows, h.Height);
}

// Alpha that is 0 everywhere is ignored: files often have an alpha mask that they do not use.
static void DropUnusedAlpha(uint8_t *pixels)
{
    const size_t size = size_t{BMP_Header.Width} * BMP_Header.Height * 4;
    for (size_t i = 3; i < size; i += 4)
        if (pixels[i] != 0)
            return;
    for (size_t i = 3; i < size; i += 4)
        pixels[i] = 255;
}

// Words of 16 or 32 bits in a row.
template <typename Word>
[[gnu::always_inline]] static inline void FromWords(const uint8_t *in, size_t count,
                                                    const BMP_SCALED_FIELDS &fields, uint8_t *out)
{
    const BMP_SCALED_FIELDS f = fields;  // not reloaded after each store
    for (size_t i = 0; i < count; i++) {
        Word word;
        std::memcpy(&word, in + i * sizeof word, sizeof word);
        uint32_t w = word;
        if constexpr (std::endian::native == std::endian::big)
            w = __builtin_bswap32(w) >> (32 - 8 * sizeof word);
        Pixels_Put(out + 4 * i,
                   Pixels_Pack(f.Red(w), f.Green(w), f.Blue(w), f.Alpha(w) | f.Opaque));
    }
}

EXTRA_LANES static void MaskRow(const uint8_t *__restrict in, size_t count, bool wide,
                                const BMP_SCALED_FIELDS &fields, uint8_t *__restrict out)
{
    if (wide)
        FromWords<uint32_t>(in, count, fields, out);
    else
        FromWords<uint16_t>(in, count, fields, out);
}

// Format: 16 and 32 bits.
static void DecodeMasked(uint8_t *pixels)
{
    const BMP_HEADER &h = BMP_Header;
    const BMP_SCALED_FIELDS fields = {BMP_SCALED_FIELD(h.RedMask), BMP_SCALED_FIELD(h.GreenMask),
                                      BMP_SCALED_FIELD(h.BlueMask), BMP_SCALED_FIELD(h.AlphaMask),
                                      h.AlphaMask == 0 ? 255u : 0u};
    DecodeRows(pixels, [&](const uint8_t *in, size_t count, uint8_t *out) {
        MaskRow(in, count, h.BitsPerPixel == 32, fields, out);
    });
    if (h.AlphaMask != 0)
        DropUnusedAlpha(pixels);
}

static void DecodeDeepByFramework(uint8_t *pixels)
{
    const BMP_HEADER &h = BMP_Header;
    if (h.Compression == BMP_FIELDS)
        ReadFrameworkMasks();
    if (h.BitsPerPixel == 16)
        Decode16(pixels);
    else if (h.Compression == BMP_FIELDS)
        Decode32Fields(pixels);
    else
        Decode32(pixels);
}

uint8_t *BMP_Decoding()
{
    const BMP_HEADER &h = BMP_Header;
    if (BMP_File.empty())
        return nullptr;
    uint8_t *pixels = Picture_NewUnsetPixels(h.Width, h.Height);
    if (!pixels)
        return nullptr;
    if (h.BitsPerPixel <= 8)
        ReadPalette();
    switch (StoredBits()) {
    case 1:
        DecodeShallow<1, 4>(pixels);
        break;
    case 2:
        DecodeShallow<2, 2>(pixels);
        break;
    case 4:
        DecodeShallow<4, 2>(pixels);
        break;
    case 8:
        DecodeShallow<8, 1>(pixels);
        break;
    case 24:
        Decode24(pixels);
        break;
    default:
        if (ByFormat())
            DecodeMasked(pixels);
        else
            DecodeDeepByFramework(pixels);
    }
    SetCutReason();
    return pixels;
}

void BMP_UnLoad()
{
    BMP_File = BYTES_BUFFER();
}

BMP_HEADER *BMP_GetHeader(BMP_HEADER *out)
{
    *out = BMP_Header;
    return out;
}
