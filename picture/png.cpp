#include "picture/png.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include "extra/bytes.h"
#include "extra/local.h"
#include "extra/reason.h"
#include "picture/inflate.h"
#include "picture/pixels.h"
#include "picture/png_filter.h"

constinit thread_local PNG_HEADER PNG_Header{};
constinit thread_local BYTES_BUFFER PNG_File{};
constinit thread_local size_t PNG_Position{};
constinit thread_local PNG_DECODER PNG_Decoder{};

const std::array<const char *, 7> PNG_ColorType = {
    "Grayscale", "???", "RGB triple", "Palette", "Grayscale + Alpha", "???", "RGB + Alpha"};
const std::array<const char *, 2> PNG_Interlace = {"Not interlace", "Adam 7"};
const std::array<const char *, 2> PNG_Unit = {"Ratio", "Meters"};

// ISO/IEC 15948, 11.2.2: samples per pixel by colour type, 0 for an unknown type; and the bit
// depths allowed, as a bit set.
constexpr std::array<uint8_t, 7> PNG_Samples = {1, 0, 3, 1, 2, 0, 4};
constexpr std::array<uint32_t, 7> PNG_Depths = {0x10116, 0, 0x10100, 0x116, 0x10100, 0, 0x10100};

// ISO/IEC 15948, 8.2 "Interlace methods". Adam7 sends the picture in seven passes, each a small
// picture of its own with its own filtered rows. Pass p has every DX-th pixel from column IX on, in
// every DY-th row from row IY on. Each pixel belongs to exactly one pass: the first has one pixel
// of every 8 x 8 tile, and the later ones fill the gaps between those already sent. A pass without
// pixels, in a picture smaller than a tile, has no data, not even filter bytes.
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

// The initial palette. Framework: that of the previous file, which a picture without its own
// palette uses. Format: empty; indexes beyond a palette decode as opaque black.
static void BeginPalette(PNG_HEADER &next)
{
    if (Picture_Rules == PICTURE_RULES_FORMAT) {
        next.PaletteAlpha.fill(255);
        return;
    }
    next.PaletteRed = PNG_Header.PaletteRed;
    next.PaletteGreen = PNG_Header.PaletteGreen;
    next.PaletteBlue = PNG_Header.PaletteBlue;
    next.PaletteAlpha = PNG_Header.PaletteAlpha;
}

// Whether the file's transparent colour is applied. The framework only stores it.
static bool KeyCounts()
{
    return Picture_Rules == PICTURE_RULES_FORMAT;
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

[[gnu::cold]] static void PNG_ReadIHDR()
{
    PNG_HEADER &h = PNG_Header;
    h.IHDRWidth = PNG_GetDWord();
    h.IHDRHeight = PNG_GetDWord();
    h.Width = static_cast<uint16_t>(h.IHDRWidth);
    h.Height = static_cast<uint16_t>(h.IHDRHeight);
    h.OutputSize = static_cast<uint32_t>(uint64_t{h.IHDRWidth} * h.IHDRHeight * 4);
    h.BitDepth = PNG_GetByte();
    h.ColorType = PNG_GetByte();
    const uint8_t samples =
        h.ColorType < PNG_Samples.size() ? PNG_Samples[h.ColorType] : uint8_t{0};
    h.BitsPerPixel = static_cast<uint8_t>(h.BitDepth * samples);
    h.Compression = PNG_GetByte();
    h.Filter = PNG_GetByte();
    h.Interlace = PNG_GetByte();
}

[[gnu::cold]] static void PNG_ReadPLTE(size_t length)
{
    PNG_HEADER &h = Extra_Local(PNG_Header);
    const size_t count = std::min<size_t>(length / 3, 256);
    const auto colours = Bytes_GetSpan(PNG_File, PNG_Position, 3 * count);
    for (size_t i = 0, at = 0; i < count; i++) {
        h.PaletteRed[i] = Bytes_GetByte(colours, at);
        h.PaletteGreen[i] = Bytes_GetByte(colours, at);
        h.PaletteBlue[i] = Bytes_GetByte(colours, at);
        h.PaletteAlpha[i] = 255;
    }
}

[[gnu::cold]] static void PNG_ReadBKGD()
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

[[gnu::cold]] static void PNG_ReadTRNS(size_t length)
{
    PNG_HEADER &h = PNG_Header;
    h.HasKey = KeyCounts() && (h.ColorType == 0 || h.ColorType == 2);
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

[[gnu::cold]] static void PNG_ReadPHYS()
{
    PNG_Header.PixelsPerUnitX = PNG_GetDWord();
    PNG_Header.PixelsPerUnitY = PNG_GetDWord();
    PNG_Header.Unit = PNG_GetByte();
}

[[gnu::cold]] static void PNG_ReadTIME()
{
    PNG_HEADER &h = PNG_Header;
    h.Year = PNG_GetWord();
    for (uint8_t *field : {&h.Month, &h.Day, &h.Hour, &h.Minute, &h.Second})
        *field = PNG_GetByte();
}

// Reads a text up to and including its NUL, to the end of the chunk, or until `out` is full.
template <size_t Size>
static void PNG_GetText(std::array<char, Size> &out, size_t end)
{
    out = {};
    for (size_t i = 0; PNG_Position < end; i++) {
        const uint8_t c = PNG_GetByte();
        if (c == 0)
            return;
        if (i + 1 == Size) {
            PNG_Position--;  // not consumed: the next field starts with it
            return;
        }
        out[i] = static_cast<char>(c);
    }
}

[[gnu::cold]] static void PNG_ReadTEXT(size_t end)
{
    PNG_HEADER &h = PNG_Header;
    if (h.TextCount >= h.Texts.size())
        return;
    PNG_TEXT &text = h.Texts[h.TextCount++];
    PNG_GetText(text.Keyword, end);
    PNG_GetText(text.Text, end);
}

[[gnu::cold]] static void PNG_ReadITXT(size_t end)
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

// Compacts IDAT data in place at the start of the file buffer.
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
    PNG_Position = 8;  // past the signature, checked by the detection
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
        case ChunkType("acTL"):
            if (PNG_GetDWord() > 1)
                Reason_Set("an animation, of which only the default picture is read");
            break;
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
        PNG_Position = end + 4;  // past unread data and the CRC, which is not checked
    }
}

void PNG_Load(const char *path)
{
    PNG_HEADER header = {};
    BeginPalette(header);
    PNG_Header = header;
    PNG_Decoder = {};
    Bytes_Guard(PNG_File, [path] {
        PNG_File = Bytes_LoadFile(path);
        PNG_Header.FileSize = static_cast<uint32_t>(PNG_File.size());
        PNG_ReadChunks();
    });
    PNG_Decoder.Data = std::exchange(PNG_File, {});
}

namespace
{

// A window of inflated data: bytes not used yet and, before them, the history for back references.
struct PNG_WINDOW {
    std::vector<uint8_t> Bytes;
    size_t End;                                    // of the inflated data in Bytes
    size_t &Position = Extra_Local(PNG_Position);  // next byte to use
    const INFLATE_STATE &State = Extra_Local(Inflate_State);
};

}  // namespace

static void PNG_OpenWindow(PNG_WINDOW &window, uint64_t size, size_t longestRow)
{
    constexpr size_t piece = 192 * 1024;
    const size_t max = Inflate_History + std::max(piece, 3 * longestRow);
    window.Bytes.resize(std::min<uint64_t>(size, max) + Inflate_Margin + PNG_LineSlack);
    window.End = window.Position = 0;
    Inflate_Begin(std::span(PNG_Decoder.Data).first(PNG_Decoder.Length));
}

// The next `size` bytes, fewer at the end of the stream. Valid until the next call.
static std::span<const uint8_t> PNG_NextBytes(PNG_WINDOW &window, size_t size)
{
    const std::span room = std::span(window.Bytes).first(window.Bytes.size() - PNG_LineSlack);
    size_t &position = window.Position;
    while (window.End - position < size && window.State == INFLATE_MORE) {
        const size_t history = window.End - std::min(window.End, Inflate_History);
        const size_t unneeded = std::min(position, history);
        if (room.size() - window.End < Inflate_Margin && unneeded > 0) {
            std::memmove(window.Bytes.data(), window.Bytes.data() + unneeded,
                         window.End - unneeded);
            window.End -= unneeded;
            position -= unneeded;
        }
        window.End = Inflate_More(room, window.End);
    }
    const size_t count = std::min(size, window.End - position);
    position += count;
    return std::span(window.Bytes).subspan(position - count, count);
}

using RGBA = std::array<uint8_t, 4>;

// The colours of a byte of grey levels or palette indexes, 8 / BitDepth of them, the leftmost pixel
// being in the byte's highest bits.
static constinit thread_local std::array<RGBA, 256 * 8> PNG_Colours{};

static void MakeColours()
{
    const PNG_HEADER &h = Extra_Local(PNG_Header);
    const size_t depth = std::min<size_t>(h.BitDepth, 8), max = (size_t{1} << depth) - 1;
    RGBA *colour = Extra_Local(PNG_Colours).data();
    for (size_t byte = 0; byte < 256; byte++)
        for (size_t bit = depth; bit <= 8; bit += depth) {
            const size_t i = byte >> (8 - bit) & max;
            const uint8_t grey = static_cast<uint8_t>(i * 255 / max);
            *colour++ = h.ColorType == 3 ? RGBA{h.PaletteRed[i], h.PaletteGreen[i],
                                                h.PaletteBlue[i], h.PaletteAlpha[i]}
                                         : RGBA{grey, grey, grey, 255};
        }
}

// Converts a line of indexes to RGBA through PNG_Colours.
template <size_t Depth>
static void ConvertIndices(const uint8_t *line, uint8_t *out, size_t pixels)
{
    constexpr size_t count = 8 / Depth;
    const RGBA *const colours = Extra_Local(PNG_Colours).data();
    for (; pixels >= count; pixels -= count, out += 4 * count)
        std::memcpy(out, colours + *line++ * count, 4 * count);
    if (pixels > 0)
        std::memcpy(out, colours + *line * count, 4 * pixels);
}

// Converts a line of pixels of `Step` bytes to RGBA; alpha is 255 if A is not below Step.
template <size_t Step, size_t R, size_t G, size_t B, size_t A>
static void Convert(const uint8_t *line, uint8_t *out, size_t pixels)
{
    for (size_t i = 0; i < pixels; i++) {
        const uint8_t *const from = line + i * Step;
        const uint32_t r = from[R], g = from[G], b = from[B], a = A < Step ? from[A] : 255;
        Pixels_Put(out + i * 4, Pixels_Pack(r, g, b, a));
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

// The transparent colour as bytes of a line, for 16-bit samples, which lose their low bytes in
// RGBA.
static std::vector<uint8_t> WideKey()
{
    const PNG_HEADER &h = PNG_Header;
    std::vector<uint8_t> key;
    if (!h.HasKey || h.BitDepth != 16)
        return key;
    const std::array<uint16_t, 3> samples = {h.ColorType == 0 ? h.KeyGrey : h.KeyRed, h.KeyGreen,
                                             h.KeyBlue};
    for (size_t i = 0; i < PNG_Samples[h.ColorType]; i++) {
        key.push_back(static_cast<uint8_t>(samples[i] >> 8));
        key.push_back(static_cast<uint8_t>(samples[i]));
    }
    return key;
}

static void ClearWideKey(std::span<const uint8_t> key, const uint8_t *line, uint8_t *out,
                         size_t pixels)
{
    for (size_t i = 0; i < pixels; i++)
        if (std::memcmp(line + i * key.size(), key.data(), key.size()) == 0)
            out[i * 4 + 3] = 0;
}

// Applies the transparent colour for samples of up to 8 bits, which are complete in RGBA.
static void ClearKey(uint8_t *pixels, size_t count)
{
    const PNG_HEADER &h = PNG_Header;
    if (!h.HasKey || h.BitDepth == 16)
        return;
    const uint32_t max = (1u << h.BitDepth) - 1;
    const auto level = [max](uint16_t sample) { return (sample & max) * 255 / max; };
    const uint32_t grey = level(h.KeyGrey),
                   key = h.ColorType == 0 ? Pixels_Pack(grey, grey, grey, 255)
                                          : Pixels_Pack(level(h.KeyRed), level(h.KeyGreen),
                                                        level(h.KeyBlue), 255);
    for (size_t i = 0; i < count; i++)
        if (Pixels_Get(pixels + i * 4) == key)
            pixels[i * 4 + 3] = 0;
}

static uint64_t RowBytes(uint64_t width)
{
    return (width * PNG_Header.BitsPerPixel + 7) / 8;
}

namespace
{

// One pass as a picture of its own. See PNG_Adam7IX.
struct PNG_PASS {
    uint32_t Width, Height;
    size_t IX, IY, DX, DY;
};

}  // namespace

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

// The passes that have pixels: one for the whole picture, or Adam7's.
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

// Whether the standard allows the header and the data could fill the picture.
static bool Decodable()
{
    const PNG_HEADER &h = PNG_Header;
    if (h.BitsPerPixel == 0 || h.BitDepth > 16 || !(PNG_Depths[h.ColorType] >> h.BitDepth & 1)) {
        Reason_Set("no PNG header of a known kind");
        return false;
    }
    if (h.IHDRWidth > 65535 || h.IHDRHeight > 65535) {
        Reason_Set("a side of more than 65535 pixels");
        return false;
    }
    if (PNG_Decoder.Length == 0) {
        Reason_Set("no picture data");
        return false;
    }
    // DEFLATE makes at most 258 bytes of 2 bits. Picture_MinShare allows for damage, and for the
    // eight pixels in a byte of 1-bit samples.
    constexpr uint64_t maxInflation = 1032;
    return Picture_Believes(
        {h.IHDRWidth, h.IHDRHeight, PNG_Decoder.Length * maxInflation, PNG_Decoder.Data.size()});
}

// Decodes the rows of the passes from the window; returns how many were complete. Rows of 8-bit RGB
// and RGBA are converted while they are unfiltered, directly in the picture if they are whole rows
// of it. Other rows are unfiltered into two lines used in turn and then converted.
static size_t DecodeRows(PNG_WINDOW &window, std::span<const PNG_PASS> passes, uint8_t *pixels)
{
    const PNG_HEADER &h = Extra_Local(PNG_Header);
    const size_t step = (h.BitsPerPixel + 7u) / 8, stride = size_t{h.IHDRWidth} * 4;
    const bool direct = h.BitDepth == 8 && (h.ColorType == 2 || h.ColorType == 6);
    const PNG_UNFILTER unfilter = PNG_UnFilterOf(step);
    const PNG_UNPAETHTWO unPaethTwo = PNG_UnPaethTwoOf(step);
    const CONVERT convert = direct ? nullptr : ConvertOf(h.ColorType, h.BitDepth);
    const std::vector<uint8_t> wideKey = WideKey();
    const std::vector<uint8_t> zeros((direct ? stride : RowBytes(h.IHDRWidth)) + PNG_LineSlack);
    std::array<std::vector<uint8_t>, 2> lines = {zeros, zeros};
    std::vector<uint8_t> converted(stride);
    size_t rows = 0;
    for (const PNG_PASS &pass : passes) {
        const uint8_t *prior = zeros.data();
        const size_t bytes = RowBytes(pass.Width);
        for (size_t y = 0; y < pass.Height; y++, rows++) {
            uint8_t *const row = pixels + (pass.IY + y * pass.DY) * stride;
            if (direct && pass.DX == 1 && y + 1 < pass.Height) {
                const std::span<const uint8_t> two = PNG_NextBytes(window, 2 * (bytes + 1));
                if (two.size() == 2 * (bytes + 1) && two[0] == 4 && two[bytes + 1] == 4) {
                    uint8_t *const lower = row + pass.DY * stride;
                    unPaethTwo(two.data() + 1, two.data() + bytes + 2, prior, row, lower,
                               pass.Width);
                    prior = lower;
                    y++;
                    rows++;
                    continue;
                }
                window.Position -= two.size();
            }
            const std::span<const uint8_t> in = PNG_NextBytes(window, bytes + 1);
            if (in.empty())
                return rows;
            const size_t present = in.size() - 1;
            uint8_t *const line = direct && pass.DX == 1 ? row : lines[y % 2].data();
            unfilter(in[0], in.data() + 1, prior, line, present / step);
            prior = line;
            const size_t whole = std::min<size_t>(pass.Width, present * 8 / h.BitsPerPixel);
            uint8_t *const rgba = direct ? line : pass.DX == 1 ? row : converted.data();
            if (!direct)
                convert(line, rgba, whole);
            if (!wideKey.empty())
                ClearWideKey(wideKey, line, rgba, whole);
            for (size_t x = 0; pass.DX != 1 && x < whole; x++)
                std::memcpy(row + (pass.IX + x * pass.DX) * 4, rgba + x * 4, 4);
            if (present < bytes)
                return rows;
        }
    }
    return rows;
}

// Inflates, unfilters and converts into zeroed pixels.
static void Decode(uint8_t *pixels)
{
    const std::vector<PNG_PASS> passes = Passes();
    uint64_t size = 0;  // of the inflated data
    size_t rows = 0;
    for (const PNG_PASS &pass : passes) {
        size += pass.Height * (RowBytes(pass.Width) + 1);
        rows += pass.Height;
    }
    if (PNG_Header.BitsPerPixel <= 8)
        MakeColours();
    PNG_WINDOW window;
    PNG_OpenWindow(window, size, RowBytes(PNG_Header.IHDRWidth) + 1);
    const size_t made = DecodeRows(window, passes, pixels);
    if (made < rows)
        Reason_Set("%s after %zu of %zu rows",
                   PNG_BitPointer / 8 >= PNG_Decoder.Length ? "cut" : "damaged", made, rows);
    ClearKey(pixels, size_t{PNG_Header.IHDRWidth} * PNG_Header.IHDRHeight);
}

uint8_t *PNG_Decoding()
{
    if (!Decodable())
        return nullptr;
    PICTURE_PIXELS pixels(Picture_NewPixels(PNG_Header.IHDRWidth, PNG_Header.IHDRHeight));
    return Reason_Guard([&pixels] {
        if (pixels)
            Decode(pixels.get());
        return pixels.release();
    });
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
