// GIF beside giflib, libavcodec and stb_image: every *.gif of the folder that the environment
// variable BENCH_FILES names, all frames to RGBA8 in memory, single thread.
#include <algorithm>
#include <cstring>
#include <filesystem>

#include <benchmark/benchmark.h>
#include <gif_lib.h>
#include <stb/stb_image.h>

#include "bench/av_decoder.h"
#include "extra/bytes.h"
#include "picture/gif.h"
#include "picture/picture.h"

static void Ours(benchmark::State &state, const std::string &path)
{
    size_t frames = 0;
    for (auto _ : state) {
        const Picture picture = Picture_Load(path.c_str(), 0, 0);
        frames = GIF_Frames.size();
        Picture_UnLoad(picture);
    }
    state.counters["frames"] = static_cast<double>(frames);
}

// Frames in their place on a screen of their own each, as ours are.
static void Giflib(benchmark::State &state, const std::string &path)
{
    for (auto _ : state) {
        GifFileType *gif = DGifOpenFileName(path.c_str(), nullptr);
        if (!gif || DGifSlurp(gif) != GIF_OK)
            return state.SkipWithError("not read");
        const auto width = static_cast<size_t>(gif->SWidth);
        const size_t pixels = width * static_cast<size_t>(gif->SHeight);
        for (int n = 0; n < gif->ImageCount; n++) {
            const SavedImage &image = gif->SavedImages[n];
            const GifImageDesc &place = image.ImageDesc;
            const ColorMapObject *map = place.ColorMap ? place.ColorMap : gif->SColorMap;
            auto *screen = static_cast<uint8_t *>(std::calloc(pixels, 4));
            const GifByteType *index = image.RasterBits;
            for (int y = 0; y < place.Height; y++)
                for (int x = 0; x < place.Width; x++) {
                    const GifColorType &c = map->Colors[*index++];
                    const std::array<uint8_t, 4> rgba = {c.Red, c.Green, c.Blue, 255};
                    const size_t at = static_cast<size_t>(place.Top + y) * width +
                                      static_cast<size_t>(place.Left + x);
                    std::memcpy(screen + at * 4, rgba.data(), 4);
                }
            benchmark::DoNotOptimize(screen);
            std::free(screen);
        }
        DGifCloseFile(gif, nullptr);
    }
}

static void Libavcodec(benchmark::State &state, const std::string &path)
{
    AV_DECODER decoder;
    if (!OpenContainer(decoder, path.c_str()))
        return state.SkipWithError("not opened");
    size_t frames = 0;
    for (auto _ : state)
        frames = DecodeAll(decoder);
    state.counters["frames"] = static_cast<double>(frames);
}

static void Stb(benchmark::State &state, const std::string &path)
{
    const BYTES_BUFFER file = Bytes_LoadFile(path.c_str());
    for (auto _ : state) {
        int *delays = nullptr, width, height, frames, channels;
        stbi_uc *pixels =
            stbi_load_gif_from_memory(file.data(), static_cast<int>(file.size()), &delays, &width,
                                      &height, &frames, &channels, 4);
        if (!pixels)
            return state.SkipWithError("not read");
        stbi_image_free(pixels);
        stbi_image_free(delays);
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
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".gif")
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    av_log_set_level(AV_LOG_QUIET);
    const struct {
        const char *name;
        void (*run)(benchmark::State &, const std::string &);
    } decoders[] = {{"ours", Ours}, {"giflib", Giflib}, {"libavcodec", Libavcodec}, {"stb", Stb}};
    for (const auto &file : files)
        for (const auto &decoder : decoders)
            benchmark::RegisterBenchmark((file.stem().string() + "/" + decoder.name).c_str(),
                                         decoder.run, file.string())
                ->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
}
