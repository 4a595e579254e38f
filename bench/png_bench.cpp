// Decodes PNG files to RGBA beside libpng and stb_image: those in the folder named by BENCH_FILES,
// or a photo and a screenshot made here in every colour type and depth. Ours reads its file from
// disk, the others from memory. Results must agree before anything is timed. Inflating the pixels'
// bytes with libdeflate, without unfiltering them, shows what a decoder can reach at best.
#include <array>
#include <cmath>
#include <csetjmp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <png.h>

#include "extra/bytes.h"
#include "picture/png.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wpedantic"
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

struct INPUT {
    std::string Path;
    BYTES_BUFFER File;
};

struct FREE {
    void operator()(uint8_t *pixels) const
    {
        std::free(pixels);
    }
};
using PIXELS = std::unique_ptr<uint8_t, FREE>;

static PIXELS DecodeOurs(const INPUT &input)
{
    PNG_Load(input.Path.c_str());
    PIXELS pixels(PNG_Decoding());
    PNG_UnLoad();
    return pixels;
}

static PIXELS DecodeLibpng(const INPUT &input)
{
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return nullptr;
    }
    const uint8_t *next = input.File.data();  // these files are complete
    png_set_read_fn(png, &next, [](png_structp from, png_bytep to, size_t size) {
        auto &at = *static_cast<const uint8_t **>(png_get_io_ptr(from));
        std::memcpy(to, at, size);
        at += size;
    });
    png_read_info(png, info);
    const int type = png_get_color_type(png, info);
    png_set_strip_16(png);
    png_set_palette_to_rgb(png);
    if (type == PNG_COLOR_TYPE_GRAY)
        png_set_expand_gray_1_2_4_to_8(png);
    if (type == PNG_COLOR_TYPE_PALETTE && png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_tRNS_to_alpha(png);
    if (!(type & PNG_COLOR_MASK_COLOR))
        png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 255, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const size_t stride = png_get_rowbytes(png, info), height = png_get_image_height(png, info);
    auto *pixels = static_cast<uint8_t *>(std::malloc(stride * height));
    std::vector<png_bytep> rows(height);
    for (size_t y = 0; y < height; y++)
        rows[y] = pixels + y * stride;
    png_read_image(png, rows.data());
    png_destroy_read_struct(&png, &info, nullptr);
    return PIXELS(pixels);
}

static PIXELS DecodeStb(const INPUT &input)
{
    int width, height, samples;
    return PIXELS(stbi_load_from_memory(input.File.data(), static_cast<int>(input.File.size()),
                                        &width, &height, &samples, 4));
}

using DECODER = PIXELS (*)(const INPUT &input);

static void Decode(benchmark::State &state, const INPUT &input, DECODER decode)
{
    const PIXELS ours = DecodeOurs(input), theirs = decode(input);
    const size_t size = size_t{PNG_Header.Width} * PNG_Header.Height * 4;
    if (!ours || !theirs || std::memcmp(ours.get(), theirs.get(), size) != 0) {
        state.SkipWithError("pixels differ");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(decode(input).get());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

// The data of all IDAT chunks of a complete file.
static std::vector<uint8_t> StreamOf(const BYTES_BUFFER &file)
{
    std::vector<uint8_t> stream;
    for (size_t at = 8; at + 12 <= file.size();) {
        const size_t size = size_t{file[at]} << 24 | size_t{file[at + 1]} << 16 |
                            size_t{file[at + 2]} << 8 | file[at + 3];
        if (std::memcmp(file.data() + at + 4, "IDAT", 4) == 0)
            stream.insert(stream.end(), file.data() + at + 8, file.data() + at + 8 + size);
        at += 12 + size;
    }
    return stream;
}

static void InflateAlone(benchmark::State &state, const INPUT &input)
{
    const PIXELS pixels = DecodeOurs(input);
    const size_t size = size_t{PNG_Header.Width} * PNG_Header.Height * 4;
    const std::vector<uint8_t> stream = StreamOf(input.File);
    std::vector<uint8_t> out(2 * size + 65536);  // 16 bits a sample, filter bytes
    const std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor *)> inflater(
        libdeflate_alloc_decompressor(), libdeflate_free_decompressor);
    for (auto _ : state) {
        size_t length;
        if (libdeflate_zlib_decompress(inflater.get(), stream.data(), stream.size(), out.data(),
                                       out.size(), &length) != LIBDEFLATE_SUCCESS)
            return state.SkipWithError("not inflated");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

// The pictures made here: samples of 0..255 by place and channel.
constexpr uint32_t Width = 1600, Height = 1200;

static uint32_t Hash(uint32_t x, uint32_t y)
{
    uint32_t h = x * 0x9E3779B1u ^ y * 0x85EBCA77u;
    h = (h ^ h >> 15) * 0x2C1B3C6Du;
    return h ^ h >> 13;
}

// Smooth shades with sensor noise.
static uint8_t Photo(uint32_t x, uint32_t y, uint32_t channel)
{
    const double u = x / 97.0, v = y / 71.0;
    const double shade = 128 + 50 * std::sin(u + channel * 0.3) + 40 * std::sin(v + u / 3) +
                         20 * std::sin(u * v / 5);
    const uint32_t noise = Hash(x, y * 4 + channel);
    return static_cast<uint8_t>(shade + (noise & 3) + (noise >> 8 & 3) - 3);
}

// Windows with a shaded title bar and lines of text.
static uint8_t Screen(uint32_t x, uint32_t y, uint32_t channel)
{
    const uint32_t window = Hash(x / 400, y / 300), left = x % 400, top = y % 300;
    if (left < 8 || top < 8)
        return static_cast<uint8_t>(90 + 30 * channel);
    if (top < 32)
        return static_cast<uint8_t>(80 + left / 4 + 20 * channel);
    const uint32_t letter = Hash(left / 8 % 23, window ^ top / 16),
                   bit = left % 8 + top % 16 / 2 * 3;
    const bool text = left % 8 < 6 && top % 16 < 11 && letter % 5 != 0 && (letter >> bit & 1);
    return static_cast<uint8_t>(text ? 30 + 10 * channel : 250 - window % 20);
}

// The picture as a file of a colour type and depth; palettes and greys use the green channel.
static INPUT Make(const std::string &name, uint8_t (*sample)(uint32_t, uint32_t, uint32_t),
                  int type, int depth, int interlace)
{
    const std::filesystem::path path = std::filesystem::temp_directory_path() / (name + ".png");
    FILE *file = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, Width, Height, depth, type, interlace, 0, 0);
    std::array<png_color, 256> palette;
    for (size_t i = 0; i < palette.size(); i++)
        palette[i] = {static_cast<uint8_t>(i), static_cast<uint8_t>(i / 2), 99};
    if (type == PNG_COLOR_TYPE_PALETTE)
        png_set_PLTE(png, info, palette.data(), 1 << depth);
    png_write_info(png, info);
    png_set_packing(png);
    const uint32_t samples = png_get_channels(png, info);
    std::vector<std::vector<uint8_t>> lines(Height);
    std::vector<png_bytep> rows;
    for (uint32_t y = 0; y < Height; y++) {
        for (uint32_t x = 0; x < Width; x++)
            for (uint32_t c = 0; c < samples; c++) {
                const uint8_t value = sample(x, y, samples < 3 ? 1 : c);
                lines[y].push_back(static_cast<uint8_t>(depth < 8 ? value >> (8 - depth) : value));
                if (depth == 16)
                    lines[y].push_back(static_cast<uint8_t>(Hash(x, y)));
            }
        rows.push_back(lines[y].data());
    }
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
    return {path, Bytes_LoadFile(path.c_str())};
}

static std::vector<INPUT> MakeAll()
{
    const struct {
        const char *name;
        int type, depth, interlace;
    } variants[] = {
        {"grey1", 0, 1, 0},      {"grey2", 0, 2, 0},        {"grey4", 0, 4, 0},
        {"grey8", 0, 8, 0},      {"grey16", 0, 16, 0},      {"palette1", 3, 1, 0},
        {"palette2", 3, 2, 0},   {"palette4", 3, 4, 0},     {"palette8", 3, 8, 0},
        {"greyalpha8", 4, 8, 0}, {"greyalpha16", 4, 16, 0}, {"rgb8", 2, 8, 0},
        {"rgb16", 2, 16, 0},     {"rgba8", 6, 8, 0},        {"rgba16", 6, 16, 0},
        {"rgb8adam7", 2, 8, 1},  {"rgba8adam7", 6, 8, 1},   {"palette8adam7", 3, 8, 1},
    };
    std::vector<INPUT> inputs;
    for (const auto &v : variants) {
        inputs.push_back(Make(std::string("photo_") + v.name, Photo, v.type, v.depth, v.interlace));
        inputs.push_back(
            Make(std::string("screen_") + v.name, Screen, v.type, v.depth, v.interlace));
    }
    return inputs;
}

static std::vector<INPUT> ReadAll(const char *folder)
{
    std::vector<INPUT> inputs;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".png")
            inputs.push_back({entry.path(), Bytes_LoadFile(entry.path().c_str())});
    return inputs;
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const char *folder = std::getenv("BENCH_FILES");
    const std::vector<INPUT> inputs = folder ? ReadAll(folder) : MakeAll();
    const auto add = [](const INPUT &input, const char *decoder, auto run, auto... more) {
        const std::string file = std::filesystem::path(input.Path).filename().string();
        benchmark::RegisterBenchmark((file + "/" + decoder).c_str(), run, input, more...)
            ->Unit(benchmark::kMillisecond);
    };
    for (const INPUT &input : inputs) {
        for (const auto &[name, decode] : {std::pair<const char *, DECODER>{"ours", DecodeOurs},
                                           {"libpng", DecodeLibpng},
                                           {"stb_image", DecodeStb}})
            add(input, name, Decode, decode);
        add(input, "inflating alone", InflateAlone);
    }
    benchmark::RunSpecifiedBenchmarks();
}
