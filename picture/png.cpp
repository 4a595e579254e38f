#include "picture/png.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

#include "extra/bytes.h"
#include "picture/inflate.h"
#include "picture/picture.h"

PNG_HEADER PNG_Header;
std::vector<uint8_t> PNG_File;
size_t PNG_Position;
PNG_DECODER PNG_Decoder;

const std::array<const char *, 7> PNG_ColorType = {
    "Grayscale", "???", "RGB triple", "Palette", "Grayscale + Alpha", "???", "RGB + Alpha"};
const std::array<const char *, 2> PNG_Interlace = {"Not interlace", "Adam 7"};
const std::array<const char *, 2> PNG_Unit = {"Ratio", "Meters"};

// ISO/IEC 15948, 11.2.2: samples of a pixel by colour type, 0 for none such; and the bit depths
// allowed, as a set of bits.
constexpr std::array<uint8_t, 7> PNG_Samples = {1, 0, 3, 1, 2, 0, 4};
constexpr std::array<uint32_t, 7> PNG_Depths = {0x10116, 0, 0x10100, 0x116, 0x10100, 0, 0x10100};

// ISO/IEC 15948, 8.2: first pixel and step of each of the seven passes.
constexpr std::array<uint8_t, 7> PNG_Adam7IX = {0, 4, 0, 2, 0, 1, 0};
constexpr std::array<uint8_t, 7> PNG_Adam7IY = {0, 0, 4, 0, 2, 0, 1};
constexpr std::array<uint8_t, 7> PNG_Adam7DX = {8, 8, 4, 4, 2, 2, 1};
constexpr std::array<uint8_t, 7> PNG_Adam7DY = {8, 8, 8, 4, 4, 2, 2};

static constexpr bool PNG_Adam7Tiles()
{
    std::array<int, 64> visits{};
    for (size_t p = 0; p < 7; p++)
        for (size_t y = PNG_Adam7IY[p]; y < 8; y += PNG_Adam7DY[p])
            for (size_t x = PNG_Adam7IX[p]; x < 8; x += PNG_Adam7DX[p])
                visits[8 * y + x]++;
    return std::all_of(visits.begin(), visits.end(), [](int n) { return n == 1; });
}
static_assert(PNG_Adam7Tiles(), "the passes visit each pixel of an 8x8 tile exactly once");

static constexpr uint32_t ChunkType(const char (&name)[5])
{
    uint32_t type = 0;
    for (int i = 0; i < 4; i++)
        type = type << 8 | static_cast<uint8_t>(name[i]);
    return type;
}

static uint8_t PNG_GetByte()
{
    return Bytes_GetByte(PNG_File, PNG_Position);
}

static uint16_t PNG_GetWord()
{
    return static_cast<uint16_t>(Bytes_GetBig(PNG_File, PNG_Position, 2));
}

static uint32_t PNG_GetDWord()
{
    return Bytes_GetBig(PNG_File, PNG_Position, 4);
}

static void PNG_ReadIHDR()
{
    PNG_HEADER &h = PNG_Header;
    h.IHDRWidth = PNG_GetDWord();
    h.IHDRHeight = PNG_GetDWord();
    h.Width = static_cast<uint16_t>(h.IHDRWidth);
    h.Height = static_cast<uint16_t>(h.IHDRHeight);
    h.OutputSize = h.IHDRWidth * h.IHDRHeight * 4;
    h.BitDepth = PNG_GetByte();
    h.ColorType = PNG_GetByte();
    const uint8_t samples =
        h.ColorType < PNG_Samples.size() ? PNG_Samples[h.ColorType] : uint8_t{0};
    h.BitsPerPixel = static_cast<uint8_t>(h.BitDepth * samples);
    h.Compression = PNG_GetByte();
    h.Filter = PNG_GetByte();
    h.Interlace = PNG_GetByte();
}

static void PNG_ReadPLTE(size_t length)
{
    PNG_HEADER &h = PNG_Header;
    for (size_t i = 0; i < std::min<size_t>(length / 3, 256); i++) {
        h.PaletteRed[i] = PNG_GetByte();
        h.PaletteGreen[i] = PNG_GetByte();
        h.PaletteBlue[i] = PNG_GetByte();
        h.PaletteAlpha[i] = 255;
    }
}

static void PNG_ReadBKGD()
{
    PNG_HEADER &h = PNG_Header;
    if (h.ColorType == 3) {
        h.BackgroundIndex = PNG_GetByte();
    } else if (h.ColorType == 0 || h.ColorType == 4) {
        h.BackgroundGrey = PNG_GetWord();
    } else {
        h.BackgroundRed = PNG_GetWord();
        h.BackgroundGreen = PNG_GetWord();
        h.BackgroundBlue = PNG_GetWord();
    }
}

static void PNG_ReadTRNS(size_t length)
{
    PNG_HEADER &h = PNG_Header;
    if (h.ColorType == 0) {
        h.KeyGrey = PNG_GetWord();
    } else if (h.ColorType == 2) {
        h.KeyRed = PNG_GetWord();
        h.KeyGreen = PNG_GetWord();
        h.KeyBlue = PNG_GetWord();
    } else if (h.ColorType == 3) {
        for (size_t i = 0; i < std::min<size_t>(length, 256); i++)
            h.PaletteAlpha[i] = PNG_GetByte();
    }
}

static void PNG_ReadPHYS()
{
    PNG_Header.PixelsPerUnitX = PNG_GetDWord();
    PNG_Header.PixelsPerUnitY = PNG_GetDWord();
    PNG_Header.Unit = PNG_GetByte();
}

static void PNG_ReadTIME()
{
    PNG_HEADER &h = PNG_Header;
    h.Year = PNG_GetWord();
    for (uint8_t *field : {&h.Month, &h.Day, &h.Hour, &h.Minute, &h.Second})
        *field = PNG_GetByte();
}

// Reads a text up to its NUL, which is consumed, the end of the chunk or as much as `out` holds.
template <size_t Size>
static void PNG_GetText(std::array<char, Size> &out, size_t end)
{
    out = {};
    for (size_t i = 0; PNG_Position < end; i++) {
        const uint8_t c = PNG_GetByte();
        if (c == 0)
            return;
        if (i + 1 == Size) {
            PNG_Position--; // the rest belongs to what follows
            return;
        }
        out[i] = static_cast<char>(c);
    }
}

static void PNG_ReadTEXT(size_t end)
{
    PNG_HEADER &h = PNG_Header;
    if (h.TextCount >= h.Texts.size())
        return;
    PNG_TEXT &text = h.Texts[h.TextCount++];
    PNG_GetText(text.Keyword, end);
    PNG_GetText(text.Text, end);
}

static void PNG_ReadITXT(size_t end)
{
    PNG_HEADER &h = PNG_Header;
    if (h.InternationalTextCount >= h.InternationalTexts.size())
        return;
    PNG_INTERNATIONAL_TEXT &text = h.InternationalTexts[h.InternationalTextCount++];
    PNG_GetText(text.Keyword, end);
    text.CompressionFlag = PNG_GetByte();
    text.CompressionMethod = PNG_GetByte();
    PNG_GetText(text.Language, end);
    PNG_GetText(text.TranslatedKeyword, end);
    text.Text = {};
    if (text.CompressionFlag == 0)
        PNG_GetText(text.Text, end);
}

// Moves a chunk's data to those of the earlier ones, at the start of the file's own buffer, which
// they cannot outgrow.
static void PNG_GatherIDAT(size_t length)
{
    if (PNG_Header.DataOffset == 0)
        PNG_Header.DataOffset = static_cast<uint32_t>(PNG_Position - 8);
    const std::span<const uint8_t> data = Bytes_GetSpan(PNG_File, PNG_Position, length);
    if (!data.empty())
        std::memmove(PNG_File.data() + PNG_Decoder.Length, data.data(), data.size());
    PNG_Decoder.Length += static_cast<uint32_t>(data.size());
}

static void PNG_ReadChunks()
{
    PNG_Position = 8; // past the signature, which detection has seen
    while (PNG_Position < PNG_File.size()) {
        const size_t length = PNG_GetDWord();
        const uint32_t type = PNG_GetDWord();
        const size_t end = PNG_Position + length;
        switch (type) {
        case ChunkType("IHDR"):
            PNG_ReadIHDR();
            break;
        case ChunkType("PLTE"):
            PNG_ReadPLTE(length);
            break;
        case ChunkType("IDAT"):
            PNG_GatherIDAT(length);
            break;
        case ChunkType("IEND"):
            return;
        case ChunkType("bKGD"):
            PNG_ReadBKGD();
            break;
        case ChunkType("gAMA"):
            PNG_Header.Gamma = PNG_GetDWord();
            break;
        case ChunkType("tEXt"):
            PNG_ReadTEXT(std::min(end, PNG_File.size()));
            break;
        case ChunkType("iTXt"):
            PNG_ReadITXT(std::min(end, PNG_File.size()));
            break;
        case ChunkType("pHYs"):
            PNG_ReadPHYS();
            break;
        case ChunkType("tIME"):
            PNG_ReadTIME();
            break;
        case ChunkType("tRNS"):
            PNG_ReadTRNS(length);
            break;
        }
        PNG_Position = end + 4; // past what was not read and the CRC, which nobody checks
    }
}

void PNG_Load(const char *path)
{
    PNG_Header = {};
    PNG_Decoder = {};
    PNG_File = Bytes_LoadFile(path);
    PNG_Header.FileSize = static_cast<uint32_t>(PNG_File.size());
    PNG_ReadChunks();
    PNG_Decoder.Data = std::move(PNG_File);
    PNG_File = {};
}

// Bytes that may be read, and of a line written, behind its last.
constexpr size_t LINE_SLACK = 16;

// Inflated data on their way: those still to use and, before them, what the stream may refer to.
struct PNG_WINDOW {
    std::vector<uint8_t> Bytes;
    size_t End; // of the inflated data in Bytes; PNG_Position is the next to use
};

static void PNG_OpenWindow(PNG_WINDOW &window, uint64_t size, size_t longestRow)
{
    constexpr size_t piece = 192 * 1024;
    const size_t most = Inflate_History + std::max(piece, 2 * longestRow);
    window.Bytes.resize(std::min<uint64_t>(size, most) + Inflate_Margin + LINE_SLACK);
    window.End = PNG_Position = 0;
    Inflate_Begin(std::span(PNG_Decoder.Data).first(PNG_Decoder.Length));
}

// The next `size` bytes, fewer at the end of the stream. They stay until the next call.
static std::span<const uint8_t> PNG_NextBytes(PNG_WINDOW &window, size_t size)
{
    const std::span room = std::span(window.Bytes).first(window.Bytes.size() - LINE_SLACK);
    while (window.End - PNG_Position < size && Inflate_State == INFLATE_MORE) {
        const size_t history = window.End - std::min(window.End, Inflate_History);
        const size_t unneeded = std::min(PNG_Position, history);
        if (room.size() - window.End < Inflate_Margin && unneeded > 0) {
            std::memmove(window.Bytes.data(), window.Bytes.data() + unneeded,
                         window.End - unneeded);
            window.End -= unneeded;
            PNG_Position -= unneeded;
        }
        window.End = Inflate_More(room, window.End);
    }
    const size_t count = std::min(size, window.End - PNG_Position);
    PNG_Position += count;
    return std::span(window.Bytes).subspan(PNG_Position - count, count);
}

// Eight samples side by side, wide enough for sums and differences.
using LANES = int16_t __attribute__((vector_size(16)));
using BYTES = uint8_t __attribute__((vector_size(16)));
using NARROW = uint8_t __attribute__((vector_size(8)));
using WORDS = uint64_t __attribute__((vector_size(16)));

template <size_t Step>
using PIXEL = std::conditional_t<
    Step <= 1, uint8_t,
    std::conditional_t<Step <= 2, uint16_t, std::conditional_t<Step <= 4, uint32_t, uint64_t>>>;

// A pixel's bytes; 3 and 6 take one or two more with them.
template <size_t Step>
static inline LANES LoadPixel(const uint8_t *from)
{
    PIXEL<Step> pixel;
    std::memcpy(&pixel, from, sizeof pixel);
    const BYTES bytes = reinterpret_cast<BYTES>(WORDS{pixel, 0});
    return reinterpret_cast<LANES>(__builtin_shufflevector(bytes, BYTES{}, 0, 16, 1, 17, 2, 18, 3,
                                                           19, 4, 20, 5, 21, 6, 22, 7, 23));
}

template <size_t Step>
static inline void StorePixel(uint8_t *to, LANES pixel)
{
    const NARROW bytes = __builtin_convertvector(pixel, NARROW);
    std::memcpy(to, &bytes, std::bit_ceil(Step));
}

static inline LANES AddBytes(LANES a, LANES b)
{
    return reinterpret_cast<LANES>(reinterpret_cast<BYTES>(a) + reinterpret_cast<BYTES>(b));
}

template <size_t Step>
static void UnSub(const uint8_t *in, uint8_t *out, size_t bytes)
{
    LANES a{};
    for (size_t i = 0; i < bytes; i += Step) {
        a = AddBytes(a, LoadPixel<Step>(in + i));
        StorePixel<Step>(out + i, a);
    }
}

static void UnUp(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t bytes)
{
    for (size_t i = 0; i < bytes; i++)
        out[i] = static_cast<uint8_t>(in[i] + prior[i]);
}

template <size_t Step>
static void UnAverage(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t bytes)
{
    LANES a{};
    for (size_t i = 0; i < bytes; i += Step) {
        a = AddBytes((a + LoadPixel<Step>(prior + i)) >> 1, LoadPixel<Step>(in + i));
        StorePixel<Step>(out + i, a);
    }
}

// The nearest of a, b, c to a + b - c is c where t = 3c - a - b lies between a and b, and else
// the greater of a and b where t lies below both, the lesser where it lies above.
template <size_t Step>
static void UnPaeth(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t bytes)
{
    LANES a{}, c{};
    for (size_t i = 0; i < bytes; i += Step) {
        const LANES x = LoadPixel<Step>(in + i), b = LoadPixel<Step>(prior + i);
        const LANES t = (3 * c - b) - a;
        const LANES low = a < b ? a : b, high = a < b ? b : a;
        const LANES belowHigh = high > t, aboveLow = t > low;
        a = (AddBytes(high, x) & ~aboveLow) | (AddBytes(low, x) & ~belowHigh) |
            (AddBytes(c, x) & aboveLow & belowHigh);
        c = b;
        StorePixel<Step>(out + i, a);
    }
}

template <size_t Step>
static void PNG_UnFilter(uint8_t filter, const uint8_t *in, const uint8_t *prior, uint8_t *out,
                         size_t bytes)
{
    switch (filter) {
    case 0:
        std::memcpy(out, in, bytes);
        break;
    case 1:
        UnSub<Step>(in, out, bytes);
        break;
    case 2:
        UnUp(in, prior, out, bytes);
        break;
    case 3:
        UnAverage<Step>(in, prior, out, bytes);
        break;
    case 4:
        UnPaeth<Step>(in, prior, out, bytes);
        break;
    }
}

using UNFILTER = void (*)(uint8_t filter, const uint8_t *in, const uint8_t *prior, uint8_t *out,
                          size_t bytes);
static UNFILTER UnFilterOf(size_t step)
{
    switch (step) {
    case 1:
        return PNG_UnFilter<1>;
    case 2:
        return PNG_UnFilter<2>;
    case 3:
        return PNG_UnFilter<3>;
    case 4:
        return PNG_UnFilter<4>;
    case 6:
        return PNG_UnFilter<6>;
    default:
        return PNG_UnFilter<8>;
    }
}

static std::array<std::array<uint8_t, 4>, 256> PNG_Colors;

template <size_t Depth>
static void ConvertIndexed(const uint8_t *line, uint8_t *out, size_t pixels)
{
    for (size_t i = 0; i < pixels; i++, out += 4) {
        const size_t bit = i * Depth;
        std::memcpy(out, &PNG_Colors[line[bit / 8] >> (8 - Depth - bit % 8) & ((1 << Depth) - 1)],
                    4);
    }
}

template <size_t Step, size_t R, size_t G, size_t B, size_t A>
static void Convert(const uint8_t *line, uint8_t *out, size_t pixels)
{
    for (size_t i = 0; i < pixels; i++, line += Step, out += 4) {
        out[0] = line[R];
        out[1] = line[G];
        out[2] = line[B];
        out[3] = A < Step ? line[A] : uint8_t{255};
    }
}

using CONVERT = void (*)(const uint8_t *line, uint8_t *out, size_t pixels);
static CONVERT ConvertOf(uint8_t type, uint8_t depth)
{
    if (type == 0 || type == 3) {
        for (unsigned i = 0; i < 256; i++) {
            const uint8_t v =
                type == 0 ? static_cast<uint8_t>(i * 255u / ((1u << std::min<int>(depth, 8)) - 1))
                          : uint8_t{0};
            if (type == 0)
                PNG_Colors[i] = {v, v, v, 255};
            else
                PNG_Colors[i] = {PNG_Header.PaletteRed[i], PNG_Header.PaletteGreen[i],
                                 PNG_Header.PaletteBlue[i], PNG_Header.PaletteAlpha[i]};
        }
    }
    const bool wide = depth == 16;
    switch (type) {
    case 2:
        return wide ? Convert<6, 0, 2, 4, 8> : Convert<3, 0, 1, 2, 8>;
    case 4:
        return wide ? Convert<4, 0, 0, 0, 2> : Convert<2, 0, 0, 0, 1>;
    case 6:
        return wide ? Convert<8, 0, 2, 4, 6> : Convert<4, 0, 1, 2, 3>;
    default:
        switch (depth) {
        case 1:
            return ConvertIndexed<1>;
        case 2:
            return ConvertIndexed<2>;
        case 4:
            return ConvertIndexed<4>;
        case 8:
            return ConvertIndexed<8>;
        default:
            return Convert<2, 0, 0, 0, 8>;
        }
    }
}

static uint64_t RowBytes(uint64_t width)
{
    return (width * PNG_Header.BitsPerPixel + 7) / 8;
}

struct PNG_PASS {
    uint32_t Width, Height;
    size_t IX, IY, DX, DY;
};

uint8_t *PNG_Decoding()
{
    const PNG_HEADER &h = PNG_Header;
    if (h.BitsPerPixel == 0 || h.IHDRWidth > 65535 || h.IHDRHeight > 65535 ||
        PNG_Decoder.Length == 0)
        return nullptr;
    if (h.BitDepth > 16 || !(PNG_Depths[h.ColorType] >> h.BitDepth & 1))
        return nullptr;
    uint8_t *pixels = Picture_NewPixels(h.IHDRWidth, h.IHDRHeight);
    if (!pixels)
        return nullptr;
    std::vector<PNG_PASS> passes;
    if (h.Interlace == 1) {
        for (size_t p = 0; p < 7; p++) {
            const uint32_t w = (h.IHDRWidth + PNG_Adam7DX[p] - PNG_Adam7IX[p] - 1u) /
                               PNG_Adam7DX[p],
                           hh = (h.IHDRHeight + PNG_Adam7DY[p] - PNG_Adam7IY[p] - 1u) /
                                PNG_Adam7DY[p];
            if (w && hh)
                passes.push_back(
                    {w, hh, PNG_Adam7IX[p], PNG_Adam7IY[p], PNG_Adam7DX[p], PNG_Adam7DY[p]});
        }
    } else
        passes.push_back({h.IHDRWidth, h.IHDRHeight, 0, 0, 1, 1});
    uint64_t total = 0;
    for (auto &p : passes)
        total += p.Height * (RowBytes(p.Width) + 1);
    const size_t longest = RowBytes(h.IHDRWidth);
    PNG_WINDOW window;
    PNG_OpenWindow(window, total, longest + 1);
    const size_t step = (h.BitsPerPixel + 7u) / 8;
    const UNFILTER unfilter = UnFilterOf(step);
    const CONVERT convert = ConvertOf(h.ColorType, h.BitDepth);
    std::vector<uint8_t> zero(longest + LINE_SLACK), lines[2], rgba(h.IHDRWidth * 4);
    lines[0] = lines[1] = zero;
    const bool direct = h.Interlace != 1 && h.ColorType == 6 && h.BitDepth == 8;
    for (auto &p : passes) {
        const size_t bytes = RowBytes(p.Width);
        const uint8_t *prior = zero.data();
        for (size_t y = 0; y < p.Height; y++) {
            const auto in = PNG_NextBytes(window, bytes + 1);
            if (in.empty())
                return pixels;
            const size_t have = in.size() - 1;
            const size_t count = have == bytes ? p.Width : have * 8 / h.BitsPerPixel;
            uint8_t *row = pixels + (p.IY + y * p.DY) * h.IHDRWidth * 4;
            uint8_t *line = direct ? row : lines[y & 1].data();
            unfilter(in[0], in.data() + 1, prior, line, direct ? have / 4 * 4 : have);
            prior = line;
            if (direct)
                continue;
            if (p.DX == 1)
                convert(line, row, count);
            else {
                convert(line, rgba.data(), count);
                for (size_t x = 0; x < count; x++)
                    std::memcpy(row + (p.IX + x * p.DX) * 4, rgba.data() + x * 4, 4);
            }
            if (have < bytes)
                return pixels;
        }
    }
    return pixels;
}

void PNG_UnLoad()
{
    PNG_Decoder = {};
}
PNG_HEADER *PNG_GetHeader(PNG_HEADER *out)
{
    *out = PNG_Header;
    return out;
}
