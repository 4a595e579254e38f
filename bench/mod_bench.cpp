// A minute of a module, 16-bit stereo at 44100 Hz: linear interpolation beside libxmp and
// libmikmod, band-limited beside libopenmpt's default; and one of the engine's refills. The module
// is the file named by the environment variable MOD, or a busy one of four voices.
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <libopenmpt/libopenmpt.hpp>
#include <mikmod.h>
#include <xmp.h>

#include "audio/mod.h"
#include "tests/mod_writer.h"

constexpr uint32_t Rate = 44100, Minute = Rate * 60 * 4, Refill = 65536;

static std::string WriteSong()
{
    MOD_TEXT song;
    std::vector<int8_t> wave(8192);
    for (size_t i = 0; i < wave.size(); i++)
        wave[i] = static_cast<int8_t>(100 * std::sin(static_cast<double>(i * i % 99991) / 700));
    song.Samples = {{wave, 4096, 4096}, {wave, 1024, 128}, {wave}};
    std::string pattern;
    const char *notes[] = {"C-2", "G-2", "E-3", "A-1", "D-2", "F-1"};
    const char *commands[] = {"000", "037", "A02", "484", "102", "EC4", "E93"};
    for (size_t row = 0; row < 64; row++) {
        for (size_t channel = 0; channel < 4; channel++)
            pattern += row % 2 == channel % 2
                           ? std::string(notes[(row + channel) % 6]) + " 0" +
                                 std::to_string(row % 3 + 1) + " " + commands[row % 7] + "|"
                           : std::string("") + commands[(row + channel) % 7] + "|";
        pattern += '\n';
    }
    song.Patterns = {pattern};
    song.Orders.assign(9, 0);  // 69 s
    const std::vector<uint8_t> file = WriteModule(song);
    const std::string path =
        (std::filesystem::temp_directory_path() / "tessaruvinel_bench.mod").string();
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(file.data()),
               static_cast<std::streamsize>(file.size()));
    return path;
}

static const char *Path()
{
    static const char *named = std::getenv("MOD");
    static const std::string path = named ? named : WriteSong();
    return path.c_str();
}

static void Ours(benchmark::State &state, uint8_t interpolation, uint32_t bytes)
{
    MOD_Interpolation = interpolation;
    MOD_SetSoundNumber(0);
    MOD_Load(Path());
    MOD_HEADER *header = MOD_GetHeader(0);
    std::vector<uint8_t> buffer(Refill);
    for (auto _ : state) {
        for (uint32_t left = bytes; header && left != 0;) {
            uint32_t length = std::min(left, Refill);
            MOD_Decoding(buffer.data(), &length, 0);
            if (length == 0)
                header->SongPosition = header->Row = 0;
            left -= length;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    if (!header)
        state.SkipWithError("no module");
    MOD_Destroy();
}
BENCHMARK_CAPTURE(Ours, nearest, MOD_NEAREST, Minute)
    ->Name("MOD, nearest/ours")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, linear, MOD_LINEAR, Minute)
    ->Name("MOD, linear/ours")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, cubic, MOD_CUBIC, Minute)
    ->Name("MOD, cubic/ours")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, sinc, MOD_SINC, Minute)
    ->Name("MOD, band-limited/ours")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, refill, MOD_SINC, Refill)
    ->Name("MOD, one refill/ours")
    ->Unit(benchmark::kMillisecond);

static void OpenMpt(benchmark::State &state)
{
    std::ifstream file(Path(), std::ios::binary);
    openmpt::module module(file);
    module.set_repeat_count(-1);
    std::vector<int16_t> buffer(Refill / 2);
    for (auto _ : state) {
        for (uint32_t left = Minute; left != 0;) {
            const uint32_t length = std::min(left, Refill);
            module.read_interleaved_stereo(Rate, length / 4, buffer.data());
            left -= length;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
}
BENCHMARK(OpenMpt)->Name("MOD, band-limited/libopenmpt")->Unit(benchmark::kMillisecond);

static void Xmp(benchmark::State &state)
{
    xmp_context context = xmp_create_context();
    if (xmp_load_module(context, Path()) != 0 || xmp_start_player(context, Rate, 0) != 0) {
        state.SkipWithError("libxmp does not play it");
        return;
    }
    xmp_set_player(context, XMP_PLAYER_INTERP, XMP_INTERP_LINEAR);
    xmp_set_player(context, XMP_PLAYER_DSP, 0);
    std::vector<uint8_t> buffer(Refill);
    for (auto _ : state) {
        for (uint32_t left = Minute; left != 0;) {
            const uint32_t length = std::min(left, Refill);
            xmp_play_buffer(context, buffer.data(), static_cast<int>(length), 0);
            left -= length;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    xmp_end_player(context);
    xmp_release_module(context);
    xmp_free_context(context);
}
BENCHMARK(Xmp)->Name("MOD, linear/libxmp")->Unit(benchmark::kMillisecond);

static std::vector<uint8_t> MikMod_Buffer(Refill);

// A driver that renders to memory.
static MDRIVER MikMod_Memory = [] {
    MDRIVER d = {};
    d.Name = d.Version = d.Alias = "memory";
    d.SoftVoiceLimit = 255;
    d.IsPresent = [] { return BOOL{1}; };
    d.SampleLoad = VC_SampleLoad;
    d.SampleUnload = VC_SampleUnload;
    d.FreeSampleSpace = VC_SampleSpace;
    d.RealSampleLength = VC_SampleLength;
    d.Init = VC_Init;
    d.Exit = VC_Exit;
    d.Reset = [] { return 0; };
    d.SetNumVoices = VC_SetNumVoices;
    d.PlayStart = VC_PlayStart;
    d.PlayStop = VC_PlayStop;
    d.Update = [] { VC_WriteBytes(reinterpret_cast<SBYTE *>(MikMod_Buffer.data()), Refill); };
    d.VoiceSetVolume = VC_VoiceSetVolume;
    d.VoiceGetVolume = VC_VoiceGetVolume;
    d.VoiceSetFrequency = VC_VoiceSetFrequency;
    d.VoiceGetFrequency = VC_VoiceGetFrequency;
    d.VoiceSetPanning = VC_VoiceSetPanning;
    d.VoiceGetPanning = VC_VoiceGetPanning;
    d.VoicePlay = VC_VoicePlay;
    d.VoiceStop = VC_VoiceStop;
    d.VoiceStopped = VC_VoiceStopped;
    d.VoiceGetPosition = VC_VoiceGetPosition;
    d.VoiceRealVolume = VC_VoiceRealVolume;
    return d;
}();

static void MikMod(benchmark::State &state)
{
    md_mixfreq = Rate;
    md_reverb = 0;
    md_mode = DMODE_16BITS | DMODE_STEREO | DMODE_SOFT_MUSIC | DMODE_INTERP;
    MikMod_RegisterDriver(&MikMod_Memory);
    MikMod_RegisterLoader(&load_mod);
    MODULE *module = MikMod_Init("") == 0 ? Player_Load(Path(), 64, 0) : nullptr;
    if (!module) {
        state.SkipWithError("libmikmod does not play it");
        return;
    }
    module->wrap = 1;
    Player_Start(module);
    for (auto _ : state) {
        for (uint32_t bytes = 0; bytes < Minute; bytes += Refill)
            MikMod_Update();
        benchmark::DoNotOptimize(MikMod_Buffer.data());
    }
    Player_Stop();
    Player_Free(module);
    MikMod_Exit();
}
BENCHMARK(MikMod)->Name("MOD, linear/libmikmod")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
