// BMP, ILBM and TIFF beside libavcodec and, for their formats, stb_image and libtiff: every file of
// these in the folder that the environment variable BENCH_FILES names (make_bitmaps.sh fills one),
// from the file (in the page cache) to RGBA8 in memory, single thread.
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>

#include <benchmark/benchmark.h>
#include <stb/stb_image.h>
#include <tiffio.h>

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

// ILBM has a demuxer, which reads the file beforehand; the others are one packet, read each time.
static void Libavcodec(benchmark::State &state, const std::string &path)
{
    AV_DECODER decoder;
    const bool demuxed = path.ends_with(".iff");
    const AVCodecID id = path.ends_with(".bmp") ? AV_CODEC_ID_BMP : AV_CODEC_ID_TIFF;
    if (demuxed ? !OpenContainer(decoder, path.c_str()) : !OpenDecoder(decoder, id, nullptr))
        return state.SkipWithError("not opened");
    for (auto _ : state) {
        if (!demuxed)
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

static void Libtiff(benchmark::State &state, const std::string &path)
{
    for (auto _ : state) {
        const std::unique_ptr<TIFF, void (*)(TIFF *)> file(TIFFOpen(path.c_str(), "r"), TIFFClose);
        uint32_t width = 0, height = 0;
        TIFFGetField(file.get(), TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(file.get(), TIFFTAG_IMAGELENGTH, &height);
        const auto pixels = std::make_unique_for_overwrite<uint32_t[]>(size_t{width} * height);
        if (!TIFFReadRGBAImageOriented(file.get(), width, height, pixels.get(), ORIENTATION_TOPLEFT,
                                       1))
            return state.SkipWithError("not read");
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
    using RUN = void(benchmark::State &, const std::string &);
    const std::map<std::string, std::map<std::string, RUN *>> decoders = {
        {".bmp", {{"libavcodec", Libavcodec}, {"ours", Ours}, {"stb", Stb}}},
        {".iff", {{"libavcodec", Libavcodec}, {"ours", Ours}}},
        {".tif", {{"libavcodec", Libavcodec}, {"libtiff", Libtiff}, {"ours", Ours}}},
    };
    std::vector<std::filesystem::path> files(std::filesystem::directory_iterator(folder), {});
    std::sort(files.begin(), files.end());
    av_log_set_level(AV_LOG_QUIET);
    for (const auto &file : files)
        if (const auto known = decoders.find(file.extension().string()); known != decoders.end())
            for (const auto &[decoder, run] : known->second)
                benchmark::RegisterBenchmark((file.filename().string() + "/" + decoder).c_str(),
                                             run, file.string())
                    ->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
}
