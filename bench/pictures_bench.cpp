// Picture decoders beside commonly linked ones: every file of the formats below in the folder named
// by the environment variable BENCH_FILES (make_files.sh fills one).
// All frames to RGBA8 in memory, read from the file (in the page cache) unless stated otherwise,
// single thread.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <gif_lib.h>
#include <jpeglib.h>
#include <stb/stb_image.h>
#include <tiffio.h>

#include "bench/av_decoder.h"
#include "extra/bytes.h"
#include "picture/gif.h"
#include "picture/picture.h"

static void Ours(benchmark::State &state, const std::string &path)
{
    size_t frames = 0;
    for (auto _ : state) {
        const Picture picture = Picture_Load(path.c_str(), 0, 0);
        if (!picture.Pixels)
            return state.SkipWithError("not read");
        frames = 1;
        if (GIF_Frames.size() > 1) {
            GIF_CANVAS canvas = GIF_CanvasOf(picture.Pixels);
            while (GIF_Compose(GIF_PictureOf(picture.Pixels), frames, canvas))
                frames++;
        }
        Picture_UnLoad(picture);
    }
    state.counters["frames"] = static_cast<double>(frames);
}

// A file without a codec has a demuxer, which reads it in advance; others are one packet, read each
// time.
template <AVCodecID Codec = AV_CODEC_ID_NONE>
static void Libavcodec(benchmark::State &state, const std::string &path)
{
    constexpr bool Demuxed = Codec == AV_CODEC_ID_NONE;
    AV_DECODER decoder;
    if (Demuxed ? !OpenContainer(decoder, path.c_str()) : !OpenDecoder(decoder, Codec, nullptr))
        return state.SkipWithError("not opened");
    size_t frames = 0;
    for (auto _ : state) {
        if (!Demuxed)
            ReadPicture(decoder, path.c_str());
        frames = DecodeAll(decoder);
        if (frames == 0)
            return state.SkipWithError("not read");
    }
    state.counters["frames"] = static_cast<double>(frames);
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

// The file is in memory in advance.
static void StbGif(benchmark::State &state, const std::string &path)
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

// Each frame at its place on its own screen, as ours are.
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

struct PEER {
    const char *Name;
    void (*Run)(benchmark::State &, const std::string &path);
};

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const char *folder = std::getenv("BENCH_FILES");
    if (!folder) {
        std::fputs("BENCH_FILES names no folder of files\n", stderr);
        return 1;
    }
    // By extension. stb_image rejects text PNM and run-length BMP.
    const std::map<std::string, std::vector<PEER>> peers = {
        {".bmp", {{"libavcodec", Libavcodec<AV_CODEC_ID_BMP>}, {"stb_image", Stb}}},
        {".gif", {{"giflib", Giflib}, {"libavcodec", Libavcodec<>}, {"stb_image", StbGif}}},
        {".iff", {{"libavcodec", Libavcodec<>}}},
        {".jpg", {{"libjpeg-turbo", Turbo}, {"stb_image", Stb}}},
        {".pbm", {{"libavcodec", Libavcodec<AV_CODEC_ID_PBM>}}},
        {".pcx", {{"libavcodec", Libavcodec<AV_CODEC_ID_PCX>}}},
        {".pgm", {{"libavcodec", Libavcodec<AV_CODEC_ID_PGM>}, {"stb_image", Stb}}},
        {".ppm", {{"libavcodec", Libavcodec<AV_CODEC_ID_PPM>}, {"stb_image", Stb}}},
        {".tga", {{"libavcodec", Libavcodec<AV_CODEC_ID_TARGA>}, {"stb_image", Stb}}},
        {".tif", {{"libavcodec", Libavcodec<AV_CODEC_ID_TIFF>}, {"libtiff", Libtiff}}},
        {".xbm", {{"libavcodec", Libavcodec<AV_CODEC_ID_XBM>}}},
    };
    std::vector<std::filesystem::path> files(std::filesystem::directory_iterator(folder), {});
    std::sort(files.begin(), files.end());
    av_log_set_level(AV_LOG_QUIET);
    Picture_Rules = PICTURE_RULES_FORMAT;  // as the peers read them
    for (const auto &file : files) {
        const auto add = [&](const PEER &peer) {
            benchmark::RegisterBenchmark((file.filename().string() + "/" + peer.Name).c_str(),
                                         peer.Run, file.string())
                ->Unit(benchmark::kMicrosecond);
        };
        if (const auto known = peers.find(file.extension().string()); known != peers.end()) {
            add({"ours", Ours});
            std::for_each(known->second.begin(), known->second.end(), add);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
}
