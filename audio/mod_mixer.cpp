#include "audio/mod_mixer.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <type_traits>

#include "audio/mod_replay.h"

// A bus holds 16-bit samples times volume times MOD_GainOne: 25 bits for a voice at its loudest.
constexpr int32_t MOD_GainOne = 16;
constexpr int32_t MOD_GainPoint = 65536; // of gains on their way
constexpr double MOD_VoiceFull = 32768.0 * 64 * MOD_GainOne;
static_assert(MOD_VoiceFull * 50 < std::numeric_limits<int32_t>::max(), "99 voices: 50 on a bus");

constexpr double MOD_NearSide = 0.75;  // of a bus on its own side; the rest goes to the other
constexpr double MOD_RampTime = 0.001; // of a change of volume, in seconds

// The low-pass behind the power light, a Butterworth-like section.
constexpr double MOD_FilterCut = 3091.0, MOD_FilterQ = 0.66;

static bool IsLeft(size_t voice)
{
    return ((voice + 1) & 2) == 0; // left, right, right, left
}

// Frames that begin at `count` positions before `end`, at most `frames`.
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

// Adds frames of a run, of which the sample behind each is a part too. `gain` is in 1 /
// MOD_GainPoint.
template <bool Ramp>
static void AddRun(MOD_VOICE &v, uint64_t step, int32_t gain, int32_t rise, std::span<int32_t> bus)
{
    const int8_t *data = v.Data;
    uint64_t position = v.Position;
    int32_t heard = v.Heard;
    const int32_t level = gain / MOD_GainPoint;
    for (int32_t &sum : bus) {
        const int8_t *at = data + (position >> 32);
        if constexpr (Ramp) {
            gain += rise;
            heard = Between(at[0], at[1], position) * (gain / MOD_GainPoint);
        } else {
            heard = Between(at[0], at[1], position) * level;
        }
        sum += heard;
        position += step;
    }
    v.Position = position;
    v.Heard = heard;
}

// Goes on with the loop where a run has ended. False when there is none.
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

static int32_t RampFrames(uint32_t rate)
{
    return std::max(static_cast<int32_t>(rate * MOD_RampTime), 1);
}

// Adds what cut notes left, falling to nothing in a straight line.
static void AddTail(MOD_VOICE &v, std::span<int32_t> bus)
{
    for (size_t i = 0; i < bus.size() && v.TailFrames != 0; i++) {
        v.Tail -= v.Tail / v.TailFrames--;
        bus[i] += v.Tail;
    }
}

// One frame between the run's last sample and what follows it.
static int32_t LastOfRun(const MOD_VOICE &v, int32_t gain)
{
    const int8_t next = v.LoopData ? v.LoopData[v.LoopStart] : int8_t{0};
    return Between(v.Data[v.End - 1], next, v.Position) * gain;
}

// While a new note's gain rises, the tail of the one before falls: together they are never louder
// than either.
static void AddVoice(MOD_VOICE &v, uint32_t rate, std::span<int32_t> bus)
{
    const size_t frames = bus.size();
    const int32_t rampFrames = RampFrames(rate);
    size_t tailed = 0;
    const auto addTail = [&](size_t end) {
        AddTail(v, bus.subspan(tailed, end - tailed));
        tailed = end;
    };
    const auto leave = [&](size_t at) {
        addTail(at);
        if (v.Heard != 0) {
            v.Tail = (v.TailFrames != 0 ? v.Tail : 0) + v.Heard;
            v.TailFrames = rampFrames;
        }
        v.Heard = v.Gain = 0;
    };
    if (v.Started)
        leave(0);
    v.Started = false;
    size_t done = 0;
    if (v.Period != 0 && (v.Data || v.LoopData)) {
        const auto step = static_cast<uint64_t>(MOD_Clock / v.Period / rate * 4294967296.0) | 1;
        const int32_t target = v.Volume * MOD_GainOne;
        const int32_t rise = (target - v.Gain) * MOD_GainPoint / rampFrames;
        int32_t gain = v.Gain * MOD_GainPoint;
        size_t ramp = target != v.Gain ? static_cast<size_t>(rampFrames) : 0;
        while (done < frames && EnterRun(v)) {
            const size_t left = ramp != 0 ? std::min(frames - done, ramp) : frames - done;
            const uint64_t last = static_cast<uint64_t>(v.End - 1) << 32;
            size_t count = 1;
            if (v.Position >= last) {
                gain += ramp != 0 ? rise : 0;
                v.Heard = LastOfRun(v, gain / MOD_GainPoint);
                bus[done] += v.Heard;
                v.Position += step;
            } else {
                count = FramesBefore(last, v.Position, step, left);
                if (ramp != 0)
                    AddRun<true>(v, step, gain, rise, bus.subspan(done, count));
                else
                    AddRun<false>(v, step, gain, 0, bus.subspan(done, count));
                gain += ramp != 0 ? rise * static_cast<int32_t>(count) : 0;
            }
            done += count;
            if (ramp != 0 && (ramp -= count) == 0)
                gain = target * MOD_GainPoint;
        }
        v.Gain = gain / MOD_GainPoint;
    }
    if (done < frames)
        leave(done);
    addTail(frames);
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

// A sample of -1 to 1 as `Bytes` bytes, cut to what these hold.
template <int Bytes>
static void Store(uint8_t *out, std::conditional_t<Bytes <= 2, float, double> value)
{
    using REAL = decltype(value);
    constexpr REAL full = static_cast<REAL>(int64_t{1} << (8 * Bytes - 1));
    // Rounds to the nearest: what is truncated is never negative.
    const REAL scaled = std::clamp(value * full + full, REAL{0}, 2 * full - 1) + REAL{0.5};
    auto bits = static_cast<uint32_t>(static_cast<int64_t>(scaled));
    if constexpr (Bytes > 1)
        bits ^= 1u << (8 * Bytes - 1);
    for (int i = 0; i < Bytes; i++)
        out[i] = static_cast<uint8_t>(bits >> (8 * i));
}

template <int Bytes>
static void StoreBuses(const MOD_MIXER &mixer, size_t voices, uint32_t channels, size_t frames,
                       uint8_t *out)
{
    using REAL = std::conditional_t<Bytes <= 2, float, double>;
    const double scale =
        1 / (MOD_VoiceFull * static_cast<double>(std::max<size_t>(2, (voices + 1) / 2)));
    const auto nearSide = static_cast<REAL>(scale * MOD_NearSide);
    const auto farSide = static_cast<REAL>(scale * (1 - MOD_NearSide));
    const auto both = static_cast<REAL>(scale / 2);
    for (size_t i = 0; i < frames; i++) {
        const auto a = static_cast<REAL>(mixer.Buses[0][i]),
                   b = static_cast<REAL>(mixer.Buses[1][i]);
        if (channels == 1) {
            Store<Bytes>(out, (a + b) * both);
        } else {
            Store<Bytes>(out, a * nearSide + b * farSide);
            Store<Bytes>(out + Bytes, b * nearSide + a * farSide);
        }
        for (uint32_t c = 2; c < channels; c++)
            Store<Bytes>(out + c * Bytes, 0);
        out += channels * Bytes;
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
    if (format.Bits == 8)
        StoreBuses<1>(mixer, voices.size(), format.Channels, frames, out);
    else if (format.Bits == 16)
        StoreBuses<2>(mixer, voices.size(), format.Channels, frames, out);
    else if (format.Bits == 24)
        StoreBuses<3>(mixer, voices.size(), format.Channels, frames, out);
    else
        StoreBuses<4>(mixer, voices.size(), format.Channels, frames, out);
}
