#include "picture/png.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

#include "extra/bytes.h"
#include "picture/inflate.h"
#include "picture/pixels.h"

constinit thread_local PNG_HEADER PNG_Header{};
constinit thread_local BYTES_BUFFER PNG_File{};
constinit thread_local size_t PNG_Position{};
constinit thread_local PNG_DECODER PNG_Decoder{};

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
            PNG_Position--;  // the rest belongs to what follows
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
    PNG_Position = 8;  // past the signature, which detection has seen
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
        PNG_Position = end + 4;  // past what was not read and the CRC, which nobody checks
    }
}

void PNG_Load(const char *path)
{
    PNG_HEADER header = {};
    header.PaletteRed = PNG_Header.PaletteRed;  // kept on purpose: for a picture without its own
    header.PaletteGreen = PNG_Header.PaletteGreen;
    header.PaletteBlue = PNG_Header.PaletteBlue;
    header.PaletteAlpha = PNG_Header.PaletteAlpha;
    PNG_Header = header;
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
    size_t End;  // of the inflated data in Bytes; PNG_Position is the next to use
};

static void PNG_OpenWindow(PNG_WINDOW &window, uint64_t size, size_t longestRow)
{
    constexpr size_t piece = 192 * 1024;
    const size_t most = Inflate_History + std::max(piece, 3 * longestRow);
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

// Sixteen samples side by side; eight, wide enough for sums and differences; and how they move.
using BYTES = uint8_t __attribute__((vector_size(16)));
using LANES = int16_t __attribute__((vector_size(16)));
using NARROW = uint8_t __attribute__((vector_size(8)));
using WORDS = uint64_t __attribute__((vector_size(16)));
using PIXELS = uint32_t __attribute__((vector_size(16)));

template <size_t Step>
using PIXEL = std::conditional_t<
    Step <= 1, uint8_t,
    std::conditional_t<Step <= 2, uint16_t, std::conditional_t<Step <= 4, uint32_t, uint64_t>>>;

// A pixel's bytes; 3 and 6 take one or two more with them.
template <size_t Step>
static inline BYTES LoadBytes(const uint8_t *from)
{
    static_assert(std::endian::native == std::endian::little, "numbers of bytes as they lie");
    PIXEL<Step> pixel;
    std::memcpy(&pixel, from, sizeof pixel);
    if constexpr (Step == 3 || Step == 4)
        return reinterpret_cast<BYTES>(PIXELS{pixel});
    else
        return reinterpret_cast<BYTES>(WORDS{pixel});
}

template <size_t Step>
static inline LANES LoadPixel(const uint8_t *from)
{
    return reinterpret_cast<LANES>(__builtin_shufflevector(
        LoadBytes<Step>(from), BYTES{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
}

// Stores a pixel of `Step` bytes, or makes one of four of them: RGB becomes opaque RGBA.
template <size_t Step, size_t Out>
static inline void StoreBytes(uint8_t *to, BYTES bytes)
{
    if constexpr (Step < Out)
        bytes |= BYTES{0, 0, 0, 255};
    const WORDS words = reinterpret_cast<WORDS>(bytes);
    const PIXEL<Out> pixel = static_cast<PIXEL<Out>>(words[0]);
    std::memcpy(to, &pixel, sizeof pixel);
}

template <size_t Step, size_t Out>
static inline void StorePixel(uint8_t *to, LANES pixel)
{
    NARROW bytes = __builtin_convertvector(pixel, NARROW);
    if constexpr (Step < Out)
        bytes |= NARROW{0, 0, 0, 255};
    std::memcpy(to, &bytes, sizeof(PIXEL<Out>));
}

static inline LANES AddBytes(LANES a, LANES b)
{
    return reinterpret_cast<LANES>(reinterpret_cast<BYTES>(a) + reinterpret_cast<BYTES>(b));
}

// Four pixels of RGBA, or of RGB as such, alphas to be made.
template <size_t Step>
static inline BYTES LoadFour(const uint8_t *from)
{
    PIXELS pixels;
    for (size_t i = 0; i < 4; i++) {
        uint32_t pixel;
        std::memcpy(&pixel, from + i * Step, sizeof pixel);
        pixels[i] = pixel;
    }
    return reinterpret_cast<BYTES>(pixels);
}

template <size_t Step>
static inline void StoreFour(uint8_t *to, BYTES bytes)
{
    if constexpr (Step < 4)
        bytes |= BYTES{0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255};
    std::memcpy(to, &bytes, sizeof bytes);
}

// The filters' inverses take lines whose pixels are `Step` bytes apart to lines whose pixels are
// `Out` bytes apart, of which the one above is `prior`.
template <size_t Step, size_t Out>
static void UnNone(const uint8_t *in, uint8_t *out, size_t pixels)
{
    if constexpr (Step == Out) {
        std::memcpy(out, in, pixels * Step);
    } else {
        size_t i = 0;
        for (; i + 4 <= pixels; i += 4)
            StoreFour<Step>(out + i * Out, LoadFour<Step>(in + i * Step));
        for (; i < pixels; i++)
            StoreBytes<Step, Out>(out + i * Out, LoadBytes<Step>(in + i * Step));
    }
}

template <size_t Step, size_t Out>
static void UnSub(const uint8_t *in, uint8_t *out, size_t pixels)
{
    BYTES a{};
    size_t i = 0;
    if constexpr (Out == 4) {
        PIXELS last{};  // the pixel before the four, four times
        for (; i + 4 <= pixels; i += 4) {
            BYTES four = LoadFour<Step>(in + i * Step);
            const auto add = [&four](PIXELS more) {
                four += reinterpret_cast<BYTES>(more);
                return reinterpret_cast<PIXELS>(four);
            };
            const PIXELS one = reinterpret_cast<PIXELS>(four);
            const PIXELS two = add(__builtin_shufflevector(PIXELS{}, one, 0, 4, 5, 6));
            add(__builtin_shufflevector(PIXELS{}, two, 0, 1, 4, 5));
            const PIXELS all = add(last);
            StoreFour<Step>(out + i * Out, four);
            last = __builtin_shufflevector(all, all, 3, 3, 3, 3);
        }
        a = reinterpret_cast<BYTES>(last);
    }
    for (; i < pixels; i++) {
        a += LoadBytes<Step>(in + i * Step);
        StoreBytes<Step, Out>(out + i * Out, a);
    }
}

template <size_t Step, size_t Out>
static void UnUp(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t pixels)
{
    if constexpr (Step == Out) {
        for (size_t i = 0; i < pixels * Step; i++)
            out[i] = static_cast<uint8_t>(in[i] + prior[i]);
    } else {
        size_t i = 0;
        for (; i + 4 <= pixels; i += 4)
            StoreFour<Step>(out + i * Out,
                            LoadFour<Step>(in + i * Step) + LoadFour<Out>(prior + i * Out));
        for (; i < pixels; i++)
            StoreBytes<Step, Out>(out + i * Out,
                                  LoadBytes<Step>(in + i * Step) + LoadBytes<Out>(prior + i * Out));
    }
}

template <size_t Step, size_t Out>
static void UnAverage(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t pixels)
{
    LANES a{};
    for (size_t i = 0; i < pixels; i++) {
        a = AddBytes((a + LoadPixel<Out>(prior + i * Out)) >> 1, LoadPixel<Step>(in + i * Step));
        StorePixel<Step, Out>(out + i * Out, a);
    }
}

// x and the nearest of a, b, c to a + b - c. That is c where t = 3c - a - b lies between a and b,
// and else the greater of a and b where t lies below both, the lesser where it lies above.
static inline LANES AddPaeth(LANES a, LANES b, LANES c, LANES x)
{
    const LANES t = (3 * c - b) - a;
    const LANES low = a < b ? a : b, high = a < b ? b : a;
    const LANES belowHigh = high > t, aboveLow = t > low;
    return (AddBytes(high, x) & ~aboveLow) | (AddBytes(low, x) & ~belowHigh) |
           (AddBytes(c, x) & aboveLow & belowHigh);
}

template <size_t Step, size_t Out>
static void UnPaeth(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t pixels)
{
    LANES a{}, c{};
    for (size_t i = 0; i < pixels; i++) {
        const LANES b = LoadPixel<Out>(prior + i * Out);
        a = AddPaeth(a, b, c, LoadPixel<Step>(in + i * Step));
        StorePixel<Step, Out>(out + i * Out, a);
        c = b;
    }
}

// Two lines at once, the lower one a pixel behind: each pixel has to wait for the one to its left,
// which leaves time for two.
template <size_t Step>
static void UnPaethTwo(const uint8_t *in, const uint8_t *lowerIn, const uint8_t *prior,
                       uint8_t *out, uint8_t *lowerOut, size_t pixels)
{
    LANES a{}, c{}, lowerA{}, lowerC{};
    const auto lower = [&](LANES b, size_t i) {
        lowerA = AddPaeth(lowerA, b, lowerC, LoadPixel<Step>(lowerIn + i * Step));
        StorePixel<Step, 4>(lowerOut + i * 4, lowerA);
        lowerC = b;
    };
    for (size_t i = 0; i < pixels; i++) {
        const LANES left = a, b = LoadPixel<4>(prior + i * 4);
        a = AddPaeth(left, b, c, LoadPixel<Step>(in + i * Step));
        StorePixel<Step, 4>(out + i * 4, a);
        c = b;
        if (i > 0)
            lower(left, i - 1);
    }
    lower(a, pixels - 1);
}

template <size_t Step, size_t Out = Step>
static void PNG_UnFilter(uint8_t filter, const uint8_t *in, const uint8_t *prior, uint8_t *out,
                         size_t pixels)
{
    switch (filter) {
    case 0:
        UnNone<Step, Out>(in, out, pixels);
        break;
    case 1:
        UnSub<Step, Out>(in, out, pixels);
        break;
    case 2:
        UnUp<Step, Out>(in, prior, out, pixels);
        break;
    case 3:
        UnAverage<Step, Out>(in, prior, out, pixels);
        break;
    case 4:
        UnPaeth<Step, Out>(in, prior, out, pixels);
        break;
    default:  // no such filter
        std::memset(out, 0, pixels * Out);
        break;
    }
}

using UNFILTER = void (*)(uint8_t filter, const uint8_t *in, const uint8_t *prior, uint8_t *out,
                          size_t pixels);

// By the bytes from a pixel to the next one, at least 1. Only RGB of 8 bits has 3.
static UNFILTER UnFilterOf(size_t step)
{
    switch (step) {
    case 1:
        return PNG_UnFilter<1>;
    case 2:
        return PNG_UnFilter<2>;
    case 3:
        return PNG_UnFilter<3, 4>;
    case 4:
        return PNG_UnFilter<4>;
    case 6:
        return PNG_UnFilter<6>;
    default:
        return PNG_UnFilter<8>;
    }
}

using RGBA = std::array<uint8_t, 4>;

// The colours that a line's byte of grey levels or palette indices stands for, the leftmost in its
// highest bits: 8 / BitDepth of them a byte.
static constinit thread_local std::array<RGBA, 256 * 8> PNG_Colors{};

static void MakeColors()
{
    const PNG_HEADER &h = PNG_Header;
    const size_t depth = std::min<size_t>(h.BitDepth, 8), most = (size_t{1} << depth) - 1;
    RGBA *color = PNG_Colors.data();
    for (size_t byte = 0; byte < 256; byte++)
        for (size_t bit = depth; bit <= 8; bit += depth) {
            const size_t i = byte >> (8 - bit) & most;
            const uint8_t grey = static_cast<uint8_t>(i * 255 / most);
            *color++ = h.ColorType == 3 ? RGBA{h.PaletteRed[i], h.PaletteGreen[i], h.PaletteBlue[i],
                                               h.PaletteAlpha[i]}
                                        : RGBA{grey, grey, grey, 255};
        }
}

// Converters of a line's pixels to RGBA: through PNG_Colors,
template <size_t Depth>
static void ConvertIndices(const uint8_t *line, uint8_t *out, size_t pixels)
{
    constexpr size_t count = 8 / Depth;
    for (; pixels >= count; pixels -= count, out += 4 * count)
        std::memcpy(out, &PNG_Colors[*line++ * count], 4 * count);
    if (pixels > 0)
        std::memcpy(out, &PNG_Colors[*line * count], 4 * pixels);
}

// and from bytes of pixels `Step` long, alpha 255 where A lies outside.
template <size_t Step, size_t R, size_t G, size_t B, size_t A>
static void Convert(const uint8_t *line, uint8_t *out, size_t pixels)
{
    for (size_t i = 0; i < pixels; i++) {
        const uint8_t *const from = line + i * Step;
        const uint32_t r = from[R], g = from[G], b = from[B], a = A < Step ? from[A] : 255;
        const uint32_t pixel = r | g << 8 | b << 16 | a << 24;
        std::memcpy(out + i * 4, &pixel, 4);  // as one number: compilers make vectors of it
    }
}

using CONVERT = void (*)(const uint8_t *line, uint8_t *out, size_t pixels);

static CONVERT ConvertOf(uint8_t type, uint8_t depth)
{
    switch (type) {
    case 2:
        return Convert<6, 0, 2, 4, 6>;
    case 4:
        return depth == 16 ? Convert<4, 0, 0, 0, 2> : Convert<2, 0, 0, 0, 1>;
    case 6:
        return Convert<8, 0, 2, 4, 6>;
    }
    switch (depth) {
    case 1:
        return ConvertIndices<1>;
    case 2:
        return ConvertIndices<2>;
    case 4:
        return ConvertIndices<4>;
    case 8:
        return type == 0 ? Convert<1, 0, 0, 0, 1> : ConvertIndices<8>;
    default:
        return Convert<2, 0, 0, 0, 2>;
    }
}

static uint64_t RowBytes(uint64_t width)
{
    return (width * PNG_Header.BitsPerPixel + 7) / 8;
}

// A smaller picture within the picture: every DX-th pixel from IX on of every DY-th row from IY on.
struct PNG_PASS {
    uint32_t Width, Height;
    size_t IX, IY, DX, DY;
};

static PNG_PASS PNG_Adam7GetPassValues(size_t pass)
{
    const size_t ix = PNG_Adam7IX[pass], iy = PNG_Adam7IY[pass];
    const size_t dx = PNG_Adam7DX[pass], dy = PNG_Adam7DY[pass];
    return {static_cast<uint32_t>((PNG_Header.IHDRWidth + dx - ix - 1) / dx),
            static_cast<uint32_t>((PNG_Header.IHDRHeight + dy - iy - 1) / dy),
            ix,
            iy,
            dx,
            dy};
}

// The passes that have pixels: the whole picture, or Adam7's.
static std::vector<PNG_PASS> Passes()
{
    const PNG_HEADER &h = PNG_Header;
    if (h.Interlace != 1)
        return {{h.IHDRWidth, h.IHDRHeight, 0, 0, 1, 1}};
    std::vector<PNG_PASS> passes;
    for (size_t p = 0; p < PNG_Adam7IX.size(); p++) {
        const PNG_PASS pass = PNG_Adam7GetPassValues(p);
        if (pass.Width != 0 && pass.Height != 0)
            passes.push_back(pass);
    }
    return passes;
}

// Whether the header is one that the standard allows, and there is anything to decode.
static bool Decodable()
{
    const PNG_HEADER &h = PNG_Header;
    return h.BitsPerPixel != 0 && h.BitDepth <= 16 && (PNG_Depths[h.ColorType] >> h.BitDepth & 1) &&
           h.IHDRWidth <= 65535 && h.IHDRHeight <= 65535 && PNG_Decoder.Length != 0;
}

// Takes the passes' rows from the window as long as they come. Rows of 8-bit RGB and RGBA become
// RGBA while they are unfiltered, where they belong if they are whole rows of the picture; others
// are unfiltered on two lines by turns and then converted.
static void DecodeRows(PNG_WINDOW &window, std::span<const PNG_PASS> passes, uint8_t *pixels)
{
    const PNG_HEADER &h = PNG_Header;
    const size_t step = (h.BitsPerPixel + 7u) / 8, stride = size_t{h.IHDRWidth} * 4;
    const bool direct = h.BitDepth == 8 && (h.ColorType == 2 || h.ColorType == 6);
    const UNFILTER unfilter = UnFilterOf(step);
    const auto unPaethTwo = step == 3 ? UnPaethTwo<3> : UnPaethTwo<4>;
    const CONVERT convert = direct ? nullptr : ConvertOf(h.ColorType, h.BitDepth);
    const std::vector<uint8_t> zeros((direct ? stride : RowBytes(h.IHDRWidth)) + LINE_SLACK);
    std::array<std::vector<uint8_t>, 2> lines = {zeros, zeros};
    std::vector<uint8_t> converted(stride);
    for (const PNG_PASS &pass : passes) {
        const uint8_t *prior = zeros.data();
        const size_t bytes = RowBytes(pass.Width);
        for (size_t y = 0; y < pass.Height; y++) {
            uint8_t *const row = pixels + (pass.IY + y * pass.DY) * stride;
            if (direct && pass.DX == 1 && y + 1 < pass.Height) {
                const std::span<const uint8_t> two = PNG_NextBytes(window, 2 * (bytes + 1));
                if (two.size() == 2 * (bytes + 1) && two[0] == 4 && two[bytes + 1] == 4) {
                    uint8_t *const lower = row + pass.DY * stride;
                    unPaethTwo(two.data() + 1, two.data() + bytes + 2, prior, row, lower,
                               pass.Width);
                    prior = lower;
                    y++;
                    continue;
                }
                PNG_Position -= two.size();
            }
            const std::span<const uint8_t> in = PNG_NextBytes(window, bytes + 1);
            if (in.empty())
                return;
            const size_t present = in.size() - 1;
            uint8_t *const line = direct && pass.DX == 1 ? row : lines[y % 2].data();
            unfilter(in[0], in.data() + 1, prior, line, present / step);
            prior = line;
            const size_t whole = std::min<size_t>(pass.Width, present * 8 / h.BitsPerPixel);
            uint8_t *const rgba = direct ? line : pass.DX == 1 ? row : converted.data();
            if (!direct)
                convert(line, rgba, whole);
            for (size_t x = 0; pass.DX != 1 && x < whole; x++)
                std::memcpy(row + (pass.IX + x * pass.DX) * 4, rgba + x * 4, 4);
            if (present < bytes)
                return;
        }
    }
}

uint8_t *PNG_Decoding()
{
    if (!Decodable())
        return nullptr;
    const std::vector<PNG_PASS> passes = Passes();
    uint64_t size = 0;  // of the inflated data
    for (const PNG_PASS &pass : passes)
        size += pass.Height * (RowBytes(pass.Width) + 1);
    // RFC 1951 makes at most 258 bytes of 2 bits. Data may be cut short, but not to next to
    // nothing.
    if (size / 64 > uint64_t{PNG_Decoder.Length} * 1032)
        return nullptr;
    uint8_t *pixels = Picture_NewPixels(PNG_Header.IHDRWidth, PNG_Header.IHDRHeight);
    if (!pixels)
        return nullptr;
    MakeColors();
    PNG_WINDOW window;
    PNG_OpenWindow(window, size, RowBytes(PNG_Header.IHDRWidth) + 1);
    DecodeRows(window, passes, pixels);
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
