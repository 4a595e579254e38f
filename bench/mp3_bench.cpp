// Decodes an MP3 file as the engine does, 65536 bytes per refill, beside libmpg123's portable
// decoder and the one that it chooses for this processor. The file is the game's music, or the one
// named by the environment variable MP3; where FORMAT is set, by the format's rules, which MPEG-2
// needs.
#include <array>
#include <cstdio>
#include <cstdlib>

#include <benchmark/benchmark.h>
#include <mpg123.h>

#include "audio/mp3.h"

static const char *Path()
{
    const char *path = std::getenv("MP3");
    return path ? path : GAME_DATA "ShadowOfTheBeast.mp3";
}

static std::array<uint8_t, 65536> Buffer;

// Bytes of the refill at `position`, which advances.
static uint32_t Refill(long &position)
{
    uint32_t length = 0;
    if (FILE *file = std::fopen(Path(), "rb")) {
        std::fseek(file, position, SEEK_SET);
        length = Buffer.size();
        MP3_Decoding(file, Buffer.data(), &length, 0);
        position = std::ftell(file);
        std::fclose(file);
    }
    return length;
}

static void LoadFile()
{
    Audio_Rules = std::getenv("FORMAT") ? AUDIO_RULES_FORMAT : AUDIO_RULES_FRAMEWORK;
    MP3_SetSoundNumber(0);
    MP3_Load(Path());
}

static void WholeFile(benchmark::State &state)
{
    LoadFile();
    int64_t bytes = 0;
    for (auto _ : state) {
        MP3_StartOver(*MP3_GetHeader(0));
        long position = static_cast<long>(MP3_GetHeader(0)->DataStart);
        while (const uint32_t length = Refill(position))
            bytes += length;
    }
    state.SetItemsProcessed(bytes / 2);
}
BENCHMARK(WholeFile)->Name("MP3/ours")->Unit(benchmark::kMillisecond);

static void OneRefill(benchmark::State &state)
{
    LoadFile();
    long position = 0;
    for (auto _ : state)
        if (Refill(position) == 0)
            position = 0;
}
BENCHMARK(OneRefill)->Name("MP3, one refill/ours")->Unit(benchmark::kMicrosecond);

static void Peer(benchmark::State &state, const char *decoder)
{
    int64_t bytes = 0;
    for (auto _ : state) {
        mpg123_handle *handle = mpg123_new(decoder, nullptr);
        mpg123_param(handle, MPG123_REMOVE_FLAGS, MPG123_GAPLESS, 0);
        mpg123_param(handle, MPG123_ADD_FLAGS, MPG123_QUIET, 0);
        long rate;
        int channels, encoding;
        if (mpg123_open(handle, Path()) != MPG123_OK ||
            mpg123_getformat(handle, &rate, &channels, &encoding) != MPG123_OK)
            state.SkipWithError("the peer cannot open the file");
        size_t length;
        while (mpg123_read(handle, Buffer.data(), Buffer.size(), &length) == MPG123_OK)
            bytes += static_cast<int64_t>(length);
        mpg123_delete(handle);
    }
    state.SetItemsProcessed(bytes / 2);
}
BENCHMARK_CAPTURE(Peer, generic, "generic")
    ->Name("MP3/mpg123, portable")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Peer, best, nullptr)->Name("MP3/mpg123")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
