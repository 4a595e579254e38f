#include "picture/pxm.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <optional>
#include <string_view>

#include "extra/bytes.h"
#include "extra/local.h"
#include "extra/reason.h"
#include "picture/pixels.h"

constinit thread_local PXM_HEADER PXM_Header{};
constinit thread_local BYTES_BUFFER PXM_File{};
constinit thread_local size_t PXM_Position{};

constexpr PIXELS_BILEVEL PXM_Bits = Pixels_MakeBilevel(true);
constexpr size_t PXM_NumberLength = 7;  // characters, the limit of System_ReadNumber

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

// System_ReadNumber after white space, without reading past the end of the file.
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

// A number of the header; 0 if it exceeds 16 bits.
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

static bool ByFormat()
{
    return PXM_Header.Rules == PICTURE_RULES_FORMAT;
}

static void ReadFrameworkHeader()
{
    PXM_HEADER &h = PXM_Header;
    PXM_Position = 3;
    if (PXM_Position < PXM_File.size() && !IsDigit(PXM_File[PXM_Position]))
        SkipLine(PXM_File, PXM_Position);
    h.Width = ReadHeaderNumber();
    h.Height = ReadHeaderNumber();
    if (h.Type != 1 && h.Type != 4)
        h.Maximum = ReadHeaderNumber();
    constexpr std::array<uint8_t, 7> bits = {0, 1, 8, 24, 1, 8, 24};
    h.BitsPerPixel = h.Type < bits.size() ? bits[h.Type] : uint8_t{0};
    h.Depth = h.BitsPerPixel / 8;
}

static bool IsBlank(uint8_t c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

static void SkipBlanksAndComments(std::span<const uint8_t> file, size_t &position)
{
    while (position < file.size() && (IsBlank(file[position]) || file[position] == '#')) {
        if (file[position] == '#')
            SkipLine(file, position);
        else
            position++;
    }
}

// The next word, or "" at the end of the file.
static std::string_view ReadWord()
{
    SkipBlanksAndComments(PXM_File, PXM_Position);
    const size_t start = PXM_Position;
    while (PXM_Position < PXM_File.size() && !IsBlank(PXM_File[PXM_Position]) &&
           PXM_File[PXM_Position] != '#')
        PXM_Position++;
    const auto word = Bytes_GetSpan(PXM_File, start, PXM_Position - start);
    return {reinterpret_cast<const char *>(word.data()), word.size()};
}

// 0 if the word is not a 16-bit number.
static uint16_t ToNumber(std::string_view word)
{
    uint16_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc() && end == word.data() + word.size() ? number : uint16_t{0};
}

// PAM: one name and value per line, up to ENDHDR.
static void ReadPAMHeader()
{
    PXM_HEADER &h = PXM_Header;
    for (;;) {
        const std::string_view name = ReadWord();
        if (name == "ENDHDR" || name.empty())
            break;
        const std::string_view value = ReadWord();
        if (name == "WIDTH")
            h.Width = ToNumber(value);
        else if (name == "HEIGHT")
            h.Height = ToNumber(value);
        else if (name == "MAXVAL")
            h.Maximum = ToNumber(value);
        else if (name == "DEPTH")
            h.Depth = static_cast<uint8_t>(std::min<uint16_t>(ToNumber(value), 255));
    }
    SkipLine(PXM_File, PXM_Position);
}

static void ReadFormatHeader()
{
    PXM_HEADER &h = PXM_Header;
    if (h.Type == 7) {
        ReadPAMHeader();
    } else {
        h.Width = ToNumber(ReadWord());
        h.Height = ToNumber(ReadWord());
        if (h.Type != 1 && h.Type != 4)
            h.Maximum = ToNumber(ReadWord());
        PXM_Position++;  // one blank precedes binary samples
        constexpr std::array<uint8_t, 7> depths = {0, 0, 1, 3, 0, 1, 3};
        h.Depth = h.Type < depths.size() ? depths[h.Type] : uint8_t{0};
    }
    const bool bitmap = h.Type == 1 || h.Type == 4;
    const bool known = bitmap || (h.Depth >= 1 && h.Depth <= 4 && h.Maximum != 0);
    h.BitsPerPixel = known ? static_cast<uint8_t>(bitmap ? 1 : h.Depth * 8) : uint8_t{0};
}

void PXM_Load(const char *path)
{
    PXM_File = BYTES_BUFFER();
    PXM_HEADER &h = PXM_Header;
    h = {};
    h.Rules = Picture_Rules;
    Reason_Guard([path] { PXM_File = Bytes_LoadFile(path); });
    PXM_Position = 1;
    h.Type = static_cast<uint8_t>(Bytes_GetByte(PXM_File, PXM_Position) - '0');
    if (ByFormat())
        ReadFormatHeader();
    else
        ReadFrameworkHeader();
    h.Size = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
}

// The brightness of each sample value.
static std::array<uint8_t, 256> MakeScale(uint16_t maximum)
{
    std::array<uint8_t, 256> scale{};
    for (size_t s = 0; s < scale.size() && maximum != 0; s++)
        scale[s] = static_cast<uint8_t>(
            static_cast<uint32_t>(static_cast<float>(s) / static_cast<float>(maximum) * 255.0f));
    return scale;
}

// The decoders return the end of the pixels that the file has.

// One character per pixel, with or without white space between them.
static uint8_t *DecodeBitText(uint8_t *out, size_t count)
{
    const std::span<const uint8_t> file = PXM_File;
    const bool comments = ByFormat();
    for (size_t at = PXM_Position; at < file.size();) {
        const uint8_t c = file[at++];
        if (comments && c == '#') {
            SkipLine(file, at);
            continue;
        }
        if (IsSpace(c) || (comments && IsBlank(c)))
            continue;
        if (count-- == 0)
            break;
        const uint8_t level = c == '0' ? 255 : 0;
        Pixels_Put(out, Pixels_Pack(level, level, level, 255));
        out += 4;
    }
    return out;
}

// Like ReadNumber, with a fast path for one to three digits and a separator, the common case. It
// examines eight bytes at once, so no branch depends on the length: bit 4 is set in digits but not
// in separators.
static uint32_t ReadSample(std::span<const uint8_t> file, size_t &position)
{
    if (file.size() - position >= 8) {
        const uint8_t *p = file.data() + position;
        const uint64_t text = uint64_t{p[0]} | uint64_t{p[1]} << 8 | uint64_t{p[2]} << 16 |
                              uint64_t{p[3]} << 24 | uint64_t{p[4]} << 32 | uint64_t{p[5]} << 40 |
                              uint64_t{p[6]} << 48 | uint64_t{p[7]} << 56;
        const auto length = static_cast<size_t>(std::countr_zero(~text & 0x1010101010101010)) / 8;
        if (length >= 1 && length <= 3 && IsSpace(p[length])) {
            // The last digit is the highest byte; bytes before the first digit are 0.
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

// Fills `samples` with the low bytes of numbers; returns how many were read.
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

// Decodes grey and colour, text and binary, row by row.
static uint8_t *DecodeSamples(uint8_t *out)
{
    const PXM_HEADER &h = Extra_Local(PXM_Header);
    const std::span<const uint8_t> file = PXM_File;
    size_t &position = Extra_Local(PXM_Position);
    const std::array<uint8_t, 256> scale = MakeScale(h.Maximum);
    const bool colour = h.BitsPerPixel == 24, text = h.Type <= 3;
    std::vector<uint8_t> row(size_t{h.Width} * (colour ? 3 : 1));
    for (size_t y = 0; y < h.Height; y++, out += size_t{h.Width} * 4) {
        std::span<const uint8_t> samples;
        if (text) {
            samples = std::span(row).first(ReadNumbers(file, position, row));
        } else {
            samples = Bytes_GetSpan(file, position, row.size());
            position += row.size();
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

// On purpose: a row has no byte for the last Width % 8 pixels, and these are black.
static uint8_t *DecodeFrameworkBits(uint8_t *out)
{
    const PXM_HEADER &h = Extra_Local(PXM_Header);
    const std::span<const uint8_t> file = PXM_File;
    const size_t row = h.Width / 8, rest = h.Width % 8;
    size_t &position = Extra_Local(PXM_Position);
    constexpr std::array<uint8_t, 4> black = {0, 0, 0, 255};
    for (size_t y = 0; y < h.Height; y++, position += row) {
        const std::span<const uint8_t> bytes = Bytes_GetSpan(file, position, row);
        if (bytes.size() < row)
            break;
        for (const uint8_t byte : bytes)
            out = std::copy(PXM_Bits[byte].begin(), PXM_Bits[byte].end(), out);
        for (size_t i = 0; i < rest; i++)
            out = std::copy(black.begin(), black.end(), out);
    }
    return out;
}

static uint8_t *DecodeFormatBits(uint8_t *out)
{
    const PXM_HEADER &h = Extra_Local(PXM_Header);
    const std::span<const uint8_t> file = PXM_File;
    const size_t width = h.Width, row = (width + 7) / 8;
    size_t &position = Extra_Local(PXM_Position);
    for (size_t y = 0; y < h.Height; y++, position += row) {
        const std::span<const uint8_t> bytes = Bytes_GetSpan(file, position, row);
        if (bytes.size() < row)
            break;
        for (size_t x = 0; x < width; x += 8)
            out = std::copy_n(PXM_Bits[bytes[x / 8]].begin(), std::min<size_t>(8, width - x) * 4,
                              out);
    }
    return out;
}

// The next number of a text, after blanks and comments; nothing at the end or at a character that
// is not a digit.
static std::optional<uint32_t> ReadTextSample(std::span<const uint8_t> file, size_t &position)
{
    SkipBlanksAndComments(file, position);
    const size_t start = position;
    uint32_t value = 0;
    for (; position < file.size() && IsDigit(file[position]); position++)
        value = std::min<uint32_t>(value * 10 + (file[position] - '0'), 0xFFFF);
    return position != start ? std::optional(value) : std::nullopt;
}

// Format: samples of any maximum, of one or two bytes, 1 to 4 per pixel.
static uint8_t *DecodeFormatSamples(uint8_t *out)
{
    const PXM_HEADER &h = Extra_Local(PXM_Header);
    const std::span<const uint8_t> file = PXM_File;
    const uint32_t maximum = h.Maximum;
    const bool text = h.Type <= 3, wide = maximum > 255;
    // Two-byte samples are scaled to 16 bits, of which the high byte is kept.
    std::vector<uint8_t> scale(maximum + 1u);
    for (uint64_t s = 0; s <= maximum; s++)
        scale[s] = static_cast<uint8_t>(wide ? (s * 0xFFFF + maximum / 2) / maximum >> 8
                                             : (s * 255 + maximum / 2) / maximum);
    size_t at = PXM_Position;
    const auto next = [&]() -> std::optional<uint8_t> {
        uint32_t value = 0;
        if (text) {
            const auto sample = ReadTextSample(file, at);
            if (!sample)
                return std::nullopt;
            value = *sample;
        } else {
            if (at + (wide ? 2 : 1) > file.size())
                return std::nullopt;
            value = Bytes_GetBig(file, at, wide ? 2 : 1);
        }
        return scale[std::min(value, maximum)];
    };
    const size_t pixels = size_t{h.Width} * h.Height;
    for (size_t i = 0; i < pixels; i++, out += 4) {
        std::array<uint8_t, 4> sample{};
        for (size_t c = 0; c < h.Depth; c++) {
            const auto value = next();
            if (!value)
                return out;
            sample[c] = *value;
        }
        const bool grey = h.Depth <= 2, alpha = h.Depth % 2 == 0;
        Pixels_Put(out, Pixels_Pack(sample[0], sample[grey ? 0 : 1], sample[grey ? 0 : 2],
                                    alpha ? sample[h.Depth - 1u] : 255));
    }
    return out;
}

// Whether both rules read the samples alike, so that the fast path serves.
static bool HasPlainSamples()
{
    const PXM_HEADER &h = PXM_Header;
    return !ByFormat() || (h.Maximum == 255 && h.Type > 4 && h.Type < 7);
}

// Minimum number of bytes or characters of a row.
static size_t ShortestRow()
{
    const PXM_HEADER &h = PXM_Header;
    const size_t samples = size_t{h.Width} * std::max<size_t>(h.Depth, 1);
    switch (h.Type) {
    case 2:
    case 3:
        return 2 * samples - 1;
    case 4:
        return ByFormat() ? (h.Width + 7) / 8 : h.Width / 8;
    default:
        return h.Maximum > 255 && ByFormat() ? 2 * samples : samples;
    }
}

uint8_t *PXM_Decoding()
{
    const PXM_HEADER &h = PXM_Header;
    if (h.BitsPerPixel == 0 || h.Width == 0 || h.Height == 0) {
        Reason_Set("a header that says nothing of use");
        return nullptr;
    }
    const size_t stored = Bytes_GetSpan(PXM_File, PXM_Position).size(), row = ShortestRow();
    if (stored < row) {
        Reason_Set("cut in its first row");
        return nullptr;
    }
    if (!Picture_Believes(
            {h.Width, h.Height, row == 0 ? UINT64_MAX : stored / row * h.Width, PXM_File.size()}))
        return nullptr;
    return Reason_Guard([&]() -> uint8_t * {
        PICTURE_PIXELS owner(Picture_NewUnsetPixels(h.Width, h.Height));
        uint8_t *pixels = owner.get();
        if (!pixels)
            return nullptr;
        const size_t size = size_t{h.Width} * h.Height * 4;
        uint8_t *end = h.Type == 1 ? DecodeBitText(pixels, size / 4)
                       : h.Type == 4
                           ? (ByFormat() ? DecodeFormatBits(pixels) : DecodeFrameworkBits(pixels))
                       : HasPlainSamples() ? DecodeSamples(pixels)
                                           : DecodeFormatSamples(pixels);
        std::fill(end, pixels + size, uint8_t{0});
        if (end != pixels + size)
            Reason_Set("cut after %zu of %d rows",
                       static_cast<size_t>(end - pixels) / (size_t{h.Width} * 4), h.Height);
        return owner.release();
    });
}

void PXM_UnLoad()
{
    PXM_File = BYTES_BUFFER();
}

PXM_HEADER PXM_GetHeader()
{
    return PXM_Header;
}
