#include "audio/mod_mixer.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

// A bus holds 16-bit samples times volume times MOD_VolumeStep: 25 bits for a voice at its loudest.
constexpr int32_t MOD_VolumeStep = 16;
constexpr double MOD_VoiceFull = 32768.0 * 64 * MOD_VolumeStep;
static_assert(MOD_VoiceFull * 50 < std::numeric_limits<int32_t>::max(), "99 voices: 50 on a bus");

// Gains have 16 fractional bits, so that they move evenly.
constexpr int32_t MOD_GainOne = 65536;

constexpr double MOD_NearSide = 0.75;   // of a bus on its own side; the rest goes to the other
constexpr double MOD_RampTime = 0.001;  // of a change of volume, in seconds

// The low-pass that the power light shows, a Butterworth-like section.
constexpr double MOD_FilterCut = 3091.0, MOD_FilterQ = 0.66;

static bool IsLeft(size_t voice)
{
    return ((voice + 1) & 2) == 0;  // left, right, right, left
}

// Frames whose positions lie before `end`, at most `frames`.
static size_t FramesBefore(uint64_t end, uint64_t position, uint64_t step, size_t frames)
{
    return static_cast<size_t>(std::min<uint64_t>((end - position + step - 1) / step, frames));
}

// The sample between two neighbours, 16 bits.
static int32_t Between(int8_t a, int8_t b, uint64_t position)
{
    const auto part = static_cast<int32_t>(static_cast<uint32_t>(position) >> 17);
    return a * 256 + ((b - a) * part >> 7);
}

// Adds frames of a run, of which the sample after each is a part too.
template <bool Ramp>
static void AddRun(MOD_VOICE &v, uint64_t step, std::span<int32_t> bus)
{
    const int8_t *data = v.Data;
    uint64_t position = v.Position;
    int32_t gain = v.Gain, heard = v.Heard;
    const int32_t rise = v.Rise, level = v.Gain / MOD_GainOne;
    for (int32_t &sum : bus) {
        const int8_t *at = data + (position >> 32);
        if constexpr (Ramp)
            gain += rise;
        heard = Between(at[0], at[1], position) * (Ramp ? gain / MOD_GainOne : level);
        sum += heard;
        position += step;
    }
    v.Gain = gain;
    v.Position = position;
    v.Heard = heard;
}

// Goes on with the loop where a run has ended. False when no loop follows.
static bool EnterRun(MOD_VOICE &v)
{
    const uint64_t end = static_cast<uint64_t>(v.End) << 32;
    if (v.Data && v.Position < end)
        return true;
    const uint64_t length = static_cast<uint64_t>(v.LoopEnd - v.LoopStart) << 32;
    const uint64_t over = v.Data ? v.Position - end : 0;
    v.Data = v.LoopData;
    if (!v.Data)
        return false;
    v.Position = (static_cast<uint64_t>(v.LoopStart) << 32) + over % length;
    v.End = v.LoopEnd;
    return true;
}

// Adds what cut notes left, falling to nothing in a straight line.
static void AddTail(MOD_VOICE &v, std::span<int32_t> bus)
{
    for (size_t i = 0; i < bus.size() && v.TailFrames != 0; i++) {
        v.Tail -= v.Tail / v.TailFrames--;
        bus[i] += v.Tail;
    }
}

// Adds the frame between the run's last sample and what follows it.
static void AddLastOfRun(MOD_VOICE &v, uint64_t step, int32_t &sum)
{
    const int8_t next = v.LoopData ? v.LoopData[v.LoopStart] : int8_t{0};
    v.Gain += v.RampFrames != 0 ? v.Rise : 0;
    v.Heard = Between(v.Data[v.End - 1], next, v.Position) * (v.Gain / MOD_GainOne);
    sum += v.Heard;
    v.Position += step;
}

// Sends the gain on its way to a new volume.
static void StartRamp(MOD_VOICE &v, int32_t frames)
{
    const int32_t target = v.Volume * MOD_VolumeStep * MOD_GainOne;
    if (target == v.Target)
        return;
    v.Target = target;
    v.Rise = (target - v.Gain) / frames;
    v.RampFrames = frames;
}

// Adds what the voice plays. Returns the frames until it fell silent.
static size_t AddRuns(MOD_VOICE &v, uint64_t step, std::span<int32_t> bus)
{
    size_t done = 0;
    while (done < bus.size() && EnterRun(v)) {
        const uint64_t last = static_cast<uint64_t>(v.End - 1) << 32;
        size_t count = 1;
        if (v.Position < last) {
            const auto ramp = static_cast<size_t>(v.RampFrames);
            count = FramesBefore(last, v.Position, step, bus.size() - done);
            if (ramp != 0)
                AddRun<true>(v, step, bus.subspan(done, count = std::min(count, ramp)));
            else
                AddRun<false>(v, step, bus.subspan(done, count));
        } else {
            AddLastOfRun(v, step, bus[done]);
        }
        done += count;
        if (v.RampFrames != 0 && (v.RampFrames -= static_cast<int32_t>(count)) == 0)
            v.Gain = v.Target;
    }
    return done;
}

// What stops being heard at once fades instead.
static void Leave(MOD_VOICE &v, int32_t frames)
{
    if (v.Heard != 0) {
        v.Tail += v.Heard;
        v.TailFrames = frames;
    }
    v.Heard = v.Gain = v.Target = v.RampFrames = 0;
}

// While a new note's gain rises, the tail of the one before falls: together they are never louder
// than either.
static void AddVoice(MOD_VOICE &v, uint32_t rate, std::span<int32_t> bus)
{
    const int32_t rampFrames = std::max(static_cast<int32_t>(rate * MOD_RampTime), 1);
    if (v.Started)
        Leave(v, rampFrames);
    v.Started = false;
    size_t done = 0;
    if (v.Period != 0 && (v.Data || v.LoopData)) {
        const auto step = static_cast<uint64_t>(4 * MOD_Clock / v.Period / rate * 4294967296.0) | 1;
        StartRamp(v, rampFrames);
        done = AddRuns(v, step, bus);
    }
    AddTail(v, bus.first(done));
    if (done < bus.size())
        Leave(v, rampFrames);
    AddTail(v, bus.subspan(done));
}

// Weights of a second-order low-pass by the bilinear transform.
static void MakeFilter(MOD_MIXER &mixer, uint32_t rate)
{
    mixer.FilterRate = rate;
    const double w = 2 * std::numbers::pi * MOD_FilterCut / rate;
    const double alpha = std::sin(w) / (2 * MOD_FilterQ), whole = 1 + alpha;
    const double edge = (1 - std::cos(w)) / 2 / whole;
    mixer.LowPass = {{edge, 2 * edge, edge, 2 * std::cos(w) / whole, (alpha - 1) / whole}, {}};
}

static void FilterBus(MOD_FILTER &filter, size_t side, std::span<int32_t> bus)
{
    const auto &w = filter.Weights;
    auto &[in1, in2, out1, out2] = filter.Past[side];
    for (int32_t &value : bus) {
        const double in = value;
        const double out = w[0] * in + w[1] * in1 + w[2] * in2 + w[3] * out1 + w[4] * out2;
        in2 = in1;
        in1 = in;
        out2 = out1;
        out1 = out;
        value = static_cast<int32_t>(std::clamp(out, -2147483648.0, 2147483647.0));
    }
}

// What one side hears of the buses, rounded to `bits` and cut to what these hold.
static void MixSide(const MOD_MIXER &mixer, double left, double right, uint32_t bits,
                    std::span<int32_t> out)
{
    const double full = static_cast<double>(int64_t{1} << (bits - 1));
    left *= full;
    right *= full;
    for (size_t i = 0; i < out.size(); i++) {
        const double value = mixer.Buses[0][i] * left + mixer.Buses[1][i] * right;
        const double cut = std::min(std::max(value, -full), full - 1);
        out[i] = static_cast<int32_t>(cut + (cut < 0 ? -0.5 : 0.5));
    }
}

// Writes a side's samples `stride` bytes apart.
template <int Bytes>
static void StoreSide(std::span<const int32_t> side, uint8_t *out, size_t stride)
{
    for (const int32_t sample : side) {
        const auto bits = static_cast<uint32_t>(sample) ^ (Bytes == 1 ? 0x80u : 0u);
        for (int i = 0; i < Bytes; i++)
            out[i] = static_cast<uint8_t>(bits >> (8 * i));
        out += stride;
    }
}

static void StoreFrames(const MOD_MIXER &mixer, size_t voices, const MOD_FORMAT &format,
                        size_t frames, uint8_t *out)
{
    const double scale =
        1 / (MOD_VoiceFull * static_cast<double>(std::max<size_t>(2, (voices + 1) / 2)));
    const double nearSide = scale * (format.Channels == 1 ? 0.5 : MOD_NearSide);
    const double farSide = scale * (format.Channels == 1 ? 0.5 : 1 - MOD_NearSide);
    const uint32_t bytes = format.Bits / 8;
    const size_t stride = bytes * format.Channels;
    for (uint32_t c = 0; c < format.Channels; c++, out += bytes) {
        std::array<int32_t, MOD_Block> samples;
        const std::span side(samples.data(), frames);
        if (c < 2)
            MixSide(mixer, c == 0 ? nearSide : farSide, c == 0 ? farSide : nearSide, format.Bits,
                    side);
        else
            std::ranges::fill(side, 0);
        if (bytes == 1)
            StoreSide<1>(side, out, stride);
        else if (bytes == 2)
            StoreSide<2>(side, out, stride);
        else if (bytes == 3)
            StoreSide<3>(side, out, stride);
        else
            StoreSide<4>(side, out, stride);
    }
}

uint32_t MOD_FrameBytes(const MOD_FORMAT &format)
{
    const bool known =
        format.Bits == 8 || format.Bits == 16 || format.Bits == 24 || format.Bits == 32;
    return known && format.Rate != 0 ? format.Channels * format.Bits / 8 : 0;
}

void MOD_Mix(MOD_MIXER &mixer, std::span<MOD_VOICE> voices, const MOD_FORMAT &format, size_t frames,
             uint8_t *out)
{
    const bool filter = mixer.Filter && format.Rate > 2 * MOD_FilterCut;
    if (filter && mixer.FilterRate != format.Rate)
        MakeFilter(mixer, format.Rate);
    for (auto &bus : mixer.Buses)
        std::fill_n(bus.begin(), frames, 0);
    for (size_t i = 0; i < voices.size(); i++)
        AddVoice(voices[i], format.Rate, std::span(mixer.Buses[IsLeft(i) ? 0 : 1].data(), frames));
    for (size_t side = 0; filter && side < 2; side++)
        FilterBus(mixer.LowPass, side, std::span(mixer.Buses[side].data(), frames));
    StoreFrames(mixer, voices.size(), format, frames, out);
}
