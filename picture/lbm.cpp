#include "picture/lbm.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

#include "extra/bytes.h"
#include "extra/reason.h"
#include "picture/packbits.h"
#include "picture/pixels.h"

constinit thread_local LBM_HEADER LBM_Header{};
constinit thread_local BYTES_BUFFER LBM_File{};
constinit thread_local size_t LBM_Position{};

static constexpr uint32_t ID(std::string_view text)
{
    uint32_t id = 0;
    for (const char c : text)
        id = id << 8 | static_cast<uint8_t>(c);
    return id;
}

constexpr uint32_t LBM_PBM = ID("PBM "), LBM_ACBM = ID("ACBM");
constexpr uint32_t LBM_HalfBright = 0x80, LBM_HoldAndModify = 0x800;  // bits of CAMG
constexpr size_t LBM_TrueColor = 24, LBM_TrueColorAlpha = 32;         // planes
constexpr uint8_t LBM_ByteRun1 = 1;
constexpr uint8_t LBM_MaskPlane = 1, LBM_TransparentColour = 2;  // Masking

static bool ByFormat()
{
    return LBM_Header.Rules == PICTURE_RULES_FORMAT;
}

uint8_t LBM_GetByte()
{
    return Bytes_GetByte(LBM_File, LBM_Position);
}

uint16_t LBM_GetWord()
{
    return static_cast<uint16_t>(Bytes_GetBig(LBM_File, LBM_Position, 2));
}

uint32_t LBM_GetDWord()
{
    return Bytes_GetBig(LBM_File, LBM_Position, 4);
}

static void ReadBMHD()
{
    LBM_HEADER &h = LBM_Header;
    h.Width = LBM_GetWord();
    h.BufferWidth = static_cast<uint16_t>((h.Width + 7) & ~7);  // 0 if it overflows
    h.Height = LBM_GetWord();
    h.X = LBM_GetWord();
    h.Y = LBM_GetWord();
    h.Planes = LBM_GetByte();
    h.Masking = LBM_GetByte();
    h.Compression = LBM_GetByte();
    h.Pad = LBM_GetByte();
    h.TransparentColor = LBM_GetWord();
    h.XAspect = LBM_GetByte();
    h.YAspect = LBM_GetByte();
    h.PageWidth = LBM_GetWord();
    h.PageHeight = LBM_GetWord();
    h.OutputSize = static_cast<uint32_t>(uint64_t{h.BufferWidth} * h.Height * 4);
}

// On purpose: the framework reads as many entries as the planes can index, even from a shorter
// chunk.
static void ReadCMAP(size_t size)
{
    auto &palette = LBM_Header.Palette;
    const size_t colors = ByFormat() ? 0 : size_t{1} << std::min<size_t>(LBM_Header.Planes, 8);
    LBM_Header.PaletteCount = static_cast<uint16_t>(std::min(size / 3, palette.size()));
    for (size_t i = 0; i < std::min(std::max(colors, size / 3), palette.size()); i++)
        for (uint8_t &component : palette[i])
            component = LBM_GetByte();
}

static void ReadANNO(size_t size)
{
    auto &text = LBM_Header.Annotation;
    text = {};
    for (size_t i = 0; i < std::min(size, text.size() - 1); i++)
        text[i] = static_cast<char>(LBM_GetByte());
}

// Walks the chunks up to the BODY, descending into FORMs.
static void ReadChunks()
{
    LBM_HEADER &h = LBM_Header;
    LBM_Position = 0;
    while (LBM_Position < LBM_File.size() && h.BodyOffset == 0) {
        const uint32_t id = LBM_GetDWord();
        const uint32_t size = LBM_GetDWord();
        size_t next = LBM_Position + size + size % 2;
        switch (id) {
        case ID("FORM"):
            h.FormType = LBM_GetDWord();
            next = LBM_Position;
            break;
        case ID("ANNO"):
            ReadANNO(size);
            break;
        case ID("BMHD"):
            ReadBMHD();
            break;
        case ID("CMAP"):
            ReadCMAP(size);
            break;
        case ID("CAMG"):
            h.ViewMode = LBM_GetDWord();
            break;
        case ID("ABIT"):
            if (h.FormType != LBM_ACBM)
                break;
            [[fallthrough]];
        case ID("BODY"):
            h.BodyOffset = static_cast<uint32_t>(LBM_Position);
            h.BodySize = size;
            if (size == 0)  // lazy writers
                h.BodySize = static_cast<uint32_t>(Bytes_GetSpan(LBM_File, LBM_Position).size());
            break;
        }
        LBM_Position = next;
    }
}

static bool IsChunky()
{
    return LBM_Header.FormType == LBM_PBM;
}

// Planes per row in the file, mask included.
static size_t StoredPlanes()
{
    return LBM_Header.Planes + size_t{LBM_Header.Masking == LBM_MaskPlane};
}

// Bytes per row: PBM's pixels, or all planes at `plane` bytes each.
static size_t RowBytes(size_t plane)
{
    return IsChunky() ? (LBM_Header.Width + size_t{1}) & ~size_t{1} : plane * StoredPlanes();
}

static size_t ShortPlane()
{
    return LBM_Header.BufferWidth / 8u;
}

// Bytes of a plane's row, padded to 16-bit words as the standard asks.
static size_t WordPlane()
{
    return (ShortPlane() + 1) & ~size_t{1};
}

// Bytes of a plane's row. Some files pad planes to bytes only; they are recognised by the size of
// their BODY, which then ends within a row after the last one.
static size_t PlaneBytes()
{
    const LBM_HEADER &h = LBM_Header;
    const size_t body = h.Compression == LBM_ByteRun1 ? LBM_File.size() - h.BodyOffset : h.BodySize;
    const size_t needed = RowBytes(ShortPlane()) * h.Height;
    const bool fits = body >= needed && body - needed < RowBytes(ShortPlane());
    return fits && body < RowBytes(WordPlane()) * h.Height ? ShortPlane() : WordPlane();
}

// Planes of colour components instead of an index. The format's rules also allow alpha.
static bool IsTrueColor()
{
    return LBM_Header.Planes == LBM_TrueColor ||
           (ByFormat() && LBM_Header.Planes == LBM_TrueColorAlpha);
}

static bool IsPossible()
{
    const LBM_HEADER &h = LBM_Header;
    const bool planes = (h.Planes >= 1 && h.Planes <= 8) || (IsTrueColor() && !IsChunky());
    if (h.BodyOffset == 0) {
        Reason_Set("the pixels are missing");
        return false;
    }
    if (!planes || (ByFormat() && h.Compression > LBM_ByteRun1)) {
        Reason_Set("%d planes with compression %d", h.Planes, h.Compression);
        return false;
    }
    const size_t body = Bytes_GetSpan(LBM_File, h.BodyOffset).size() *
                        (h.Compression == LBM_ByteRun1 ? PackBits_MaxOutOfOne : 1);
    const size_t row = std::max<size_t>(RowBytes(ShortPlane()), 1);
    const bool expands = h.Compression == LBM_ByteRun1 || h.FormType == LBM_ACBM;
    return body != 0 &&
           Picture_Believes({h.BufferWidth, h.Height, body * h.BufferWidth / row, LBM_File.size(),
                             expands ? RowBytes(WordPlane()) * h.Height : 0});
}

// Rearranges ACBM's contiguous planes into ILBM's order, the planes of each row together.
static BYTES_BUFFER Interleave()
{
    const LBM_HEADER &h = LBM_Header;
    const size_t plane = WordPlane(), row = plane * StoredPlanes();
    const auto body = Bytes_GetSpan(LBM_File, h.BodyOffset);
    BYTES_BUFFER file(h.BodyOffset + row * h.Height);
    std::copy_n(LBM_File.begin(), h.BodyOffset, file.begin());
    for (size_t y = 0; y < h.Height; y++)
        for (size_t p = 0; p < StoredPlanes(); p++) {
            uint8_t *out = file.data() + h.BodyOffset + y * row + p * plane;
            const auto line = Bytes_GetSpan(body, (p * h.Height + y) * plane, plane);
            std::fill(std::copy(line.begin(), line.end(), out), out + plane, uint8_t{0});
        }
    return file;
}

// The file with its BODY expanded: the bytes before it unchanged.
static BYTES_BUFFER ExpandFile()
{
    const LBM_HEADER &h = LBM_Header;
    const size_t offset = h.BodyOffset;
    const auto packed = Bytes_GetSpan(LBM_File, offset, h.BodySize);
    BYTES_BUFFER expanded(
        offset + std::min(RowBytes(WordPlane()) * h.Height, packed.size() * PackBits_MaxOutOfOne));
    std::copy_n(LBM_File.begin(), offset, expanded.begin());
    expanded.resize(offset + PackBits_Expand(packed, std::span(expanded).subspan(offset)));
    return expanded;
}

void LBM_Load(const char *path)
{
    LBM_File = BYTES_BUFFER();
    LBM_Header = {};
    LBM_Header.Rules = Picture_Rules;
    Bytes_Guard(LBM_File, [path] {
        LBM_File = Bytes_LoadFile(path);
        LBM_Header.FileSize = static_cast<uint32_t>(LBM_File.size());
        ReadChunks();
        if (!IsPossible())
            LBM_File = BYTES_BUFFER();
        else if (LBM_Header.FormType == LBM_ACBM)
            LBM_File = Interleave();
        else if (LBM_Header.Compression == LBM_ByteRun1)
            LBM_File = ExpandFile();
    });
}

// Byte columns transposed at a time, and their bytes of eight planes.
constexpr size_t LBM_Block = 8;
using LBM_WORDS = std::array<uint64_t, LBM_Block>;

// Converts between a word and its bytes in memory, the lowest byte first.
static uint64_t InMemoryOrder(uint64_t word)
{
    return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

// Transposes an 8 x 8 matrix of units of UNIT bits, one row per word: unit i of word j becomes unit
// j of word i. With UNIT 1 each of a word's eight bytes holds a matrix of its own. Swaps the
// off-diagonal halves, then quarters, then eighths.
template <int UNIT>
static void Turn(LBM_WORDS &words)
{
    const auto swap = [&words]<size_t STEP>(std::integral_constant<size_t, STEP>) {
        // selects the lower STEP of every 2 STEP units
        constexpr uint64_t mask = [] {
            uint64_t bits = 0;
            for (size_t bit = 0; bit < 64; bit++)
                bits |= uint64_t{bit / UNIT % (2 * STEP) < STEP} << bit;
            return bits;
        }();
        for (size_t i = 0; i < words.size(); i++) {
            if (i & STEP)
                continue;
            const uint64_t differing = (words[i] >> UNIT * STEP ^ words[i + STEP]) & mask;
            words[i + STEP] ^= differing;
            words[i] ^= differing << UNIT * STEP;
        }
    };
    swap(std::integral_constant<size_t, 4>());
    swap(std::integral_constant<size_t, 2>());
    swap(std::integral_constant<size_t, 1>());
}

// A block's columns by table look-up, faster for few planes.
template <size_t COUNT>
static void JoinFew(const LBM_WORDS &planes, uint8_t *out)
{
    for (size_t k = 0; k < LBM_Block; k++) {
        uint64_t values = 0;
        for (size_t p = 0; p < COUNT; p++)
            values |= Pixels_Spread[planes[p] >> 8 * k & 0xFF] << p;
        std::memcpy(out + 8 * k, &values, 8);
    }
}

// A block's columns by transposing: first one word per bit position, then one word per column.
static void JoinMany(LBM_WORDS planes, uint8_t *out)
{
    Turn<1>(planes);
    std::reverse(planes.begin(), planes.end());
    Turn<8>(planes);
    for (size_t k = 0; k < LBM_Block; k++) {
        const uint64_t values = InMemoryOrder(planes[k]);
        std::memcpy(out + 8 * k, &values, 8);
    }
}

// Combines COUNT planes, lowest bit first and `plane` bytes apart, into one value per pixel. The
// highest bit of a byte is its first pixel. Writes whole blocks.
template <size_t COUNT>
static void JoinPlanes(const uint8_t *in, size_t plane, uint8_t *out)
{
    for (size_t k = 0; k < plane; k += LBM_Block) {
        LBM_WORDS words{};
        for (size_t p = 0; p < COUNT; p++) {
            if (k + LBM_Block <= plane)
                std::memcpy(&words[p], in + p * plane + k, LBM_Block);
            else
                std::memcpy(&words[p], in + p * plane + k, plane - k);
            words[p] = InMemoryOrder(words[p]);
        }
        if constexpr (COUNT <= 5)
            JoinFew<COUNT>(words, out + 8 * k);
        else
            JoinMany(words, out + 8 * k);
    }
}

// Number of pixels that JoinPlanes writes.
static size_t JoinedPixels(size_t plane)
{
    return (plane + LBM_Block - 1) / LBM_Block * LBM_Block * 8;
}

using LBM_JOIN = void (*)(const uint8_t *in, size_t plane, uint8_t *out);
constexpr std::array<LBM_JOIN, 8> LBM_Join = {
    JoinPlanes<1>, JoinPlanes<2>, JoinPlanes<3>, JoinPlanes<4>,
    JoinPlanes<5>, JoinPlanes<6>, JoinPlanes<7>, JoinPlanes<8>,
};

using LBM_COLORS = std::array<uint32_t, 256>;  // R G B A in memory order

static uint32_t Color(uint8_t r, uint8_t g, uint8_t b, uint8_t a)
{
    return std::bit_cast<uint32_t>(std::array<uint8_t, 4>{r, g, b, a});
}

// Format: scales components of 4 bits, which early programs wrote, to 8 bits.
static void ScalePalette()
{
    LBM_HEADER &h = LBM_Header;
    uint8_t low = 0;
    for (size_t i = 0; i < h.PaletteCount; i++)
        for (const uint8_t component : h.Palette[i])
            low |= component & 15;
    for (size_t i = 0; low == 0 && i < h.PaletteCount; i++)
        for (uint8_t &component : h.Palette[i])
            component = static_cast<uint8_t>(component | component >> 4);
}

// Format: six planes with 32 colours are half-bright even if the file does not say so.
static bool IsHalfBright()
{
    const LBM_HEADER &h = LBM_Header;
    const bool unsaid = ByFormat() && h.ViewMode == 0 && h.PaletteCount == 32;
    return h.Planes == 6 && ((h.ViewMode & LBM_HalfBright) != 0 || unsaid) && !IsChunky();
}

// Format: without a palette, planes are grey levels.
static void MakeGreys()
{
    LBM_HEADER &h = LBM_Header;
    const bool hold = (h.ViewMode & LBM_HoldAndModify) != 0 && h.Planes > 2;
    const size_t max = (size_t{1} << (hold ? h.Planes - 2 : +h.Planes)) - 1;
    for (size_t i = 0; i <= max; i++)
        h.Palette[i].fill(static_cast<uint8_t>(i * 255 / max));
}

// The palette. In half-bright, entries from 32 on are the first 32 at half brightness.
static LBM_COLORS ReadColors()
{
    const LBM_HEADER &h = LBM_Header;
    if (ByFormat())
        h.PaletteCount != 0 ? ScalePalette() : MakeGreys();
    const bool halfBright = IsHalfBright();
    LBM_COLORS colors;
    for (size_t i = 0; i < colors.size(); i++) {
        const bool half = halfBright && i >= 32;
        const auto [r, g, b] = h.Palette[half ? i % 32 : i];
        colors[i] = half ? Color(r / 2, g / 2, b / 2, 255) : Color(r, g, b, 255);
    }
    if (ByFormat() && h.Masking == LBM_TransparentColour && h.TransparentColor < colors.size())
        colors[h.TransparentColor] &= Color(255, 255, 255, 0);
    return colors;
}

static void PaintIndices(const LBM_COLORS &colors, const uint8_t *in, size_t count, uint8_t *out)
{
    for (size_t i = 0; i < count; i++)
        std::memcpy(out + 4 * i, &colors[in[i]], 4);
}

// Hold-And-Modify: bits of the left neighbour's colour that each code keeps, and bits that it adds.
struct LBM_HAM {
    LBM_COLORS Kept, Added;
};

// The two highest planes select the meaning of the other 4 or 6: a palette entry, or a new blue,
// red or green.
static LBM_HAM ReadHAM(const LBM_COLORS &colors)
{
    const size_t bits = LBM_Header.Planes - 2u;
    LBM_HAM ham{};
    for (size_t code = 0; code < size_t{1} << LBM_Header.Planes; code++) {
        const size_t data = code & ((size_t{1} << bits) - 1);
        const auto level = static_cast<uint8_t>(data << (8 - bits) | data >> (2 * bits - 8));
        constexpr uint8_t all = 255;
        switch (code >> bits) {
        case 0:
            ham.Added[code] = colors[data];
            break;
        case 1:
            ham.Kept[code] = Color(all, all, 0, all);
            ham.Added[code] = Color(0, 0, level, 0);
            break;
        case 2:
            ham.Kept[code] = Color(0, all, all, all);
            ham.Added[code] = Color(level, 0, 0, 0);
            break;
        case 3:
            ham.Kept[code] = Color(all, 0, all, all);
            ham.Added[code] = Color(0, level, 0, 0);
            break;
        }
    }
    return ham;
}

// A row starts with the palette's first colour.
static void PaintHAM(const LBM_HAM &ham, const uint8_t *in, size_t count, uint8_t *out)
{
    uint32_t color = ham.Added[0];
    for (size_t i = 0; i < count; i++) {
        color = (color & ham.Kept[in[i]]) | ham.Added[in[i]];
        std::memcpy(out + 4 * i, &color, 4);
    }
}

static void PaintComponents(const uint8_t *r, const uint8_t *g, const uint8_t *b, size_t count,
                            uint8_t *out)
{
    for (size_t i = 0; i < count; i++) {
        out[4 * i] = r[i];
        out[4 * i + 1] = g[i];
        out[4 * i + 2] = b[i];
        out[4 * i + 3] = 255;
    }
}

// Calls row(bytes, out) for each row that the file has, a truncated one padded with zeros.
template <typename Row>
static void DecodeRows(uint8_t *pixels, size_t bytes, const Row &row)
{
    const LBM_HEADER &h = LBM_Header;
    std::vector<uint8_t> last;
    for (size_t y = 0; y < h.Height; y++) {
        auto in = Bytes_GetSpan(LBM_File, h.BodyOffset + y * bytes, bytes);
        if (in.empty())
            break;
        if (in.size() < bytes) {
            last.assign(in.begin(), in.end());
            last.resize(bytes);
            in = last;
        }
        row(in.data(), pixels + y * h.BufferWidth * 4);
    }
}

static void DecodeChunky(uint8_t *pixels)
{
    DecodeRows(pixels, RowBytes(0), [colors = ReadColors()](const uint8_t *in, uint8_t *out) {
        PaintIndices(colors, in, LBM_Header.Width, out);
    });
}

static void DecodeTrueColor(uint8_t *pixels)
{
    const size_t plane = PlaneBytes();
    std::vector<uint8_t> components(4 * JoinedPixels(plane));
    uint8_t *r = components.data(), *g = r + JoinedPixels(plane), *b = g + JoinedPixels(plane);
    uint8_t *a = b + JoinedPixels(plane);
    DecodeRows(pixels, RowBytes(plane), [=](const uint8_t *in, uint8_t *out) {
        JoinPlanes<8>(in, plane, r);
        JoinPlanes<8>(in + 8 * plane, plane, g);
        JoinPlanes<8>(in + 16 * plane, plane, b);
        PaintComponents(r, g, b, LBM_Header.BufferWidth, out);
        if (LBM_Header.Planes != LBM_TrueColorAlpha)
            return;
        JoinPlanes<8>(in + 24 * plane, plane, a);
        for (size_t x = 0; x < LBM_Header.BufferWidth; x++)
            out[4 * x + 3] = a[x];
    });
}

static void DecodePlanar(uint8_t *pixels)
{
    const LBM_HEADER &h = LBM_Header;
    const size_t plane = PlaneBytes();
    const bool hold = (h.ViewMode & LBM_HoldAndModify) != 0 && (h.Planes == 6 || h.Planes == 8);
    const LBM_COLORS colors = ReadColors();
    const LBM_HAM ham = hold ? ReadHAM(colors) : LBM_HAM{};
    std::vector<uint8_t> indices(JoinedPixels(plane));
    DecodeRows(pixels, RowBytes(plane), [&](const uint8_t *in, uint8_t *out) {
        LBM_Join[h.Planes - 1u](in, plane, indices.data());
        if (hold)
            PaintHAM(ham, indices.data(), h.BufferWidth, out);
        else
            PaintIndices(colors, indices.data(), h.BufferWidth, out);
    });
}

// Format: pixels without their bit in the mask plane are transparent.
static void ApplyMask(uint8_t *pixels)
{
    const LBM_HEADER &h = LBM_Header;
    const size_t plane = PlaneBytes();
    DecodeRows(pixels, RowBytes(plane), [&](const uint8_t *in, uint8_t *out) {
        const uint8_t *mask = in + h.Planes * plane;
        for (size_t x = 0; x < h.Width; x++)
            if ((mask[x / 8] >> (7 - x % 8) & 1) == 0)
                out[4 * x + 3] = 0;
    });
}

uint8_t *LBM_Decoding()
{
    const LBM_HEADER &h = LBM_Header;
    if (LBM_File.empty())
        return nullptr;
    return Reason_Guard([&h]() -> uint8_t * {
        PICTURE_PIXELS owner(Picture_NewPixels(h.BufferWidth, h.Height));
        uint8_t *pixels = owner.get();
        if (!pixels)
            return nullptr;
        if (IsChunky())
            DecodeChunky(pixels);
        else if (IsTrueColor())
            DecodeTrueColor(pixels);
        else
            DecodePlanar(pixels);
        if (ByFormat() && h.Masking == LBM_MaskPlane && !IsChunky())
            ApplyMask(pixels);
        const size_t row = std::max<size_t>(RowBytes(PlaneBytes()), 1);
        const size_t rows = (LBM_File.size() - h.BodyOffset + row - 1) / row;
        if (rows < h.Height)
            Reason_Set("cut after %zu of %d rows", rows, h.Height);
        return owner.release();
    });
}

void LBM_UnLoad()
{
    LBM_File = BYTES_BUFFER();
}

LBM_HEADER *LBM_GetHeader(LBM_HEADER *out)
{
    *out = LBM_Header;
    return out;
}
