#include "picture/pcx.h"

#include <algorithm>
#include <cstring>

#include "extra/bytes.h"
#include "extra/reason.h"
#include "picture/pixels.h"

constinit thread_local PCX_HEADER PCX_Header{};
constinit thread_local BYTES_BUFFER PCX_File{};

constexpr size_t PCX_HeaderSize = 128;
constexpr size_t PCX_PaletteSize = 256 * 3;  // at the end of a file of 256 colours
constexpr uint8_t PCX_PaletteMark = 12;      // precedes the palette
constexpr size_t PCX_MaxRun = 63;

static bool ByFormat()
{
    return PCX_Header.Rules == PICTURE_RULES_FORMAT;
}

// Bit planes of one bit each, rather than one plane of indexes or a plane per component.
static bool IsPlanar()
{
    return PCX_Header.BitsPerPixel == 1 || PCX_Header.BitsPerPixel == 4;
}

static bool FrameworkSupports()
{
    return IsPlanar() || PCX_Header.BitsPerPixel == 8 ||
           (PCX_Header.BitsPerPixel == 24 && PCX_Header.Planes == 3);
}

static bool FormatSupports()
{
    const uint8_t bits = PCX_Header.BitsPerPlane, planes = PCX_Header.Planes;
    return planes >= 1 && planes <= 4 &&
           (bits == 8 ? planes != 2  // 64 colours would have no palette
                      : (bits == 1 || bits == 2 || bits == 4) &&
                            (bits * planes <= 4 || bits * planes == 8));
}

static bool IsKnown()
{
    return ByFormat() ? FormatSupports() : FrameworkSupports();
}

// Bytes of a row. The framework takes 8 bits in any number of planes for one plane of indexes.
static size_t RowSize()
{
    const bool single = !ByFormat() && PCX_Header.BitsPerPixel == 8;
    return size_t{single ? uint8_t{1} : PCX_Header.Planes} * PCX_Header.BytesPerLine;
}

// Position of the file's last `count` bytes, of all if it has fewer.
static size_t FromEnd(size_t count)
{
    return std::max(PCX_File.size(), count) - count;
}

// Whether the file ends with a palette of 256 colours. The framework assumes it.
static bool HasTailPalette()
{
    size_t mark = FromEnd(PCX_PaletteSize + 1);
    return !ByFormat() || (PCX_File.size() > PCX_HeaderSize + PCX_PaletteSize &&
                           Bytes_GetByte(PCX_File, mark) == PCX_PaletteMark);
}

// Size of the palette after the pixel data.
static size_t TailSize()
{
    return PCX_Header.BitsPerPixel == 8 && HasTailPalette() ? PCX_PaletteSize : 0;
}

// Format: the palette follows a mark.
static size_t MarkSize()
{
    return ByFormat() && TailSize() != 0 ? 1 : 0;
}

// The pixel data that the file has.
static std::span<const uint8_t> PixelData()
{
    const std::span<const uint8_t> rest = Bytes_GetSpan(PCX_File, PCX_HeaderSize);
    return rest.first(rest.size() - std::min(rest.size(), TailSize() + MarkSize()));
}

static void ReadHeader()
{
    PCX_HEADER &h = PCX_Header;
    h = {};
    h.FileSize = static_cast<uint32_t>(PCX_File.size());
    h.Rules = Picture_Rules;
    size_t position = 2;  // past manufacturer and version
    h.Encoding = Bytes_GetByte(PCX_File, position);
    h.BitsPerPlane = Bytes_GetByte(PCX_File, position);
    for (uint16_t *corner : {&h.XMin, &h.YMin, &h.XMax, &h.YMax})
        *corner = static_cast<uint16_t>(Bytes_GetLittle(PCX_File, position, 2));
    position = 65;
    h.Planes = Bytes_GetByte(PCX_File, position);
    h.BytesPerLine = static_cast<uint16_t>(Bytes_GetLittle(PCX_File, position, 2));
    h.Width = static_cast<uint16_t>(h.XMax - h.XMin + 1);
    h.Height = static_cast<uint16_t>(h.YMax - h.YMin + 1);
    h.BitsPerPixel = static_cast<uint8_t>(h.BitsPerPlane * h.Planes);
    h.Size = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    const int needed = ByFormat()           ? (h.Width * h.BitsPerPlane + 7) / 8
                       : h.BitsPerPixel < 8 ? (h.Width + 7) / 8
                                            : h.Width;
    h.BytesPerLine = std::max(h.BytesPerLine, static_cast<uint16_t>(needed));
}

// Bytes up to 192 are literals; the low six bits of larger ones are the count of the next byte.
// Runs may cross the ends of rows.
static void ExpandRuns(std::span<const uint8_t> packed, size_t size, BYTES_BUFFER &out)
{
    const size_t start = out.size();
    size = std::min(size, packed.size() / 2 * PCX_MaxRun + 1);
    out.resize(start + size + PCX_MaxRun);  // each run is written with PCX_MaxRun bytes
    uint8_t *to = out.data() + start;
    const uint8_t *const end = to + size;
    for (size_t i = 0; i < packed.size() && to < end;) {
        const uint8_t value = packed[i++];
        if (value <= 192) {
            *to++ = value;
        } else if (i < packed.size()) {
            std::memset(to, packed[i++], PCX_MaxRun);
            to += value - 192;
        }
    }
    out.resize(std::min(static_cast<size_t>(to - out.data()), start + size));
}

// Whether the expanded image of `size` bytes, and its pixels, are in proportion to the file.
static bool IsWorthExpanding(size_t size)
{
    const PCX_HEADER &h = PCX_Header;
    const uint64_t most = PCX_File.size() / 2 * PCX_MaxRun, row = std::max<size_t>(RowSize(), 1);
    return Picture_Believes({h.Width, h.Height, most / row * h.Width + h.Width, PCX_File.size(),
                             std::min<uint64_t>(size, most)});
}

void PCX_Load(const char *path)
{
    PCX_File = BYTES_BUFFER();
    Bytes_Guard(PCX_File, [path] {
        PCX_File = Bytes_LoadFile(path);
        ReadHeader();
        const size_t size = RowSize() * PCX_Header.Height;
        if (PCX_Header.Encoding != 1 || !IsKnown() ||
            PCX_File.size() < PCX_HeaderSize + TailSize() || !IsWorthExpanding(size))
            return;
        const auto tail = PCX_File.end() - static_cast<ptrdiff_t>(TailSize() + MarkSize());
        BYTES_BUFFER expanded(PCX_File.begin(), PCX_File.begin() + PCX_HeaderSize);
        ExpandRuns(PixelData(), size, expanded);
        expanded.insert(expanded.end(), tail, PCX_File.end());
        PCX_File = std::move(expanded);
        PCX_Header.FileSize = static_cast<uint32_t>(PCX_File.size());
    });
}

// Format: corrects the palette after reading.
static void CorrectPalette(size_t colours)
{
    PIXELS_PALETTE &palette = PCX_Header.Palette;
    if (colours == 256 && !HasTailPalette())
        for (size_t i = 0; i < colours; i++)
            palette[i].fill(static_cast<uint8_t>(i)), palette[i][3] = 255;
    if (colours == 2 && palette[0] == palette[1])
        palette[0] = {0, 0, 0, 255}, palette[1] = {255, 255, 255, 255};
}

static void ReadPalette()
{
    const size_t colours = size_t{1} << PCX_Header.BitsPerPixel;
    size_t position = colours == 256 ? FromEnd(PCX_PaletteSize) : 16;
    for (size_t i = 0; i < colours; i++) {
        for (size_t c = 0; c < 3; c++)
            PCX_Header.Palette[i][c] = Bytes_GetByte(PCX_File, position);
        PCX_Header.Palette[i][3] = 255;
    }
    if (ByFormat())
        CorrectPalette(colours);
}

// Format: planes of 1, 2 or 4 bits of an index, the first plane the lowest bits.
static void DecodeShallow(const PCX_HEADER &h, std::span<const uint8_t> row, uint8_t *out)
{
    const size_t bits = h.BitsPerPlane, mask = (size_t{1} << bits) - 1;
    for (size_t x = 0; x < h.Width; x++) {
        size_t index = 0;
        for (size_t p = 0; p < h.Planes; p++) {
            size_t position = p * h.BytesPerLine + x * bits / 8;
            const size_t byte = Bytes_GetByte(row, position);
            index |= (byte >> (8 - bits - x * bits % 8) & mask) << p * bits;
        }
        std::memcpy(out + 4 * x, h.Palette[index].data(), 4);
    }
}

// An index has one bit from each of 1 or 4 planes, the first plane the lowest bit.
static void DecodePlanes(const PCX_HEADER &h, std::span<const uint8_t> row, uint8_t *out)
{
    for (size_t x = 0; x < h.Width; x += 8) {
        uint64_t packed = 0;
        for (size_t p = 0; p < h.BitsPerPixel; p++) {
            size_t position = p * h.BytesPerLine + x / 8;
            packed |= Pixels_Spread[Bytes_GetByte(row, position)] << p;
        }
        const auto indexes = std::bit_cast<std::array<uint8_t, 8>>(packed);
        Pixels_FromIndexes(std::span(indexes).first(std::min<size_t>(8, h.Width - x)), h.Palette,
                           out + 4 * x);
    }
}

// One plane each of red, green, blue and, by the format's rules, alpha.
static void DecodeComponents(const PCX_HEADER &h, std::span<const uint8_t> row, uint8_t *out)
{
    const size_t width = h.Width, line = h.BytesPerLine;
    const std::span<const uint8_t> red = row.first(width), green = row.subspan(line, width),
                                   blue = row.subspan(2 * line, width);
    for (size_t x = 0; x < width; x++)
        Pixels_Put(out + 4 * x, Pixels_Pack(red[x], green[x], blue[x], 255));
    for (size_t x = 0; x < width && h.Planes == 4; x++)
        out[4 * x + 3] = row[3 * line + x];
}

// One byte an index.
static void DecodeIndexes(const PCX_HEADER &h, std::span<const uint8_t> row, uint8_t *out)
{
    Pixels_FromIndexes(row.first(h.Width), h.Palette, out);
}

static auto *RowDecoder()
{
    const PCX_HEADER &h = PCX_Header;
    if (h.BitsPerPixel >= 24)
        return DecodeComponents;
    if (h.BitsPerPixel == 8 && (h.BitsPerPlane == 8 || !ByFormat()))
        return DecodeIndexes;
    return IsPlanar() && (h.BitsPerPlane == 1 || !ByFormat()) ? DecodePlanes : DecodeShallow;
}

uint8_t *PCX_Decoding()
{
    const PCX_HEADER &h = PCX_Header;
    const std::span<const uint8_t> data = PixelData();
    if (!IsKnown()) {
        Reason_Set("%d planes of %d bits", h.Planes, h.BitsPerPlane);
        return nullptr;
    }
    // A width of 65536 is stored as 0; its lines may then be empty.
    const size_t row = RowSize(), held = row != 0 ? data.size() / row : 0;
    if (!Picture_Believes({h.Width, h.Height, held * h.Width, PCX_File.size()}))
        return nullptr;
    if (held == 0) {
        Reason_Set("cut in its first row");
        return nullptr;
    }
    uint8_t *pixels = Picture_NewUnsetPixels(h.Width, h.Height);
    if (!pixels)
        return nullptr;
    if (h.BitsPerPixel < 24)
        ReadPalette();
    const size_t rows = std::min<size_t>(h.Height, held);
    auto *const decode = RowDecoder();
    uint8_t *out = pixels;
    for (size_t y = 0; y < rows; y++, out += size_t{h.Width} * 4)
        decode(h, data.subspan(y * row), out);
    std::memset(out, 0, (h.Height - rows) * h.Width * 4);
    if (rows < h.Height)
        Reason_Set("cut after %zu of %d rows", rows, h.Height);
    return pixels;
}

void PCX_UnLoad()
{
    PCX_File = BYTES_BUFFER();
}

PCX_HEADER *PCX_GetHeader(PCX_HEADER *out)
{
    *out = PCX_Header;
    return out;
}
