// PCX, TGA, PNM and XBM beside libavcodec and, where it knows the format, stb_image: every file of
// these in the folder that the environment variable BENCH_FILES names, from the file (in the page
// cache) to RGBA8 in memory, single thread.
#include <algorithm>
#include <filesystem>

#include <benchmark/benchmark.h>
#include <stb/stb_image.h>

#include "bench/av_decoder.h"
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

static AVCodecID CodecOf(const std::string &path)
{
    switch (Picture_Check(path.c_str(), 0)) {
    case PICTURE_PCX:
        return AV_CODEC_ID_PCX;
    case PICTURE_TGA:
        return AV_CODEC_ID_TARGA;
    case PICTURE_XBM:
        return AV_CODEC_ID_XBM;
    case PICTURE_PNM:
        return path.ends_with(".pbm")   ? AV_CODEC_ID_PBM
               : path.ends_with(".pgm") ? AV_CODEC_ID_PGM
                                        : AV_CODEC_ID_PPM;
    default:
        return AV_CODEC_ID_NONE;
    }
}

static void Libavcodec(benchmark::State &state, const std::string &path)
{
    AV_DECODER decoder;
    if (!OpenDecoder(decoder, CodecOf(path), nullptr))
        return state.SkipWithError("not opened");
    for (auto _ : state) {
        ReadPicture(decoder, path.c_str());
        if (DecodeAll(decoder) != 1)
            return state.SkipWithError("not read");
    }
}

static void Stb(benchmark::State &state, const std::string &path)
{
    for (auto _ : state) {
        const BYTES_BUFFER file = Bytes_LoadFile(path.c_str());
        int width, height, channels;
        stbi_uc *pixels = stbi_load_from_memory(file.data(), static_cast<int>(file.size()), &width,
                                                &height, &channels, 4);
        if (!pixels)
            return state.SkipWithError("not read");
        stbi_image_free(pixels);
    }
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const char *folder = std::getenv("BENCH_FILES");
    if (!folder) {
        std::fputs("BENCH_FILES names no folder of files\n", stderr);
        return 1;
    }
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    av_log_set_level(AV_LOG_QUIET);
    for (const std::string &file : files) {
        const std::string name = std::filesystem::path(file).filename().string();
        const std::string end = std::filesystem::path(file).extension().string();
        const auto add = [&](const char *decoder, auto *run) {
            benchmark::RegisterBenchmark((name + "/" + decoder).c_str(), run, file)
                ->Unit(benchmark::kMicrosecond);
        };
        const std::array<const char *, 6> known = {".pcx", ".tga", ".xbm", ".pbm", ".pgm", ".ppm"};
        if (std::none_of(known.begin(), known.end(), [&](const char *k) { return end == k; }))
            continue;
        add("ours", Ours);
        add("libavcodec", Libavcodec);
        if (end == ".tga" || name.ends_with("p5.pgm") || name.ends_with("p6.ppm"))
            add("stb", Stb);
    }
    benchmark::RunSpecifiedBenchmarks();
}
