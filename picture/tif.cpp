#include "picture/tif.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <type_traits>

#include "extra/bytes.h"
#include "picture/inflate.h"
#include "picture/packbits.h"
#include "picture/pixels.h"

constinit thread_local TIF_HEADER TIF_Header{};
constinit thread_local BYTES_BUFFER TIF_File{};
constinit thread_local size_t TIF_Position{};

enum TIF_TAG : uint16_t {
    TIF_ImageWidth = 256,
    TIF_ImageLength = 257,
    TIF_BitsPerSample = 258,
    TIF_Compression = 259,
    TIF_Photometric = 262,
    TIF_FillOrder = 266,
    TIF_DocumentName = 269,
    TIF_StripOffsets = 273,
    TIF_SamplesPerPixel = 277,
    TIF_RowsPerStrip = 278,
    TIF_StripByteCounts = 279,
    TIF_PlanarConfiguration = 284,
    TIF_Predictor = 317,
    TIF_ColorMap = 320,
    TIF_TileWidth = 322,
    TIF_ExtraSamples = 338,
};

enum TIF_COMPRESSION : uint16_t {
    TIF_Plain = 1,
    TIF_LZW = 5,
    TIF_Deflate = 8,
    TIF_OldDeflate = 32946,
    TIF_PackBits = 32773,
};

enum TIF_COLORS : uint16_t { TIF_WhiteIs0, TIF_BlackIs0, TIF_RGB, TIF_Palette };

constexpr uint32_t TIF_HeaderSize = 8;
constexpr uint16_t TIF_MostSamples = 8;

uint8_t TIF_GetByte()
{
    return Bytes_GetByte(TIF_File, TIF_Position);
}

uint16_t TIF_GetWord()
{
    return static_cast<uint16_t>(TIF_Header.ByteOrder == 'M'
                                     ? Bytes_GetBig(TIF_File, TIF_Position, 2)
                                     : Bytes_GetLittle(TIF_File, TIF_Position, 2));
}

uint32_t TIF_GetDWord()
{
    return TIF_Header.ByteOrder == 'M' ? Bytes_GetBig(TIF_File, TIF_Position, 4)
                                       : Bytes_GetLittle(TIF_File, TIF_Position, 4);
}

// Bytes of a value, by type.
constexpr std::array<uint8_t, 6> TIF_TypeSize = {0, 1, 1, 2, 4, 8};

static TIF_ENTRY ReadEntry()
{
    TIF_ENTRY e{};
    e.Tag = TIF_GetWord();
    e.Type = TIF_GetWord();
    e.Count = TIF_GetDWord();
    e.ByteSize = uint64_t{e.Count} * (e.Type < TIF_TypeSize.size() ? TIF_TypeSize[e.Type] : 0);
    e.Position = TIF_Position;
    e.Value = TIF_GetDWord();
    if (e.ByteSize > 4)
        e.Position = e.Value;
    return e;
}

static void ReadDirectories()
{
    TIF_HEADER &h = TIF_Header;
    TIF_Position = 0;
    h.ByteOrder = TIF_GetByte();
    TIF_Position++;  // the letter again
    h.Magic = TIF_GetWord();
    h.NextDirectory = TIF_GetDWord();
    while (h.NextDirectory != 0 && h.DirectoryCount < h.Directories.size()) {
        TIF_IFD &directory = h.Directories[h.DirectoryCount++];
        TIF_Position = h.NextDirectory;
        const size_t count = TIF_GetWord();
        for (size_t i = 0; i < count && TIF_Position < TIF_File.size(); i++)
            directory.Entries.push_back(ReadEntry());
        directory.Next = h.NextDirectory = TIF_GetDWord();
    }
}

// The first directory's entry of a tag; null when there is none.
static const TIF_ENTRY *Find(TIF_TAG tag)
{
    const auto &entries = TIF_Header.Directories[0].Entries;
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [tag](const TIF_ENTRY &e) { return e.Tag == tag; });
    return found != entries.end() ? &*found : nullptr;
}

// The i-th number of an entry; 0 when it has fewer or none.
static uint32_t GetValue(const TIF_ENTRY *entry, size_t i)
{
    if (!entry || i >= entry->Count || entry->ByteSize == 0)
        return 0;
    TIF_Position = entry->Position + i * TIF_TypeSize[entry->Type];
    switch (entry->Type) {
    case 3:
        return TIF_GetWord();
    case 4:
        return TIF_GetDWord();
    default:
        return TIF_GetByte();
    }
}

// The number of a tag that has one, within 16 bits: larger ones are 0.
static uint16_t GetTag(TIF_TAG tag, uint16_t missing)
{
    const TIF_ENTRY *entry = Find(tag);
    const uint32_t value = entry ? GetValue(entry, 0) : missing;
    return value <= 0xFFFF ? static_cast<uint16_t>(value) : uint16_t{0};
}

// A list of three is believed when it is even, and else taken for 8.
static uint8_t ReadBitsPerSample()
{
    const TIF_ENTRY *entry = Find(TIF_BitsPerSample);
    uint16_t bits = GetTag(TIF_BitsPerSample, 0);
    if (entry && entry->ByteSize >= 5) {
        auto &list = TIF_Header.SampleBits;
        TIF_Position = entry->Position;
        for (uint16_t &sample : list)
            sample = TIF_GetWord();
        bits = list[0] == list[1] && list[2] != 0 ? list[0] : uint16_t{8};
    }
    return bits <= 0xFF ? static_cast<uint8_t>(bits) : uint8_t{0};
}

static void ReadDocumentName()
{
    const TIF_ENTRY *entry = Find(TIF_DocumentName);
    auto &name = TIF_Header.DocumentName;
    for (size_t i = 0; entry && i < std::min<size_t>(entry->Count, name.size() - 1); i++)
        name[i] = static_cast<char>(GetValue(entry, i));
}

// What a pixel is made of. Files that say less than the standard asks for are RGB.
static void ReadSamples()
{
    TIF_HEADER &h = TIF_Header;
    const TIF_ENTRY *bits = Find(TIF_BitsPerSample);
    const bool grey = GetTag(TIF_Photometric, TIF_RGB) != TIF_RGB;
    const bool list = bits && bits->Count >= 3 && bits->Count <= TIF_MostSamples;
    const auto samples = static_cast<uint16_t>(list ? bits->Count : grey ? 1 : 3);
    h.Samples = GetTag(TIF_SamplesPerPixel, samples);
    h.Photometric = GetTag(TIF_Photometric, h.Samples >= 3 ? TIF_RGB : TIF_BlackIs0);
    const bool extra = h.Samples > (h.Photometric == TIF_RGB ? 3 : 1);
    h.Alpha = extra && h.Photometric != TIF_Palette ? GetTag(TIF_ExtraSamples, 2) : uint16_t{0};
}

static void ReadHeader()
{
    TIF_HEADER &h = TIF_Header;
    h = {};
    ReadDirectories();
    h.Width = GetTag(TIF_ImageWidth, 0);
    h.Height = GetTag(TIF_ImageLength, 0);
    h.OutputSize = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    h.BitsPerSample = ReadBitsPerSample();
    h.Compression = GetTag(TIF_Compression, TIF_Plain);
    ReadDocumentName();
    ReadSamples();
    h.Planar = GetTag(TIF_PlanarConfiguration, 1) == 2 && h.Samples > 1;
    h.Predictor = GetTag(TIF_Predictor, 1);
    h.FillOrder = GetTag(TIF_FillOrder, 1);
    const TIF_ENTRY *strips = Find(TIF_StripOffsets);
    h.DataPosition = strips ? GetValue(strips, 0) : TIF_HeaderSize;
    const uint32_t rows = GetValue(strips ? Find(TIF_RowsPerStrip) : nullptr, 0);
    h.RowsPerStrip = rows != 0 && rows < h.Height ? rows : h.Height;
}

// Strips of one sample's plane, or of the whole picture.
static size_t StripCount()
{
    const TIF_HEADER &h = TIF_Header;
    return (h.Height + size_t{h.RowsPerStrip} - 1) / h.RowsPerStrip;
}

static size_t RowsOf(size_t strip)
{
    const TIF_HEADER &h = TIF_Header;
    return std::min<size_t>(h.RowsPerStrip, h.Height - strip * h.RowsPerStrip);
}

static size_t PlaneCount()
{
    return TIF_Header.Planar ? TIF_Header.Samples : 1;
}

// Bytes from a pixel to the next within a plane.
static size_t PixelStep()
{
    return TIF_Header.Planar ? 1 : TIF_Header.Samples;
}

static size_t RowBytes()
{
    return TIF_Header.Width * PixelStep();
}

// Values of an entry that the file really has.
static size_t CountValues(const TIF_ENTRY &entry)
{
    const size_t there = Bytes_GetSpan(TIF_File, entry.Position, entry.ByteSize).size();
    return entry.ByteSize == 0 ? 0 : there / TIF_TypeSize[entry.Type];
}

// Where the strips are, and how many bytes they take.
struct TIF_STRIPS {
    const TIF_ENTRY *Offsets = Find(TIF_StripOffsets);
    const TIF_ENTRY *ByteCounts = Find(TIF_StripByteCounts);
    size_t Count = std::min(Offsets ? CountValues(*Offsets) : 1, PlaneCount() * StripCount());

    // The stored bytes of a strip; not more of them than could be of use.
    std::span<const uint8_t> operator()(size_t index) const
    {
        if (index >= Count)
            return {};
        const size_t whole = RowsOf(index % StripCount()) * RowBytes();
        const size_t most = TIF_Header.Compression == TIF_Plain ? whole : 2 * whole + 1024;
        const size_t count = ByteCounts ? GetValue(ByteCounts, index) : SIZE_MAX;
        const size_t offset = Offsets ? GetValue(Offsets, index) : TIF_HeaderSize;
        return Bytes_GetSpan(TIF_File, offset, std::min(count, most));
    }
};

// Bytes that one stored byte can stand for.
static size_t MostOutOfOne()
{
    switch (TIF_Header.Compression) {
    case TIF_PackBits:
        return 64;
    case TIF_LZW:
        return 4096 * 8 / 12;
    case TIF_Deflate:
    case TIF_OldDeflate:
        return 1032;
    default:
        return 1;
    }
}

static bool IsSupported()
{
    const TIF_HEADER &h = TIF_Header;
    switch (h.Compression) {
    case TIF_Plain:
    case TIF_PackBits:
        break;  // a predictor has no meaning here
    case TIF_LZW:
    case TIF_Deflate:
    case TIF_OldDeflate:
        if (h.Predictor != 1 && h.Predictor != 2)
            return false;
        break;
    default:
        return false;
    }
    return h.BitsPerSample == 8 && h.Photometric <= TIF_Palette &&
           h.Samples >= (h.Photometric == TIF_RGB ? 3 : 1) && h.Samples <= TIF_MostSamples &&
           !Find(TIF_TileWidth);
}

static bool IsPossible()
{
    const TIF_HEADER &h = TIF_Header;
    const size_t pixels = size_t{h.Width} * h.Height;
    if (!IsSupported() || pixels == 0 || pixels > Picture_MaxBytes / 4)
        return false;
    const TIF_STRIPS strips;
    size_t stored = 0;
    for (size_t index = 0; index < strips.Count; index++)
        stored += strips(index).size();
    return stored != 0 && pixels * h.Samples / Picture_MinShare <= stored * MostOutOfOne();
}

void TIF_Load(const char *path)
{
    TIF_File = Bytes_LoadFile(path);
    ReadHeader();
    if (!IsPossible())
        TIF_File = {};
}

// LZW codes, the highest bit first (TIFF 6.0, section 13).
constexpr uint32_t LZW_Clear = 256, LZW_End = 257, LZW_First = 258, LZW_MostCodes = 4096;
// Room that a strip's buffer has before it, one byte of each value for the codes that are bytes,
// and behind it, for the longest string and since strings are copied in chunks.
constexpr size_t LZW_Alphabet = 256, LZW_Chunk = 16, LZW_Margin = LZW_MostCodes + LZW_Chunk;

// 64 bits at a bit position, the highest first; those past the end are 0.
static uint64_t PeekBits(std::span<const uint8_t> in, size_t bit)
{
    const size_t byte = bit / 8;
    uint64_t bits = 0;
    if (byte + 8 <= in.size()) {
        std::memcpy(&bits, in.data() + byte, 8);
        if constexpr (std::endian::native == std::endian::little)
            bits = __builtin_bswap64(bits);
    } else {
        size_t position = byte;
        bits = uint64_t{Bytes_GetBig(in, position, 4)} << 32;
        bits |= Bytes_GetBig(in, position, 4);
    }
    return bits << bit % 8;
}

// Where a string starts in the buffer, and its length from bit 32 on.
static uint64_t MakeString(size_t start, size_t length)
{
    return start | uint64_t{length} << 32;
}

// Expands into `buffer`, between the alphabet and the margin; returns the bytes written there. A
// string is what the code before gave and one byte more, so it stands whole where that was written.
static size_t ExpandLZW(std::span<const uint8_t> in, std::span<uint8_t> buffer)
{
    std::array<uint64_t, LZW_MostCodes + 1> strings;  // one of no meaning behind them
    for (size_t i = 0; i < LZW_Alphabet; i++) {
        buffer[i] = static_cast<uint8_t>(i);
        strings[i] = MakeString(i, 1);
    }
    const size_t end = buffer.size() - LZW_Margin, last = in.size() * 8;
    uint8_t *const base = buffer.data();
    size_t position = LZW_Alphabet, bit = 0;
    // Each code makes a string out of the one before; what the first one makes stands unused in the
    // place of LZW_End. Codes grow one earlier than need be.
    constexpr uint32_t first = LZW_First - 1, grown = 1u << 9;
    uint32_t next = first, width = 9, widest = grown - 1;
    uint64_t begun = 0;
    while (position < end && bit + width <= last) {
        const auto code = static_cast<uint32_t>(PeekBits(in, bit) >> (64 - width));
        bit += width;
        if (code == LZW_End)
            break;
        if (code == LZW_Clear) {
            next = first;
            width = 9;
            widest = grown - 1;
            continue;
        }
        const bool added = next < LZW_MostCodes;
        strings[next] = begun;
        next += added;
        if (next == widest) {
            width += width < 12;
            widest = (1u << width) - 1;
        }
        if (code >= next)
            break;
        const size_t start = strings[code] & 0xFFFFFFFF, length = strings[code] >> 32;
        uint8_t *to = base + position;
        size_t i = 0;
        do {                                       // may pass the end, by less than a chunk
            std::array<uint8_t, LZW_Chunk> chunk;  // the two may overlap
            std::memcpy(chunk.data(), base + start + i, LZW_Chunk);
            std::memcpy(to + i, chunk.data(), LZW_Chunk);
            i += LZW_Chunk;
        } while (i < length);
        if (code == next - 1 && added)
            to[length - 1] = *to;  // the string just begun ends with its own first byte
        begun = MakeString(position, length + 1);
        position += length;
    }
    return std::min(position, end) - LZW_Alphabet;
}

// Undoes the predictor: each byte holds the difference from that STEP before it.
template <size_t STEP>
static void AddNeighbours(std::span<uint8_t> row)
{
    std::array<uint8_t, STEP> sums{};
    for (size_t i = 0; i + STEP <= row.size(); i += STEP)
        for (size_t k = 0; k < STEP; k++)
            row[i + k] = sums[k] = static_cast<uint8_t>(sums[k] + row[i + k]);
}

static void UndoPredictor(std::span<uint8_t> strip)
{
    const size_t step = PixelStep();
    for (size_t at = 0; at < strip.size(); at += RowBytes()) {
        const auto row = strip.subspan(at, std::min(RowBytes(), strip.size() - at));
        switch (step) {
        case 1:
            AddNeighbours<1>(row);
            break;
        case 3:
            AddNeighbours<3>(row);
            break;
        case 4:
            AddNeighbours<4>(row);
            break;
        default:
            for (size_t i = step; i < row.size(); i++)
                row[i] = static_cast<uint8_t>(row[i] + row[i - step]);
        }
    }
}

// Each byte with its bits the other way round.
constexpr std::array<uint8_t, 256> TIF_Mirror = [] {
    std::array<uint8_t, 256> mirror{};
    for (size_t byte = 0; byte < mirror.size(); byte++)
        for (size_t bit = 0; bit < 8; bit++)
            mirror[byte] |= static_cast<uint8_t>((byte >> bit & 1) << (7 - bit));
    return mirror;
}();

// What a plane's strip is brought into.
struct TIF_BUFFERS {
    BYTES_BUFFER Mirrored, Expanded;
};

// The strip's plain bytes: those of the file, or made in the buffers.
static std::span<const uint8_t> ExpandStrip(std::span<const uint8_t> stored, size_t size,
                                            TIF_BUFFERS &buffers)
{
    const TIF_HEADER &h = TIF_Header;
    if (h.FillOrder == 2) {
        buffers.Mirrored.resize(stored.size());
        std::transform(stored.begin(), stored.end(), buffers.Mirrored.begin(),
                       [](uint8_t byte) { return TIF_Mirror[byte]; });
        stored = buffers.Mirrored;
    }
    if (h.Compression == TIF_Plain || stored.empty())
        return stored;
    buffers.Expanded.resize(LZW_Alphabet + size + LZW_Margin);
    std::span<uint8_t> strip = std::span(buffers.Expanded).subspan(LZW_Alphabet, size);
    switch (h.Compression) {
    case TIF_PackBits:
        return strip.first(PackBits_Expand(stored, strip));
    case TIF_LZW:
        strip = strip.first(ExpandLZW(stored, buffers.Expanded));
        break;
    default:
        strip = strip.first(Inflate_All(stored, strip).Size);
    }
    if (h.Predictor == 2)
        UndoPredictor(strip);
    return strip;
}

using TIF_COLORS256 = std::array<std::array<uint8_t, 4>, 256>;  // R G B A

// What the samples of grey and palette pictures stand for. Palettes have 16 bits a component; those
// without a bit in the high bytes were written with 8.
static TIF_COLORS256 ReadColors()
{
    const TIF_HEADER &h = TIF_Header;
    TIF_COLORS256 colors;
    const TIF_ENTRY *map = h.Photometric == TIF_Palette ? Find(TIF_ColorMap) : nullptr;
    bool wide = false;
    for (size_t i = 0; map && i < 3 * colors.size() && !wide; i++)
        wide = GetValue(map, i) > 0xFF;
    for (size_t i = 0; i < colors.size(); i++) {
        const auto grey = static_cast<uint8_t>(h.Photometric == TIF_WhiteIs0 ? 255 - i : i);
        colors[i] = {grey, grey, grey, 255};
        for (size_t c = 0; map && c < 3; c++)
            colors[i][c] =
                static_cast<uint8_t>(GetValue(map, c * colors.size() + i) >> (wide ? 8 : 0));
    }
    return colors;
}

// Where a row's samples are: one pointer a sample, and the step from pixel to pixel.
struct TIF_ROW {
    std::array<const uint8_t *, 4> Samples;
    size_t Step;
};

// Calls paint(step) with the usual steps as constants.
template <class PAINT>
static void WithStep(size_t step, const PAINT &paint)
{
    switch (step) {
    case 1:
        paint(std::integral_constant<size_t, 1>());
        break;
    case 3:
        paint(std::integral_constant<size_t, 3>());
        break;
    case 4:
        paint(std::integral_constant<size_t, 4>());
        break;
    default:
        paint(step);
    }
}

static void PaintColors(const TIF_COLORS256 &colors, const TIF_ROW &in, size_t count, uint8_t *out)
{
    WithStep(in.Step, [&, from = in.Samples[0]](auto step) {
        for (size_t i = 0; i < count; i++)
            std::memcpy(out + 4 * i, colors[from[i * step]].data(), 4);
    });
}

// Samples that follow each other.
static void PaintGrey(const uint8_t *in, uint32_t inversion, size_t count, uint8_t *out)
{
    const auto opaque = std::bit_cast<uint32_t>(std::array<uint8_t, 4>{0, 0, 0, 255});
    const auto ones = std::bit_cast<uint32_t>(std::array<uint8_t, 4>{1, 1, 1, 0});
    for (size_t i = 0; i < count; i++) {
        const uint32_t pixel = (in[i] ^ inversion) * ones | opaque;
        std::memcpy(out + 4 * i, &pixel, 4);
    }
}

static void PaintRGB(const TIF_ROW &in, size_t count, uint8_t *out)
{
    const uint8_t *r = in.Samples[0], *g = in.Samples[1], *b = in.Samples[2];
    WithStep(in.Step, [&](auto step) {
        for (size_t i = 0; i < count; i++) {
            out[4 * i] = r[i * step];
            out[4 * i + 1] = g[i * step];
            out[4 * i + 2] = b[i * step];
            out[4 * i + 3] = 255;
        }
    });
}

static void PaintAlpha(const TIF_ROW &in, size_t sample, size_t count, uint8_t *out)
{
    WithStep(in.Step, [&, from = in.Samples[sample]](auto step) {
        for (size_t i = 0; i < count; i++)
            out[4 * i + 3] = from[i * step];
    });
}

// Divides alpha out of the colours.
static void DivideByAlpha(size_t count, uint8_t *out)
{
    for (size_t i = 0; i < 4 * count; i += 4)
        for (size_t c = 0; c < 3; c++) {
            const int alpha = out[i + 3];
            if (alpha != 0)
                out[i + c] =
                    static_cast<uint8_t>(std::min((out[i + c] * 255 + alpha / 2) / alpha, 255));
        }
}

static void PaintRow(const TIF_COLORS256 &colors, const TIF_ROW &in, size_t count, uint8_t *out)
{
    const TIF_HEADER &h = TIF_Header;
    const bool rgb = h.Photometric == TIF_RGB;
    if (rgb && h.Alpha != 0 && in.Step == 4) {
        std::memcpy(out, in.Samples[0], 4 * count);
    } else {
        if (rgb && in.Step == 3)
            Pixels_FromTriples({in.Samples[0], 3 * count}, false, out);
        else if (rgb)
            PaintRGB(in, count, out);
        else if (h.Photometric != TIF_Palette && in.Step == 1)
            PaintGrey(in.Samples[0], colors[0][0], count, out);
        else
            PaintColors(colors, in, count, out);
        if (h.Alpha != 0)
            PaintAlpha(in, rgb ? 3 : 1, count, out);
    }
    if (h.Alpha == 1)
        DivideByAlpha(count, out);
}

// Decodes one strip, of all planes; pixels that not all of them have stay transparent.
static void PaintStrip(const TIF_COLORS256 &colors,
                       std::span<const std::span<const uint8_t>> planes, size_t rows, uint8_t *out)
{
    const TIF_HEADER &h = TIF_Header;
    size_t size = SIZE_MAX;
    for (const auto &plane : planes)
        size = std::min(size, plane.size());
    for (size_t y = 0; y < rows; y++, out += size_t{h.Width} * 4) {
        const size_t at = std::min(y * RowBytes(), size);
        const size_t count = std::min<size_t>(h.Width, (size - at) / PixelStep());
        if (count != 0) {
            TIF_ROW row{{}, PixelStep()};
            for (size_t c = 0; c < std::min<size_t>(h.Samples, row.Samples.size()); c++)
                row.Samples[c] = (h.Planar ? planes[c].data() : planes[0].data() + c) + at;
            PaintRow(colors, row, count, out);
        }
        std::memset(out + 4 * count, 0, 4 * (h.Width - count));
    }
}

uint8_t *TIF_Decoding()
{
    const TIF_HEADER &h = TIF_Header;
    if (TIF_File.empty())
        return nullptr;
    uint8_t *pixels = Picture_NewUnsetPixels(h.Width, h.Height);
    if (!pixels)
        return nullptr;
    const TIF_COLORS256 colors = ReadColors();
    const TIF_STRIPS strips;
    std::vector<TIF_BUFFERS> buffers(PlaneCount());
    std::vector<std::span<const uint8_t>> planes(PlaneCount());
    const size_t count = StripCount();
    for (size_t strip = 0; strip < count; strip++) {
        for (size_t p = 0; p < planes.size(); p++)
            planes[p] =
                ExpandStrip(strips(p * count + strip), RowsOf(strip) * RowBytes(), buffers[p]);
        PaintStrip(colors, planes, RowsOf(strip), pixels + strip * h.RowsPerStrip * h.Width * 4);
    }
    return pixels;
}

void TIF_UnLoad()
{
    TIF_File = {};
}

TIF_HEADER *TIF_GetHeader(TIF_HEADER *out)
{
    *out = TIF_Header;
    return out;
}
