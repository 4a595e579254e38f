#include "picture/tga.h"

#include <algorithm>
#include <cstring>

#include "extra/bytes.h"
#include "picture/pixels.h"

constinit thread_local TGA_HEADER TGA_Header{};
constinit thread_local BYTES_BUFFER TGA_File{};

constexpr size_t TGA_HeaderSize = 18;
constexpr size_t TGA_FooterSize = 26;  // of version 2
constexpr size_t TGA_LongestRun = 128;
constexpr uint8_t TGA_Plain = 2, TGA_RunLength = 10;

static size_t PixelSize()
{
    return TGA_Header.BitsPerPixel / 8;
}

static size_t ImageSize()
{
    return size_t{TGA_Header.Width} * TGA_Header.Height * PixelSize();
}

static void ReadHeader()
{
    TGA_HEADER &h = TGA_Header;
    h = {};
    size_t position = 2;  // past the lengths of image ID and colour map, which are 0
    h.ImageType = Bytes_GetByte(TGA_File, position);
    position = 12;
    h.Width = Bytes_GetLittle(TGA_File, position, 2);
    h.Height = Bytes_GetLittle(TGA_File, position, 2);
    h.Size = h.Width * h.Height * 4;
    h.BitsPerPixel = Bytes_GetByte(TGA_File, position);
    const uint8_t descriptor = Bytes_GetByte(TGA_File, position);
    h.AlphaBits = descriptor & 15;
    h.Origin = descriptor >> 4 & 3;
}

// Packets of pixels of N bytes: the low seven bits and 1 count the pixels, the high bit says that
// one pixel stands for them all. Returns how far `packed` was read.
template <size_t N>
static size_t ExpandPackets(std::span<const uint8_t> packed, BYTES_BUFFER &out)
{
    const size_t start = out.size();
    const size_t size = std::min(ImageSize(), packed.size() * TGA_LongestRun);
    out.resize(start + size + TGA_LongestRun * N);  // the last packet may reach past the image
    uint8_t *to = out.data() + start;
    const uint8_t *const end = to + size;
    size_t i = 0;
    while (i < packed.size() && to < end) {
        const size_t count = (packed[i] & 127u) + 1u;
        const bool run = packed[i] >= 128;
        const size_t stored = run ? N : std::min(count * N, packed.size() - i - 1);
        if (packed.size() - i - 1 < stored)
            break;
        const uint8_t *pixel = packed.data() + i + 1;
        if (run)
            for (size_t k = 0; k < count; k++)
                std::memcpy(to + k * N, pixel, N);
        else
            std::memcpy(to, pixel, stored);
        to += run ? count * N : stored;
        i += 1 + stored;
    }
    out.resize(std::min(static_cast<size_t>(to - out.data()), start + size));
    return i;
}

void TGA_Load(const char *path)
{
    TGA_File = Bytes_LoadFile(path);
    ReadHeader();
    const uint8_t depth = TGA_Header.BitsPerPixel;
    if (TGA_Header.ImageType != TGA_RunLength || (depth != 24 && depth != 32) ||
        TGA_File.size() < TGA_HeaderSize || ImageSize() > Picture_MaxBytes)
        return;
    BYTES_BUFFER expanded(TGA_File.begin(), TGA_File.begin() + TGA_HeaderSize);
    const std::span<const uint8_t> packed = Bytes_GetSpan(TGA_File, TGA_HeaderSize);
    const size_t used =
        depth == 24 ? ExpandPackets<3>(packed, expanded) : ExpandPackets<4>(packed, expanded);
    if (expanded.size() == TGA_HeaderSize + ImageSize()) {
        const std::span<const uint8_t> footer = Bytes_GetSpan(packed, used, TGA_FooterSize);
        expanded.insert(expanded.end(), footer.begin(), footer.end());
    }
    TGA_File = std::move(expanded);
    TGA_Header.ImageType = TGA_Plain;
}

// What the row lacks stays transparent.
static void DecodeRow(std::span<const uint8_t> row, uint8_t *out)
{
    if (PixelSize() == 3)
        Pixels_FromTriples(row, true, out);
    else
        for (size_t i = 0; i + 4 <= row.size(); i += 4)
            Pixels_Put(out + i, Pixels_SwapRedBlue(Pixels_Get(row.data() + i)));
    const size_t count = row.size() / PixelSize();
    std::memset(out + 4 * count, 0, 4 * (TGA_Header.Width - count));
}

uint8_t *TGA_Decoding()
{
    const TGA_HEADER &h = TGA_Header;
    const std::span<const uint8_t> data = Bytes_GetSpan(TGA_File, TGA_HeaderSize, ImageSize());
    const size_t row = h.Width * PixelSize();
    if (h.ImageType != TGA_Plain || (h.BitsPerPixel != 24 && h.BitsPerPixel != 32) ||
        data.size() < row || data.size() < ImageSize() / Picture_MinShare)
        return nullptr;
    uint8_t *pixels = Picture_NewUnsetPixels(h.Width, h.Height);
    if (!pixels)
        return nullptr;
    for (size_t y = 0; y < h.Height; y++) {
        const size_t at = h.Origin == 0 ? h.Height - 1 - y : y;
        DecodeRow(Bytes_GetSpan(data, y * row, row), pixels + at * h.Width * 4);
    }
    return pixels;
}

void TGA_UnLoad()
{
    TGA_File = {};
}

TGA_SIZE TGA_GetHeader()
{
    return TGA_Header;
}
