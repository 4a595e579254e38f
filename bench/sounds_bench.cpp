// The plain sound formats beside libsndfile, and the ADPCM codecs beside libavcodec: a minute of
// sound from a file in the page cache, in refills of 64 KiB. Peers give the same bytes if they can,
// else whatever costs them least: libsndfile signed 8-bit samples as 16, and 24-bit ones as 32;
// libavcodec, whose blocks are in memory, planar channels.
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sndfile.h>
extern "C" {
#include <libavcodec/avcodec.h>
}

#include "audio/aiff.h"
#include "audio/au.h"
#include "audio/iff.h"
#include "audio/voc.h"
#include "audio/wav.h"
#include "extra/bytes.h"

constexpr uint32_t Refill = 65536;  // bytes
constexpr int Rate = 44100;         // Hz
constexpr int Frames = 60 * Rate;

// Shared by all: copying speed depends on where in a page a buffer starts.
alignas(4096) static uint8_t Buffer[Refill];

enum class OUTPUT : uint8_t { Raw, Short, Int };

struct MODULE {
    void (*Load)(const char *path);
    void (*Decoding)(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);
    void (*SetSoundNumber)(uint8_t n);
    uint32_t (*DataStart)();
};
template <auto GetHeader>
uint32_t StartOf()
{
    return GetHeader(0)->DataStart;
}
constexpr MODULE Wav = {WAV_Load, WAV_Decoding, WAV_SetSoundNumber, StartOf<WAV_GetHeader>};
constexpr MODULE Voc = {VOC_Load, VOC_Decoding, VOC_SetSoundNumber, StartOf<VOC_GetHeader>};
constexpr MODULE Au = {AU_Load, AU_Decoding, AU_SetSoundNumber, StartOf<AU_GetHeader>};
constexpr MODULE Iff = {IFF_Load, IFF_Decoding, IFF_SetSoundNumber, StartOf<IFF_GetHeader>};
constexpr MODULE Aiff = {AIFF_Load, AIFF_Decoding, AIFF_SetSoundNumber, StartOf<AIFF_GetHeader>};

struct CASE {
    const char *Name;
    const MODULE *Module;
    int Format, Channels;
    OUTPUT Output;                       // libsndfile's
    AVCodecID Codec = AV_CODEC_ID_NONE;  // libavcodec's
};

constexpr int WAV = SF_FORMAT_WAV, VOC = SF_FORMAT_VOC, AU = SF_FORMAT_AU, SVX = SF_FORMAT_SVX,
              AIFF = SF_FORMAT_AIFF;
// clang-format off
constexpr CASE Cases[] = {
    {"wav_8",          &Wav,  WAV | SF_FORMAT_PCM_U8,    2, OUTPUT::Raw},
    {"wav_16",         &Wav,  WAV | SF_FORMAT_PCM_16,    2, OUTPUT::Short},
    {"wav_24",         &Wav,  WAV | SF_FORMAT_PCM_24,    2, OUTPUT::Raw},
    {"wav_32",         &Wav,  WAV | SF_FORMAT_PCM_32,    2, OUTPUT::Int},
    {"wav_alaw",       &Wav,  WAV | SF_FORMAT_ALAW,      2, OUTPUT::Short},
    {"wav_ulaw",       &Wav,  WAV | SF_FORMAT_ULAW,      2, OUTPUT::Short},
    {"voc_8",          &Voc,  VOC | SF_FORMAT_PCM_U8,    2, OUTPUT::Raw},
    {"voc_16",         &Voc,  VOC | SF_FORMAT_PCM_16,    2, OUTPUT::Short},
    {"au_8",           &Au,   AU | SF_FORMAT_PCM_S8,     2, OUTPUT::Short},
    {"au_16",          &Au,   AU | SF_FORMAT_PCM_16,     2, OUTPUT::Short},
    {"au_24",          &Au,   AU | SF_FORMAT_PCM_24,     2, OUTPUT::Int},
    {"au_32",          &Au,   AU | SF_FORMAT_PCM_32,     2, OUTPUT::Int},
    {"au_ulaw",        &Au,   AU | SF_FORMAT_ULAW,       2, OUTPUT::Short},
    {"8svx_8",         &Iff,  SVX | SF_FORMAT_PCM_S8,    1, OUTPUT::Short},
    {"8svx_16",        &Iff,  SVX | SF_FORMAT_PCM_16,    1, OUTPUT::Short},
    {"aiff_8",         &Aiff, AIFF | SF_FORMAT_PCM_S8,   2, OUTPUT::Short},
    {"aiff_16",        &Aiff, AIFF | SF_FORMAT_PCM_16,   2, OUTPUT::Short},
    {"aiff_24",        &Aiff, AIFF | SF_FORMAT_PCM_24,   2, OUTPUT::Raw},
    {"aiff_32",        &Aiff, AIFF | SF_FORMAT_PCM_32,   2, OUTPUT::Int},
    {"aiff_alaw",      &Aiff, AIFF | SF_FORMAT_ALAW,     2, OUTPUT::Short},
    {"ms_adpcm_mono",  &Wav,  WAV | SF_FORMAT_MS_ADPCM,  1, OUTPUT::Short, AV_CODEC_ID_ADPCM_MS},
    {"ms_adpcm",       &Wav,  WAV | SF_FORMAT_MS_ADPCM,  2, OUTPUT::Short, AV_CODEC_ID_ADPCM_MS},
    {"ima_adpcm_mono", &Wav,  WAV | SF_FORMAT_IMA_ADPCM, 1, OUTPUT::Short, AV_CODEC_ID_ADPCM_IMA_WAV},
    {"ima_adpcm",      &Wav,  WAV | SF_FORMAT_IMA_ADPCM, 2, OUTPUT::Short, AV_CODEC_ID_ADPCM_IMA_WAV},
};
// clang-format on

static std::string PathOf(const CASE &sound)
{
    return (std::filesystem::temp_directory_path() / "tessaruvinel_bench_").string() + sound.Name;
}

// A sweep with a little noise.
static void MakeFile(const CASE &sound)
{
    SF_INFO info = {};
    info.samplerate = Rate;
    info.channels = sound.Channels;
    info.format = sound.Format;
    std::vector<short> samples(static_cast<size_t>(Frames * sound.Channels));
    uint32_t random = 1;
    for (size_t i = 0; i < samples.size(); i++) {
        const double t = static_cast<double>(i) / static_cast<double>(samples.size());
        random = random * 1664525 + 1013904223;
        samples[i] = static_cast<short>(12000 * std::sin(2e5 * t * t) + (random >> 20));
    }
    SNDFILE *file = sf_open(PathOf(sound).c_str(), SFM_WRITE, &info);
    if (!file || sf_writef_short(file, samples.data(), Frames) != Frames)
        std::exit(1);
    sf_close(file);
}

static void Count(benchmark::State &state, const CASE &sound)
{
    state.SetItemsProcessed(state.iterations() * Frames * sound.Channels);
}

static void Own(benchmark::State &state, const CASE &sound)
{
    const std::string path = PathOf(sound);
    const MODULE &module = *sound.Module;
    module.SetSoundNumber(0);
    module.Load(path.c_str());
    uint32_t size = 0;
    const SOUND_STREAM opened = Sound_OpenFile(path.c_str(), &size);
    FILE *file = opened.get();
    std::setvbuf(file, nullptr, _IONBF, 0);  // as the engine opens files
    for (auto _ : state) {
        fseeko(file, module.DataStart(), SEEK_SET);
        for (uint32_t length = 1; length != 0 && ftello(file) < size;) {
            length = Refill;
            module.Decoding(file, Buffer, &length, 0);
            benchmark::DoNotOptimize(Buffer[0]);
        }
    }
    Count(state, sound);
}

static void Sndfile(benchmark::State &state, const CASE &sound)
{
    SF_INFO info = {};
    SNDFILE *file = sf_open(PathOf(sound).c_str(), SFM_READ, &info);
    const int bytes = (sound.Format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_24 ? 3 : 1;
    const sf_count_t frame = bytes * sound.Channels;  // in frames, of raw reads
    const auto read = [&]() -> sf_count_t {
        if (sound.Output == OUTPUT::Raw)
            return sf_read_raw(file, Buffer, Refill / frame * frame);
        if (sound.Output == OUTPUT::Short)
            return sf_read_short(file, reinterpret_cast<short *>(Buffer), Refill / 2);
        return sf_read_int(file, reinterpret_cast<int *>(Buffer), Refill / 4);
    };
    for (auto _ : state) {
        sf_seek(file, 0, SEEK_SET);
        while (read() > 0)
            benchmark::DoNotOptimize(Buffer[0]);
    }
    sf_close(file);
    Count(state, sound);
}

static void Avcodec(benchmark::State &state, const CASE &sound)
{
    WAV_SetSoundNumber(0);
    WAV_Load(PathOf(sound).c_str());
    const WAV_HEADER &record = *WAV_GetHeader(0);
    BYTES_BUFFER file = Bytes_LoadFile(PathOf(sound).c_str());
    file.resize(file.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    AVCodecContext *context = avcodec_alloc_context3(avcodec_find_decoder(sound.Codec));
    av_channel_layout_default(&context->ch_layout, record.Channels);
    context->sample_rate = Rate;
    context->block_align = record.BlockAlign;
    context->bits_per_coded_sample = 4;
    context->thread_count = 1;
    if (avcodec_open2(context, context->codec, nullptr) != 0)
        std::exit(1);
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    int64_t samples = 0;
    for (auto _ : state)
        for (size_t at = record.DataStart; at + record.BlockAlign <= record.DataEnd;
             at += record.BlockAlign) {
            packet->data = &file[at];
            packet->size = record.BlockAlign;
            if (avcodec_send_packet(context, packet) != 0 ||
                avcodec_receive_frame(context, frame) != 0)
                std::exit(1);
            samples += frame->nb_samples;
            benchmark::DoNotOptimize(frame->data[0]);
        }
    if (samples < state.iterations() * Frames)
        std::exit(1);
    av_frame_free(&frame);
    packet->data = nullptr;
    av_packet_free(&packet);
    avcodec_free_context(&context);
    Count(state, sound);
}

int main(int argc, char **argv)
{
    using namespace std::string_literals;
    av_log_set_level(AV_LOG_QUIET);
    benchmark::Initialize(&argc, argv);
    for (const CASE &sound : Cases) {
        MakeFile(sound);
        benchmark::RegisterBenchmark((sound.Name + "/ours"s).c_str(), Own, sound);
        benchmark::RegisterBenchmark((sound.Name + "/libsndfile"s).c_str(), Sndfile, sound);
        if (sound.Codec != AV_CODEC_ID_NONE)
            benchmark::RegisterBenchmark((sound.Name + "/libavcodec"s).c_str(), Avcodec, sound);
    }
    benchmark::RunSpecifiedBenchmarks();
    for (const CASE &sound : Cases)
        std::filesystem::remove(PathOf(sound));
}
