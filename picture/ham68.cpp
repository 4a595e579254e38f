#include "picture/ham68.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "extra/bytes.h"
#include "extra/reason.h"
#include "picture/pixels.h"

constinit thread_local HAM68_HEADER HAM68_Header{};
constinit thread_local BYTES_BUFFER HAM68_File{};

const std::array<uint16_t, 16> HAM68_Colors16 = [] {
    std::array<uint16_t, 16> greys{};
    for (size_t i = 0; i < greys.size(); i++)
        greys[i] = static_cast<uint16_t>(i * 0x111);
    return greys;
}();

const std::array<std::array<uint8_t, 3>, 64> HAM68_Colors64 = [] {
    std::array<std::array<uint8_t, 3>, 64> greys{};
    for (size_t i = 0; i < greys.size(); i++)
        greys[i].fill(static_cast<uint8_t>(4 * i));
    return greys;
}();

const std::array<char, 90> HAM68_Description = [] {
    constexpr char text[] = "Hold-And-Modify\nPicture format by\nVELMORANDIS\n2022.";
    std::array<char, 90> description{};
    std::fill_n(description.begin(), description.size() - 1, ' ');
    std::copy_n(text, sizeof text - 1, description.begin());
    return description;
}();

constexpr size_t HAM68_HeaderSize = 100;
constexpr uint8_t HAM68_Runs = 1, HAM68_Escape = 1;
constexpr size_t HAM68_MaxRun = 0xFEFF;  // a high byte of 255 would mean a single 1
constexpr size_t HAM68_MaxOutOfOne = HAM68_MaxRun / 4 + 1;  // bytes per byte: a run takes four

static size_t PaletteSize(uint8_t planes)
{
    return planes == 6 ? 32 : planes == 8 ? 192 : 0;
}

// Expands runs, to at most `size` bytes.
static void ExpandRuns(std::span<const uint8_t> packed, BYTES_BUFFER &out, size_t size)
{
    size_t position = 0;
    while (position < packed.size() && out.size() < size) {
        const uint8_t value = Bytes_GetByte(packed, position);
        if (value != HAM68_Escape) {
            out.push_back(value);
            continue;
        }
        const uint8_t high = Bytes_GetByte(packed, position);
        if (high == 255) {
            out.push_back(HAM68_Escape);
            continue;
        }
        const size_t count = static_cast<size_t>(high << 8 | Bytes_GetByte(packed, position));
        const uint8_t repeated = Bytes_GetByte(packed, position);
        out.insert(out.end(), std::min(count, size - out.size()), repeated);
    }
}

static void ReadHeader()
{
    HAM68_HEADER &h = HAM68_Header;
    size_t position = 4;  // past the signature, checked by the detection
    h.BytesPerRow = static_cast<uint16_t>(Bytes_GetBig(HAM68_File, position, 2));
    h.Width = static_cast<uint16_t>(h.BytesPerRow * 8);
    h.Height = static_cast<uint16_t>(Bytes_GetBig(HAM68_File, position, 2));
    h.Planes = Bytes_GetByte(HAM68_File, position);
    h.Compression = Bytes_GetByte(HAM68_File, position);
    for (char &c : h.Description)
        c = static_cast<char>(Bytes_GetByte(HAM68_File, position));
    h.DataOffset = HAM68_HeaderSize;
}

// A dump has no header: its height is the number of whole rows in the file after the first, which
// the palette takes up.
static void MeasureRawPlanes(uint16_t width, uint8_t rawPlanes)
{
    HAM68_HEADER &h = HAM68_Header;
    h = {};
    h.Width = width != 0 ? width : 320;
    h.BytesPerRow = h.Width / 8;
    h.Planes = rawPlanes;
    const size_t row = size_t{h.BytesPerRow} * rawPlanes;
    if (row == 0 || HAM68_File.size() <= 2 * row)
        return;
    const size_t height = (HAM68_File.size() - 1) / row - 1;
    h.Height = height <= 0xFFFF ? static_cast<uint16_t>(height) : uint16_t{0};
}

static size_t PlaneBytes()
{
    const HAM68_HEADER &h = HAM68_Header;
    return size_t{h.BytesPerRow} * std::max<uint8_t>(h.Planes, 1) * h.Height;
}

static bool IsPossible()
{
    const HAM68_HEADER &h = HAM68_Header;
    const bool squeezed = h.Compression == HAM68_Runs;
    if (h.BytesPerRow == 0 || h.BytesPerRow > 0xFFFF / 8 || HAM68_File.size() <= h.DataOffset ||
        (squeezed && PaletteSize(h.Planes) == 0)) {
        Reason_Set("a header that cannot be");
        return false;
    }
    const size_t held =
        (HAM68_File.size() - h.DataOffset) * (squeezed ? HAM68_MaxOutOfOne : size_t{1});
    const size_t row = size_t{h.BytesPerRow} * std::max<uint8_t>(h.Planes, 1);
    return Picture_Believes(
        {h.Width, h.Height, held * h.Width / row, HAM68_File.size(), squeezed ? PlaneBytes() : 0});
}

static void LoadFile(const char *path, uint16_t width, uint8_t rawPlanes)
{
    HAM68_HEADER &h = HAM68_Header;
    HAM68_File = Bytes_LoadFile(path);
    if (rawPlanes == 6 || rawPlanes == 8)
        MeasureRawPlanes(width, rawPlanes);
    else
        ReadHeader();

    if (!IsPossible()) {
        HAM68_File = BYTES_BUFFER();
    } else if (h.Compression == HAM68_Runs) {
        const size_t fixed = h.DataOffset + PaletteSize(h.Planes);
        BYTES_BUFFER expanded(HAM68_File.begin(),
                              HAM68_File.begin() +
                                  static_cast<ptrdiff_t>(std::min(fixed, HAM68_File.size())));
        expanded.reserve(fixed + std::min(PlaneBytes(), HAM68_File.size() * HAM68_MaxOutOfOne));
        ExpandRuns(Bytes_GetSpan(HAM68_File, fixed), expanded, fixed + PlaneBytes());
        HAM68_File = std::move(expanded);
    }
}

void HAM68_Load(const char *path, uint16_t width, uint8_t rawPlanes)
{
    HAM68_File = BYTES_BUFFER();
    Bytes_Guard(HAM68_File, [&] { LoadFile(path, width, rawPlanes); });
}

static void ReadPalette(uint8_t planes)
{
    HAM68_HEADER &h = HAM68_Header;
    size_t position = h.DataOffset;
    if (planes == 6) {
        for (size_t i = 0; i < 16; i++) {
            const uint32_t argb = Bytes_GetBig(HAM68_File, position, 2);
            const auto nibble = [argb](int shift) {
                return static_cast<uint8_t>((argb >> shift & 15) << 4);
            };
            h.Palette[i] = {nibble(8), nibble(4), nibble(0), nibble(12)};
        }
    } else if (planes == 8) {
        for (auto &entry : h.Palette) {
            for (size_t c = 0; c < 3; c++)
                entry[c] = Bytes_GetByte(HAM68_File, position);
            entry[3] = 255;
        }
    }
    h.DataOffset = static_cast<uint16_t>(h.DataOffset + PaletteSize(planes));
}

// Component that each control value replaces: 1 blue, 2 red, 3 green.
constexpr std::array<size_t, 4> HAM68_Component = {0, 2, 0, 1};

namespace
{

// Effect of a code on the running pixel: bits to keep, bits to set.
struct HAM68_STEP {
    uint32_t Keep, Set;
};
using HAM68_STEPS = std::array<HAM68_STEP, 256>;

}  // namespace

static HAM68_STEPS MakeSteps(uint8_t planes)
{
    HAM68_STEPS steps{};
    const int shift = planes == 6 ? 4 : 2;
    for (size_t code = 0; code < steps.size(); code++) {
        const size_t control = planes == 6 ? code >> 4 & 3 : planes == 8 ? code & 3 : 0;
        const size_t value = planes == 6 ? code & 15 : planes == 8 ? code >> 2 : 0;
        std::array<uint32_t, 3> keep{}, set{};
        if (control == 0) {
            std::copy_n(HAM68_Header.Palette[value].begin(), 3, set.begin());
        } else {
            keep = {255, 255, 255};
            keep[HAM68_Component[control]] = 0;
            set[HAM68_Component[control]] = static_cast<uint8_t>(value << shift);
        }
        steps[code] = {Pixels_Pack(keep[0], keep[1], keep[2], 255),
                       Pixels_Pack(set[0], set[1], set[2], 0)};
    }
    return steps;
}

static void DecodeRow(std::span<const uint8_t> row, uint8_t planes, const HAM68_STEPS &steps,
                      uint8_t *out)
{
    const size_t bytes = HAM68_Header.BytesPerRow;
    uint32_t running = Pixels_Pack(0, 0, 0, 255);
    for (size_t k = 0; k < bytes; k++) {
        uint64_t packed = 0;
        for (size_t p = 0; p < planes; p++) {
            size_t position = p * bytes + k;
            packed |= Pixels_Spread[Bytes_GetByte(row, position)] << p;
        }
        for (const uint8_t code : std::bit_cast<std::array<uint8_t, 8>>(packed)) {
            running = (running & steps[code].Keep) | steps[code].Set;
            Pixels_Put(out, running);
            out += 4;
        }
    }
}

uint8_t *HAM68_Decoding(uint8_t planes)
{
    const HAM68_HEADER &h = HAM68_Header;
    if (HAM68_File.empty())
        return nullptr;
    uint8_t *pixels = Picture_NewPixels(h.Width, h.Height);
    if (!pixels)
        return nullptr;
    ReadPalette(planes);
    const uint8_t used = planes == 6 || planes == 8 ? planes : 0;  // 0: all palette entry 0
    const size_t row = size_t{used} * h.BytesPerRow;
    const HAM68_STEPS steps = MakeSteps(used);
    for (size_t y = 0; y < h.Height; y++)
        DecodeRow(Bytes_GetSpan(HAM68_File, h.DataOffset + y * row, row), used, steps,
                  pixels + y * h.Width * 4);
    return pixels;
}

// The codes of one row of pixels. On purpose, the running colour holds the exact source values, not
// those that a decoder will have; so only a grey equal to it is taken from the palette.
static void EncodeRow(const uint8_t *pixels, std::span<uint8_t> codes, bool ham8)
{
    const auto quantised = [ham8](int v) { return ham8 ? v & 0xFC : v >> 4; };
    constexpr std::array<int, 3> control6 = {32, 48, 16}, control8 = {2, 3, 1};
    const std::array<int, 3> &control = ham8 ? control8 : control6;
    std::array<int, 3> running = {0, 0, 0};
    for (size_t x = 0; x < codes.size(); x++) {
        const std::array<int, 3> rgb = {pixels[4 * x], pixels[4 * x + 1], pixels[4 * x + 2]};
        const bool grey = rgb[0] == rgb[1] && rgb[1] == rgb[2];
        int code;
        if (rgb == running && !grey) {
            code = codes[x - 1];
        } else if (rgb == running) {
            code = quantised(rgb[0]);
        } else {
            size_t most = 0;  // the component with the greatest change, the first on a tie
            for (size_t c = 1; c < 3; c++)
                if (std::abs(rgb[c] - running[c]) > std::abs(rgb[most] - running[most]))
                    most = c;
            code = control[most] + quantised(rgb[most]);
            running[most] = rgb[most];
        }
        codes[x] = static_cast<uint8_t>(code);
    }
}

void HAM68_AppendPlanes(std::span<const uint8_t> codes, uint8_t planes, std::vector<uint8_t> &out)
{
    for (int p = 0; p < planes; p++)
        for (size_t k = 0; k < codes.size() / 8; k++) {
            int bits = 0;
            for (size_t j = 0; j < 8; j++)
                bits = bits << 1 | (p < 8 ? codes[8 * k + j] >> p & 1 : 0);
            out.push_back(static_cast<uint8_t>(bits));
        }
}

std::vector<uint8_t> HAM68_CompressRuns(std::span<const uint8_t> plain)
{
    std::vector<uint8_t> out;
    for (size_t i = 0; i < plain.size();) {
        const uint8_t value = plain[i];
        size_t run = 1;
        while (run < HAM68_MaxRun && i + run < plain.size() && plain[i + run] == value)
            run++;
        if (run >= 5)
            out.insert(out.end(), {HAM68_Escape, static_cast<uint8_t>(run >> 8),
                                   static_cast<uint8_t>(run), value});
        else if (value == HAM68_Escape)
            for (size_t k = 0; k < run; k++)
                out.insert(out.end(), {HAM68_Escape, 255});
        else
            out.insert(out.end(), run, value);
        i += run;
    }
    return out;
}

int HAM68_Encoding(const uint8_t *pixels, uint16_t width, uint16_t height, const char *path,
                   uint16_t code)
{
    const bool squeeze = code > 256;
    const uint8_t planes = static_cast<uint8_t>(squeeze ? code >> 8 : code);
    const bool ham8 = planes == 8;

    std::vector<uint8_t> head = {'H', 'A', 'M'};
    if (planes == 6 || planes == 8)
        head.push_back(static_cast<uint8_t>('0' + planes));
    for (const int v : {width >> 11, width >> 3, height >> 8, +height, +planes, +squeeze})
        head.push_back(static_cast<uint8_t>(v));
    head.insert(head.end(), HAM68_Description.begin(), HAM68_Description.end());
    if (ham8)
        for (const auto &entry : HAM68_Colors64)
            head.insert(head.end(), entry.begin(), entry.end());
    else if (planes == 6)
        for (const uint16_t word : HAM68_Colors16)
            head.insert(head.end(), {static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)});

    std::vector<uint8_t> body, codes(width);
    for (size_t y = 0; y < height; y++) {
        EncodeRow(pixels + y * width * 4, codes, ham8);
        HAM68_AppendPlanes(codes, planes, body);
    }
    if (squeeze)
        body = HAM68_CompressRuns(body);
    else if (!body.empty())
        body.pop_back();

    FILE *file = std::fopen(path, "wb");
    if (!file)
        return EOF;
    const bool written =
        std::fwrite(head.data(), 1, head.size(), file) == head.size() &&
        (body.empty() || std::fwrite(body.data(), 1, body.size(), file) == body.size());
    const int closed = std::fclose(file);
    return written ? closed : EOF;
}

void HAM68_UnLoad()
{
    HAM68_File = BYTES_BUFFER();
}

HAM68_HEADER *HAM68_GetHeader(HAM68_HEADER *out)
{
    *out = HAM68_Header;
    return out;
}
