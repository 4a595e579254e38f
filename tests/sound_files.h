// A common interface to the sound modules, refills as the engine requests them, and tracks.
#pragma once

#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <string_view>
#include <utility>

#include "audio/aiff.h"
#include "audio/au.h"
#include "audio/audio.h"
#include "audio/iff.h"
#include "audio/mod.h"
#include "audio/mp3.h"
#include "audio/sound_frames.h"
#include "audio/voc.h"
#include "audio/wav.h"
#include "tests/files.h"

struct FACTS {
    uint32_t Channels, SamplingRate, BitsPerSample, DataStart;
    bool operator==(const FACTS &) const = default;
};

template <auto GetHeader>
FACTS FactsOf(uint8_t n)
{
    const auto *r = GetHeader(n);
    return r ? FACTS{r->Channels, r->SamplingRate, r->BitsPerSample, r->DataStart} : FACTS{};
}

struct MODULE {
    std::string_view Name;
    void (*Load)(const char *path);
    void (*Decoding)(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);
    void (*Destroy)();
    void (*SetSoundNumber)(uint8_t n);
    FACTS (*Facts)(uint8_t n);
    uint8_t (*SoundNumber)();
};

// clang-format off
constexpr MODULE Wav = {"wav", WAV_Load, WAV_Decoding, WAV_Destroy, WAV_SetSoundNumber, FactsOf<WAV_GetHeader>, [] { return WAV_SoundNumber; }};
constexpr MODULE Voc = {"voc", VOC_Load, VOC_Decoding, VOC_Destroy, VOC_SetSoundNumber, FactsOf<VOC_GetHeader>, [] { return VOC_SoundNumber; }};
constexpr MODULE Au = {"au", AU_Load, AU_Decoding, AU_Destroy, AU_SetSoundNumber, FactsOf<AU_GetHeader>, [] { return AU_SoundNumber; }};
constexpr MODULE Iff = {"8svx", IFF_Load, IFF_Decoding, IFF_Destroy, IFF_SetSoundNumber, FactsOf<IFF_GetHeader>, [] { return IFF_SoundNumber; }};
constexpr MODULE Aiff = {"aiff", AIFF_Load, AIFF_Decoding, AIFF_Destroy, AIFF_SetSoundNumber, FactsOf<AIFF_GetHeader>, [] { return AIFF_SoundNumber; }};
constexpr MODULE Mp3 = {"mp3", MP3_Load, MP3_Decoding, MP3_Destroy, MP3_SetSoundNumber, FactsOf<MP3_GetHeader>, [] { return MP3_SoundNumber; }};
constexpr MODULE Mod = {"mod", MOD_Load, [](FILE *, uint8_t *buffer, uint32_t *length, uint8_t n) { MOD_Decoding(buffer, length, n); }, MOD_Destroy, MOD_SetSoundNumber, FactsOf<MOD_GetHeader>, [] { return MOD_SoundNumber; }};
// clang-format on
constexpr const MODULE *Modules[] = {&Wav, &Voc, &Au, &Iff, &Aiff};

inline BYTES Noise(size_t size)
{
    BYTES bytes(size);
    uint32_t random = 1;
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>((random = random * 1664525 + 1013904223) >> 24);
    return bytes;
}

// A WAVE file of 8000 Hz.
inline BYTES WaveFile(uint16_t tag, uint16_t channels, uint16_t bits, const BYTES &data)
{
    const auto size = static_cast<int64_t>(data.size());
    const int frame = channels * bits / 8;
    return Text("RIFF") + Number(size + 36, -4) + Text("WAVEfmt ") + Number(16, -4) +
           Number(tag, -2) + Number(channels, -2) + Number(8000, -4) + Number(8000 * frame, -4) +
           Number(frame, -2) + Number(bits, -2) + Text("data") + Number(size, -4) + data;
}

// A chunk of the IFF kind.
inline BYTES Chunk(const char (&id)[5], const BYTES &contents)
{
    return Text(id) + Number(static_cast<int64_t>(contents.size()), 4) + contents;
}

// Loads into slot 0.
inline FACTS LoadFirst(const MODULE &module, const std::string &path)
{
    module.Destroy();
    module.SetSoundNumber(0);
    module.Load(path.c_str());
    return module.Facts(0);
}

inline FACTS LoadBytes(const MODULE &module, const BYTES &file)
{
    return LoadFirst(module, WriteTemp("sound", file));
}

struct REFILL {
    BYTES Bytes;        // the buffer; 0xEE where nothing was written
    uint32_t Length;    // as reported
    uint64_t Position;  // of the file afterwards
};

// Guarded: bytes past the buffer must not change.
inline REFILL Refill(const MODULE &module, uint64_t position, uint32_t length,
                     const std::string &path = TempPath("sound"))
{
    REFILL refill = {BYTES(length + 8u, 0xEE), length, 0};
    const SOUND_STREAM file(std::fopen(path.c_str(), "rb"));
    fseeko(file.get(), static_cast<off_t>(position), SEEK_SET);
    module.Decoding(file.get(), refill.Bytes.data(), &refill.Length, 0);
    refill.Position = static_cast<uint64_t>(ftello(file.get()));
    EXPECT_EQ(BYTES(refill.Bytes.begin() + length, refill.Bytes.end()), BYTES(8, 0xEE)) << path;
    EXPECT_LE(refill.Length, length) << path;
    refill.Bytes.resize(length);
    return refill;
}

// Samples of -1 to 1, interleaved.
inline std::vector<double> SamplesOf(std::span<const uint8_t> bytes, int bits)
{
    std::vector<double> samples;
    for (size_t at = 0; at < bytes.size();) {
        const uint32_t value = Bytes_GetLittle(bytes, at, bits / 8) << (32 - bits);
        samples.push_back(static_cast<int32_t>(value ^ (bits == 8 ? 1u << 31 : 0)) / 2147483648.0);
    }
    return samples;
}

// Decibels between a tone, of so many frames a period, and everything else in the first of the
// channels.
inline double ToneOverRest(std::span<const double> sound, double period, size_t channels)
{
    const size_t frames = sound.size() / channels;
    double sum = 0, sines = 0, cosines = 0;
    for (size_t i = 0; i < frames; i++) {
        // Hann's window: what is more than two bins away adds nothing
        const double angle = 2 * std::numbers::pi * static_cast<double>(i);
        const double window = 1 - std::cos(angle / static_cast<double>(frames));
        const double value = sound[i * channels] * window;
        sum += value * value;
        sines += value * window * std::sin(angle / period);
        cosines += value * window * std::cos(angle / period);
    }
    const double tone =
        4 * (sines * sines + cosines * cosines) / (3.0 * static_cast<double>(frames));
    return 10 * std::log10(tone / (sum - tone));
}

// Unloads and frees a track, also one without buffers.
inline void UnLoad(AudioTrack *track)
{
    const std::unique_ptr<AudioTrack> left(track->Buffer[0] ? nullptr : track);
    Audio_UnLoad(track);
}

inline void ResetModules()
{
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
}

// While it lives, files are read by the formats' rules.
struct FORMAT_RULES {
    uint8_t Before = std::exchange(Audio_Rules, uint8_t{AUDIO_RULES_FORMAT});
    ~FORMAT_RULES()
    {
        Audio_Rules = Before;
        Sound_MixAbove = 2;
    }
};

// The complete sound by the format's rules, in buffers of so many frames in turn.
inline BYTES DecodeWhole(const MODULE &module, const std::string &path, const FACTS &facts,
                         const std::vector<uint32_t> &frames)
{
    BYTES all;
    uint64_t position = facts.DataStart;
    for (size_t i = 0;; i++) {
        const uint32_t length =
            facts.BitsPerSample / 8 * facts.Channels * frames[i % frames.size()];
        const REFILL refill = Refill(module, position, length, path);
        if (refill.Length == 0)
            return all;
        all = std::move(all) + Prefix(refill.Bytes, refill.Length);
        position = refill.Position;
    }
}

// A file's facts by the format's rules, and its samples; 8-bit ones are unsigned. Starting over, or
// other buffer sizes, must change nothing.
struct FORMAT_ROW {
    const char *What;
    const MODULE &Module;
    BYTES File;
    uint32_t Channels, Rate, Bits;
    std::vector<int> Samples;
    std::string Reason = "";
};
inline void CheckFormat(const FORMAT_ROW &row)
{
    SCOPED_TRACE(row.What);
    const FORMAT_RULES rules;
    const FACTS facts = LoadBytes(row.Module, row.File);
    EXPECT_EQ(Reason_Get(), row.Reason);
    EXPECT_EQ(facts.SamplingRate, row.Rate);
    if (row.Samples.empty()) {
        EXPECT_EQ(Refill(row.Module, facts.DataStart, 1000).Length, 0u);
        return;
    }
    EXPECT_EQ(facts.Channels, row.Channels);
    EXPECT_EQ(facts.BitsPerSample, row.Bits);
    for (const std::vector<uint32_t> &frames : {std::vector{1000u}, {2u}, {2u, 3u}}) {
        const BYTES bytes = DecodeWhole(row.Module, TempPath("sound"), facts, frames);
        std::vector<int> samples;
        size_t at = 0;
        while (at < bytes.size()) {
            const uint32_t value = Bytes_GetLittle(bytes, at, static_cast<int>(row.Bits / 8));
            const uint32_t sign = row.Bits > 8 ? 1u << (row.Bits - 1) : 0;
            samples.push_back(static_cast<int>((value ^ sign) - sign));
        }
        EXPECT_EQ(samples, row.Samples) << "buffers of " << frames[0];
    }
}
