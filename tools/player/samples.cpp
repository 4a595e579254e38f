#include "tools/player/samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <random>

constexpr uint32_t Samples_Reach = 64;    // frames of the lower rate
constexpr uint32_t Samples_Phases = 512;  // per frame; between them it is interpolated
constexpr double Samples_Cutoff = 0.95;   // of half the lower rate
constexpr double Samples_Beta = 10;       // of the Kaiser window: about 100 dB

// A sample of 8 to 32 bits, left-justified.
static int32_t Get(const uint8_t *from, uint32_t bits)
{
    uint32_t sample = 0;
    for (uint32_t i = 0; i < bits; i += 8)
        sample |= uint32_t{*from++} << (32 - bits + i);
    return static_cast<int32_t>(bits == 8 ? sample ^ 0x80000000 : sample);
}

// The sum of two even distributions as wide as a step, around 0: the error of rounding becomes
// noise of constant power that does not follow the sound.
static int64_t Noise(int64_t step)
{
    static std::mt19937 random;  // NOLINT(cert-msc32-c,cert-msc51-cpp): each run has the same
    const auto even = [step] { return static_cast<int64_t>(random()) % step; };
    return even() + even() + 1 - step;
}

static void Put(std::vector<uint8_t> &out, int64_t sample, const SAMPLES_FORMAT &to)
{
    uint32_t code = static_cast<uint32_t>(sample);
    if (to.Float)
        code = std::bit_cast<uint32_t>(static_cast<float>(sample) / 0x1p31f);
    else {
        const int64_t step = int64_t{1} << (32 - to.Bits);
        sample += to.Dither ? Noise(step) : 0;
        sample = std::clamp<int64_t>(sample + step / 2, INT32_MIN, INT32_MAX) >> (32 - to.Bits);
        code = static_cast<uint32_t>(sample) ^ (to.Bits == 8 ? 0x80u : 0u);
    }
    for (uint32_t i = 0; i < to.Bits; i += 8)
        out.push_back(static_cast<uint8_t>(code >> i));
}

void Samples_Scale(std::span<uint8_t> samples, uint32_t bits, double gain)
{
    const auto factor = static_cast<int64_t>(gain * 65536);
    const uint32_t bytes = bits / 8;
    for (size_t i = 0; i + bytes <= samples.size(); i += bytes) {
        const int64_t sample = Get(&samples[i], bits) >> (32 - bits);
        const auto scaled = static_cast<uint32_t>(sample * factor >> 16);
        for (uint32_t k = 0; k < bytes; k++)
            samples[i + k] = static_cast<uint8_t>(scaled >> (8 * k));
        if (bits == 8)
            samples[i] ^= 0x80;
    }
}

double Samples_Peak(std::span<const uint8_t> samples, uint32_t bits)
{
    int64_t peak = 0;
    for (size_t i = 0; i + bits / 8 <= samples.size(); i += bits / 8)
        peak = std::max(peak, std::abs(int64_t{Get(&samples[i], bits)}));
    return static_cast<double>(peak) / 0x1p31;
}

void Samples_Convert(std::span<const uint8_t> samples, const SAMPLES_FORMAT &from,
                     const SAMPLES_FORMAT &to, std::vector<uint8_t> &out)
{
    const uint32_t bytes = from.Bits / 8;
    if (from.Bits == to.Bits && from.Float == to.Float) {
        out.insert(out.end(), samples.begin(), samples.end());
        return;
    }
    for (size_t i = 0; i + bytes <= samples.size(); i += bytes)
        Put(out, Get(&samples[i], from.Bits), to);
}

// Kaiser and Schafer's window at 0 to 1 from its middle, by the series of the modified Bessel
// function of order 0.
static double Kaiser(double x)
{
    const auto bessel = [](double y) {
        double sum = 1, term = 1;
        for (int k = 1; term > 1e-12 * sum; k++) {
            term *= y / (2 * k) * y / (2 * k);
            sum += term;
        }
        return sum;
    };
    return x < 1 ? bessel(Samples_Beta * std::sqrt(1 - x * x)) / bessel(Samples_Beta) : 0;
}

SAMPLES_RESAMPLER::SAMPLES_RESAMPLER(const SAMPLES_FORMAT &from, const SAMPLES_FORMAT &to)
    : From(from), To(to)
{
    const double scale = std::min(1.0 * to.Hz / from.Hz, 1.0);  // of the bandwidth
    Reach = from.Hz == to.Hz ? 0 : static_cast<uint32_t>(std::ceil(Samples_Reach / scale));
    for (uint32_t i = 0; Reach != 0 && i <= (Reach + 1) * Samples_Phases + 1; i++) {
        const double x = 1.0 * i / Samples_Phases, w = x * scale * Samples_Cutoff;
        const double sinc = i == 0 ? 1 : std::sin(std::numbers::pi * w) / (std::numbers::pi * w);
        Filter.push_back(static_cast<float>(scale * Samples_Cutoff * sinc * Kaiser(x / Reach)));
    }
    Clear();
}

void SAMPLES_RESAMPLER::Clear()
{
    Frames.assign(size_t{Reach} * To.Channels, 0);  // zeros before the sound
    Position = uint64_t{Reach} * To.Hz;
    Owed = 0;
}

// One half of the filter; its middle lies `part` of a frame (0 to 1) before the first weight.
static void GetWeights(const std::vector<float> &filter, double part, std::span<float> weights)
{
    const double at = part * Samples_Phases;
    const auto index = static_cast<size_t>(at);
    const auto rest = static_cast<float>(at - static_cast<double>(index));
    const float *from = &filter[index];
    for (float &weight : weights) {
        weight = from[0] + (from[1] - from[0]) * rest;
        from += Samples_Phases;
    }
}

// Appends frames, converted to the channels of `to`.
static void AppendFrames(std::vector<float> &frames, std::span<const uint8_t> samples,
                         const SAMPLES_FORMAT &from, const SAMPLES_FORMAT &to)
{
    const uint32_t bytes = from.Bits / 8;
    for (size_t i = 0; i + from.FrameBytes() <= samples.size(); i += from.FrameBytes()) {
        const auto channel = [&](uint32_t c) {
            return static_cast<float>(Get(&samples[i + c * bytes], from.Bits));
        };
        for (uint32_t c = 0; c < to.Channels; c++)
            frames.push_back(from.Channels == 2 && to.Channels == 1 ? (channel(0) + channel(1)) / 2
                             : c < from.Channels                    ? channel(c)
                             : from.Channels == 1 && c == 1         ? channel(0)
                                                                    : 0.0f);
    }
}

void SAMPLES_RESAMPLER::Resample(std::span<const uint8_t> samples, std::vector<uint8_t> &out)
{
    AppendFrames(Frames, samples, From, To);
    if (Reach == 0) {
        for (const float sample : Frames)
            Put(out, std::llrint(sample), To);
        Frames.clear();
        return;
    }
    const size_t channels = To.Channels;
    Owed += samples.size() / From.FrameBytes() * To.Hz;
    if (samples.empty())
        Frames.resize(Frames.size() + size_t{Reach} * channels);  // zeros after the sound
    std::vector<float> sums(channels), before(Reach), after(Reach);
    const size_t count = Frames.size() / channels;
    while (Owed != 0 && Position / To.Hz + Reach < count) {
        const double part = static_cast<double>(Position % To.Hz) / To.Hz;
        GetWeights(Filter, part, before);
        GetWeights(Filter, 1 - part, after);
        std::ranges::fill(sums, 0.0f);
        const float *left = &Frames[Position / To.Hz * channels], *right = left + channels;
        for (uint32_t i = 0; i < Reach; i++, left -= channels, right += channels)
            for (size_t c = 0; c < channels; c++)
                sums[c] += before[i] * left[c] + after[i] * right[c];
        for (const float sum : sums)
            Put(out, std::llrint(sum), To);
        Position += From.Hz;
        Owed -= std::min<uint64_t>(Owed, From.Hz);
    }
    const uint64_t done = std::min<uint64_t>(Position / To.Hz - Reach, count);
    Frames.erase(Frames.begin(), Frames.begin() + static_cast<ptrdiff_t>(done * channels));
    Position -= done * To.Hz;
}
