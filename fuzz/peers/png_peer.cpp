// A valid PNG file of every kind, its rows and palette made from any bytes: libpng.
#include <algorithm>
#include <array>
#include <vector>

#include <png.h>
#include <zlib.h>

#include "fuzz/peers/peer.h"

static std::span<const uint8_t> input;
static size_t position;

static uint8_t Next()
{
    return input.empty() ? uint8_t{0} : input[position++ % input.size()];
}

static void PutBig(std::vector<uint8_t> &to, uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        to.push_back(static_cast<uint8_t>(value >> shift));
}

static void PutChunk(std::vector<uint8_t> &file, const char *type, std::vector<uint8_t> data)
{
    PutBig(file, static_cast<uint32_t>(data.size()));
    data.insert(data.begin(), type, type + 4);
    file.insert(file.end(), data.begin(), data.end());
    PutBig(file, static_cast<uint32_t>(crc32(0, data.data(), static_cast<uInt>(data.size()))));
}

static std::vector<uint8_t> Bytes(size_t count, bool small = false)
{
    std::vector<uint8_t> bytes(count);
    for (uint8_t &byte : bytes)
        byte = small ? Next() & 3 : Next();
    return bytes;
}

// The filtered rows of all passes (8.2), compressed.
static std::vector<uint8_t> Rows(uint32_t width, uint32_t height, uint32_t bits, bool interlaced)
{
    constexpr uint32_t passes[][4] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                                      {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}, {0, 0, 1, 1}};
    std::vector<uint8_t> rows;
    for (size_t pass = interlaced ? 0 : 7; pass < (interlaced ? 7u : 8u); pass++) {
        const auto &[x, y, dx, dy] = passes[pass];
        if (width <= x)
            continue;
        const uint32_t bytes = ((width - x + dx - 1) / dx * bits + 7) / 8;
        for (uint32_t row = y; row < height; row += dy) {
            rows.push_back(Next() % 5);
            const std::vector<uint8_t> row_ = Bytes(bytes);
            rows.insert(rows.end(), row_.begin(), row_.end());
        }
    }
    uLongf length = compressBound(rows.size());
    std::vector<uint8_t> packed(length);
    compress2(packed.data(), &length, rows.data(), rows.size(), 1);
    packed.resize(length);
    return packed;
}

static void Read(png_structp png, png_bytep to, size_t count)
{
    auto &left = *static_cast<std::span<const uint8_t> *>(png_get_io_ptr(png));
    if (left.size() < count)
        png_error(png, "cut");
    std::copy_n(left.data(), count, to);
    left = left.subspan(count);
}

// RGBA of 8 bits, the higher ones of 16. False if libpng complains.
static bool Decode(std::span<const uint8_t> file, std::vector<uint8_t> &pixels, size_t stride)
{
    std::vector<png_bytep> rows;
    for (size_t at = 0; at < pixels.size(); at += stride)
        rows.push_back(&pixels[at]);
    const auto complain = [](png_structp png, png_const_charp) { png_longjmp(png, 1); };
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, complain, complain);
    png_infop info = png_create_info_struct(png);
    const bool fine = setjmp(png_jmpbuf(png)) == 0;
    if (fine) {
        png_set_read_fn(png, &file, Read);
        png_set_expand(png);
        png_set_strip_16(png);
        png_set_gray_to_rgb(png);
        png_set_add_alpha(png, 255, PNG_FILLER_AFTER);
        png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    }
    if (fine)
        for (size_t y = 0; y < rows.size(); y++)
            std::copy_n(png_get_rows(png, info)[y], stride, rows[y]);
    png_destroy_read_struct(&png, &info, nullptr);
    return fine;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr uint8_t kinds[15][3] = {{0, 1, 1}, {0, 2, 1},  {0, 4, 1},  {0, 8, 1}, {0, 16, 1},
                                      {2, 8, 3}, {2, 16, 3}, {3, 1, 1},  {3, 2, 1}, {3, 4, 1},
                                      {3, 8, 1}, {4, 8, 2},  {4, 16, 2}, {6, 8, 4}, {6, 16, 4}};
    input = {data, size};
    position = 0;
    const auto &[type, depth, samples] = kinds[Next() % 15];
    const uint32_t width = 1u + Next() % 70, height = 1u + Next() % 20;
    const bool interlaced = Next() % 2, transparent = Next() % 2;
    std::vector<uint8_t> file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}, header;
    PutBig(header, width);
    PutBig(header, height);
    header.insert(header.end(), {depth, type, 0, 0, interlaced});
    PutChunk(file, "IHDR", header);
    // Whole palettes: libpng has its own way with indexes beyond a short one.
    if (type == 3)
        PutChunk(file, "PLTE", Bytes(size_t{3} << depth));
    if (transparent && type == 3)
        PutChunk(file, "tRNS", Bytes(1 + Next() % (1u << depth)));
    if (transparent && type == 0)
        PutChunk(file, "tRNS",
                 {0, static_cast<uint8_t>(Next() & ((1u << std::min(+depth, 8)) - 1))});
    if (transparent && type == 2)
        PutChunk(file, "tRNS", Bytes(6, true));
    PutChunk(file, "IDAT", Rows(width, height, uint32_t{depth} * samples, interlaced));
    PutChunk(file, "IEND", {});

    std::vector<uint8_t> theirs(size_t{4} * width * height);
    if (Decode(file, theirs, width * size_t{4}))
        PEER_PICTURE(file.data(), file.size()).Compare(width, height, theirs.data());
    return 0;
}
