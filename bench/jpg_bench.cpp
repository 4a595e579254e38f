// JPEG beside libjpeg-turbo and stb_image: every *.jpg of the folder that the environment variable
// BENCH_FILES names, from the file to RGBA8 in memory, single thread.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>
#include <jpeglib.h>
#include <stb/stb_image.h>

#include "extra/bytes.h"
#include "picture/picture.h"

static void Ours(benchmark::State &state, const std::string &path)
{
    for (auto _ : state) {
        const Picture picture = Picture_Load(path.c_str(), 0, 0);
        if (!picture.Pixels)
            return state.SkipWithError("not read");
        Picture_UnLoad(picture);
    }
}

static void Turbo(benchmark::State &state, const std::string &path)
{
    for (auto _ : state) {
        const BYTES_BUFFER file = Bytes_LoadFile(path.c_str());
        jpeg_decompress_struct info;
        jpeg_error_mgr errors;
        info.err = jpeg_std_error(&errors);
        jpeg_create_decompress(&info);
        jpeg_mem_src(&info, file.data(), file.size());
        jpeg_read_header(&info, TRUE);
        info.out_color_space = JCS_EXT_RGBA;
        jpeg_start_decompress(&info);
        const size_t stride = size_t{info.output_width} * 4;
        auto *pixels = static_cast<uint8_t *>(std::malloc(stride * info.output_height));
        while (info.output_scanline < info.output_height) {
            uint8_t *row = pixels + info.output_scanline * stride;
            jpeg_read_scanlines(&info, &row, 1);
        }
        jpeg_finish_decompress(&info);
        jpeg_destroy_decompress(&info);
        benchmark::DoNotOptimize(pixels);
        std::free(pixels);
    }
}

static void STB(benchmark::State &state, const std::string &path)
{
    for (auto _ : state) {
        const BYTES_BUFFER file = Bytes_LoadFile(path.c_str());
        int width, height, channels;
        uint8_t *pixels = stbi_load_from_memory(file.data(), static_cast<int>(file.size()), &width,
                                                &height, &channels, 4);
        if (!pixels)
            return state.SkipWithError("not read");
        benchmark::DoNotOptimize(pixels);
        stbi_image_free(pixels);
    }
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const char *folder = std::getenv("BENCH_FILES");
    for (const auto &entry : std::filesystem::directory_iterator(folder ? folder : ".")) {
        if (entry.path().extension() != ".jpg")
            continue;
        const std::string path = entry.path().string(), name = entry.path().filename().string();
        using RUN = void (*)(benchmark::State &, const std::string &);
        const std::pair<const char *, RUN> decoders[] = {
            {"ours", Ours}, {"turbo", Turbo}, {"stb", STB}};
        for (const auto &[who, run] : decoders)
            benchmark::RegisterBenchmark((name + "/" + who).c_str(), run, path)
                ->Unit(benchmark::kMillisecond)
                ->MinTime(0.3);
    }
    benchmark::RunSpecifiedBenchmarks();
}
