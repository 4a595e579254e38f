#include "picture/pxm.h"

#include <algorithm>
#include <bit>

#include "extra/bytes.h"
#include "picture/pixels.h"

constinit thread_local PXM_HEADER PXM_Header{};
constinit thread_local BYTES_BUFFER PXM_File{};
constinit thread_local size_t PXM_Position{};

static constexpr PIXELS_BILEVEL PXM_Bits = Pixels_MakeBilevel(true);
static constexpr size_t PXM_NumberLength = 7;  // characters, as System_ReadNumber takes

static bool IsDigit(uint8_t c)
{
    return c >= '0' && c <= '9';
}

static bool IsSpace(uint8_t c)
{
    constexpr uint64_t spaces = 1ull << ' ' | 1ull << '\n' | 1ull << '\r' | 1ull << '\t';
    return c < 64 && (spaces >> c & 1) != 0;
}

static void SkipSpace(std::span<const uint8_t> file, size_t &position)
{
    while (position < file.size() && IsSpace(file[position]))
        position++;
}

static void SkipLine(std::span<const uint8_t> file, size_t &position)
{
    while (position < file.size() && file[position++] != '\n') {
    }
}

// System_ReadNumber behind any white space, without a step past the end of the file.
static uint32_t ReadNumber(std::span<const uint8_t> file, size_t &position)
{
    SkipSpace(file, position);
    const std::span<const uint8_t> text = Bytes_GetSpan(file, position, PXM_NumberLength);
    uint32_t value = 0;
    size_t i = 0;
    for (; i < text.size() && !IsSpace(text[i]); i++)
        value = value * 10 + static_cast<uint8_t>(text[i] - '0');
    position += i + 1;
    return value;
}

// 0 for what 16 bits cannot hold.
static uint16_t ReadHeaderNumber()
{
    SkipSpace(PXM_File, PXM_Position);
    while (PXM_Position < PXM_File.size() && PXM_File[PXM_Position] == '#') {
        SkipLine(PXM_File, PXM_Position);
        SkipSpace(PXM_File, PXM_Position);
    }
    const uint32_t number = ReadNumber(PXM_File, PXM_Position);
    return number <= 0xFFFF ? static_cast<uint16_t>(number) : uint16_t{0};
}

void PXM_Load(const char *path)
{
    PXM_File = Bytes_LoadFile(path);
    PXM_HEADER &h = PXM_Header;
    h = {};
    PXM_Position = 1;
    h.Type = static_cast<uint8_t>(Bytes_GetByte(PXM_File, PXM_Position) - '0');
    PXM_Position = 3;
    if (PXM_Position < PXM_File.size() && !IsDigit(PXM_File[PXM_Position]))
        SkipLine(PXM_File, PXM_Position);
    h.Width = ReadHeaderNumber();
    h.Height = ReadHeaderNumber();
    if (h.Type != 1 && h.Type != 4)
        h.Maximum = ReadHeaderNumber();
    h.Size = uint32_t{h.Width} * h.Height * 4;
    constexpr std::array<uint8_t, 7> bits = {0, 1, 8, 24, 1, 8, 24};
    h.BitsPerPixel = h.Type < bits.size() ? bits[h.Type] : uint8_t{0};
}

// The brightness of each sample.
static std::array<uint8_t, 256> MakeScale(uint16_t maximum)
{
    std::array<uint8_t, 256> scale{};
    for (size_t s = 0; s < scale.size() && maximum != 0; s++)
        scale[s] = static_cast<uint8_t>(
            static_cast<uint32_t>(static_cast<float>(s) / static_cast<float>(maximum) * 255.0f));
    return scale;
}

// The decoders return where the pixels that the file has end.

// One character a pixel, with white space between them or without.
static uint8_t *DecodeBitText(uint8_t *out, size_t count)
{
    for (const uint8_t c : Bytes_GetSpan(PXM_File, PXM_Position)) {
        if (IsSpace(c))
            continue;
        if (count-- == 0)
            break;
        const uint8_t level = c == '0' ? 255 : 0;
        Pixels_Put(out, Pixels_Pack(level, level, level, 255));
        out += 4;
    }
    return out;
}

// The next number, as above, with a short way for what nearly all are: one to three digits and a
// separator. Eight bytes are looked at at once, so that no branch depends on the length, which bit
// 4 tells: digits have it, separators do not.
static uint32_t ReadSample(std::span<const uint8_t> file, size_t &position)
{
    if (file.size() - position >= 8) {
        const uint8_t *p = file.data() + position;
        const uint64_t text = uint64_t{p[0]} | uint64_t{p[1]} << 8 | uint64_t{p[2]} << 16 |
                              uint64_t{p[3]} << 24 | uint64_t{p[4]} << 32 | uint64_t{p[5]} << 40 |
                              uint64_t{p[6]} << 48 | uint64_t{p[7]} << 56;
        const auto length = static_cast<size_t>(std::countr_zero(~text & 0x1010101010101010)) / 8;
        if (length >= 1 && length <= 3 && IsSpace(p[length])) {
            // The last digit is the highest byte; bytes in front of the first are 0.
            const uint64_t digits = (text ^ 0x3030303030303030) << (64 - 8 * length);
            if (((digits | (digits + 0x7676767676767676)) & 0x8080808080808080) == 0) {
                position += length + 1;
                return static_cast<uint32_t>((digits >> 56) + (digits >> 48 & 15) * 10 +
                                             (digits >> 40 & 15) * 100);
            }
        }
    }
    return ReadNumber(file, position);
}

// Fills `samples` with the low bytes of numbers; returns how many there are.
static size_t ReadNumbers(std::span<const uint8_t> file, size_t &position,
                          std::span<uint8_t> samples)
{
    size_t at = position, count = 0;
    for (; count < samples.size(); count++) {
        SkipSpace(file, at);
        if (at >= file.size())
            break;
        samples[count] = static_cast<uint8_t>(ReadSample(file, at));
    }
    position = at;
    return count;
}

// Grey and colour, text and bytes, row by row.
static uint8_t *DecodeSamples(uint8_t *out)
{
    const PXM_HEADER &h = PXM_Header;
    const std::array<uint8_t, 256> scale = MakeScale(h.Maximum);
    const bool colour = h.BitsPerPixel == 24, text = h.Type <= 3;
    std::vector<uint8_t> row(size_t{h.Width} * (colour ? 3 : 1));
    for (size_t y = 0; y < h.Height; y++, out += size_t{h.Width} * 4) {
        std::span<const uint8_t> samples;
        if (text) {
            samples = std::span(row).first(ReadNumbers(PXM_File, PXM_Position, row));
        } else {
            samples = Bytes_GetSpan(PXM_File, PXM_Position, row.size());
            PXM_Position += row.size();
        }
        if (h.Maximum != 255) {
            std::transform(samples.begin(), samples.end(), row.begin(),
                           [&scale](uint8_t s) { return scale[s]; });
            samples = std::span(row).first(samples.size());
        }
        if (colour)
            Pixels_FromTriples(samples, false, out);
        else
            Pixels_FromGreys(samples, out);
        if (samples.size() < row.size())
            return out + samples.size() / (colour ? 3 : 1) * 4;
    }
    return out;
}

static uint8_t *DecodeBits(uint8_t *out)
{
    const size_t row = PXM_Header.Width / 8, rest = PXM_Header.Width % 8;
    constexpr std::array<uint8_t, 4> black = {0, 0, 0, 255};
    for (size_t y = 0; y < PXM_Header.Height; y++, PXM_Position += row) {
        const std::span<const uint8_t> bytes = Bytes_GetSpan(PXM_File, PXM_Position, row);
        if (bytes.size() < row)
            break;
        for (const uint8_t byte : bytes)
            out = std::copy(PXM_Bits[byte].begin(), PXM_Bits[byte].end(), out);
        for (size_t i = 0; i < rest; i++)
            out = std::copy(black.begin(), black.end(), out);
    }
    return out;
}

// Bytes or characters that a row takes at least.
static size_t ShortestRow()
{
    const PXM_HEADER &h = PXM_Header;
    const size_t samples = size_t{h.Width} * (h.BitsPerPixel == 24 ? 3 : 1);
    switch (h.Type) {
    case 2:
    case 3:
        return 2 * samples - 1;
    case 4:
        return h.Width / 8;
    default:
        return samples;
    }
}

uint8_t *PXM_Decoding()
{
    const PXM_HEADER &h = PXM_Header;
    const size_t stored = Bytes_GetSpan(PXM_File, PXM_Position).size();
    if (h.BitsPerPixel == 0 || h.Width == 0 || stored < ShortestRow() ||
        stored < ShortestRow() * h.Height / Picture_MinShare)
        return nullptr;
    uint8_t *pixels = Picture_NewUnsetPixels(h.Width, h.Height);
    if (!pixels)
        return nullptr;
    const size_t count = size_t{h.Width} * h.Height;
    uint8_t *end = h.Type == 1   ? DecodeBitText(pixels, count)
                   : h.Type == 4 ? DecodeBits(pixels)
                                 : DecodeSamples(pixels);
    std::fill(end, pixels + 4 * count, uint8_t{0});
    return pixels;
}

void PXM_UnLoad()
{
    PXM_File = {};
}

PXM_HEADER PXM_GetHeader()
{
    return PXM_Header;
}
