#include "audio/mod_mixer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <numeric>

#include "extra/lanes.h"

// From voices to a frame of sound:
//
// A voice reads its sample at Period's rate, with the position in 32.32 fixed point, and
// interpolates one value for each output frame. The value is multiplied by the voice's gain and
// added to one of two buses, left or right. The buses pass the optional low-pass, are mixed into
// each other by the stereo separation, and are rounded to the output's depth.
//
// Every jump of a gain would be heard as a click, so gains move along half a cosine (MOD_RampTime).
// A note that is cut off cannot ramp down, since its sample is gone: its last value remains as a
// Tail that fades along the same curve, while the next note fades in.
//
// Interpolation by sinc weights 16 samples around the position. The weights are a sinc, the ideal
// low-pass, windowed by Kaiser's window and tabulated at MOD_Phases positions between two samples.
// A voice that plays more than one sample per frame would alias, so the tables exist for several
// rates (MOD_Steps), each with a lower cut-off than the one before. Cubic interpolation uses the
// same loop with 4 nonzero weights.
//
// A bus holds 16-bit samples times volume times MOD_VolumeStep: 24 bits for a voice at its loudest.
constexpr int32_t MOD_VolumeStep = 8;
constexpr double MOD_VoiceFull = 32768.0 * 64 * MOD_VolumeStep;
static_assert(MOD_VoiceFull * 50 * 2 < std::numeric_limits<int32_t>::max(),
              "99 voices: 50 on a bus; between samples they reach up to twice as far");

// Gains have 16 fractional bits, for smooth ramps.
constexpr int32_t MOD_GainOne = 65536;

// Duration of a volume ramp in seconds: half a period of a cosine, which does not click.
constexpr double MOD_RampTime = 0.0025;
constexpr size_t MOD_FadeSteps = 256;
constexpr int32_t MOD_FadeOne = 32768;

// The interpolators' weights are tabulated at this many positions between two samples.
constexpr size_t MOD_Phases = 512;
constexpr double MOD_KaiserBeta = 7;

// The most samples per frame that each sinc table is for; each has a lower cut-off than the last.
constexpr std::array<double, 6> MOD_Steps = {1, 1.25, 1.6, 2, 2.7, 4};
constexpr double MOD_Passed = 0.95;  // cut-off, as a fraction of the first table's limit

constexpr size_t MOD_Window = 1024;  // samples read at a time

// The low-pass that the power light indicates, close to a Butterworth section.
constexpr double MOD_FilterCut = 3091.0, MOD_FilterQ = 0.66;

namespace
{

using MOD_WEIGHTS = std::array<std::array<float, MOD_Taps>, MOD_Phases>;

struct MOD_TABLES {
    std::array<MOD_WEIGHTS, MOD_Steps.size()> Sinc;
    MOD_WEIGHTS Cubic;                            // of which four are nonzero
    std::array<int32_t, MOD_FadeSteps + 2> Fade;  // from MOD_FadeOne to 0
};

// Samples in playing order, MOD_Before of them before the position.
using MOD_SAMPLES = std::array<int16_t, MOD_Before + MOD_Window + MOD_Taps>;

// A block's values, with room for what vector stores write past its end.
using MOD_VALUES = std::array<int32_t, MOD_Block + 3>;

}  // namespace

// Normalised weights: their sum gives 8 fractional bits to a sample.
static std::array<float, MOD_Taps> ScaleWeights(const std::array<double, MOD_Taps> &weights)
{
    const double scale = 256 / std::accumulate(weights.begin(), weights.end(), 0.0);
    std::array<float, MOD_Taps> scaled;
    std::ranges::transform(weights, scaled.begin(),
                           [=](double w) { return static_cast<float>(w * scale); });
    return scaled;
}

// The modified Bessel function of order 0.
static double Bessel(double x)
{
    double sum = 1, term = 1;
    for (int k = 1; term > 1e-9 * sum; k++) {
        term *= x / (2 * k) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

// Kaiser's window, over -1 to 1.
static double Kaiser(double x)
{
    return Bessel(MOD_KaiserBeta * std::sqrt(std::max(1 - x * x, 0.0)));
}

static double Sinc(double x)
{
    return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

static MOD_TABLES MakeTables()
{
    MOD_TABLES tables;
    for (size_t phase = 0; phase < MOD_Phases; phase++) {
        const double x = static_cast<double>(phase) / MOD_Phases;
        std::array<double, MOD_Taps> at, window, weights{};
        for (size_t tap = 0; tap < MOD_Taps; tap++) {
            at[tap] = static_cast<double>(tap) - MOD_Before - x;
            window[tap] = Kaiser(at[tap] / (MOD_Taps / 2.0));
        }
        weights[MOD_Before - 1] = ((2 - x) * x - 1) * x;
        weights[MOD_Before] = (3 * x - 5) * x * x + 2;
        weights[MOD_Before + 1] = ((4 - 3 * x) * x + 1) * x;
        weights[MOD_Before + 2] = (x - 1) * x * x;
        tables.Cubic[phase] = ScaleWeights(weights);
        for (size_t i = 0; i < MOD_Steps.size(); i++) {
            for (size_t tap = 0; tap < MOD_Taps; tap++)
                weights[tap] = Sinc(at[tap] * MOD_Passed / MOD_Steps[i]) * window[tap];
            tables.Sinc[i][phase] = ScaleWeights(weights);
        }
    }
    for (size_t i = 0; i < tables.Fade.size(); i++) {
        const double x = static_cast<double>(std::min(i, MOD_FadeSteps)) / MOD_FadeSteps;
        tables.Fade[i] = static_cast<int32_t>(
            std::lround((1 + std::cos(std::numbers::pi * x)) / 2 * MOD_FadeOne));
    }
    return tables;
}

static const MOD_TABLES &Tables()
{
    static const MOD_TABLES tables = MakeTables();
    return tables;
}

static bool IsLeft(size_t voice)
{
    return ((voice + 1) & 2) == 0;  // left, right, right, left
}

// Enters the loop where a run has ended. False if no loop follows.
static bool EnterRun(MOD_VOICE &v)
{
    if (v.Data && v.Position < static_cast<uint64_t>(v.End) << 32)
        return true;
    v.Data = v.LoopData;
    v.Position = static_cast<uint64_t>(v.LoopStart) << 32;
    v.End = v.LoopEnd;
    return v.Data;
}

// Reads `count` samples from the position, after those before it.
static void ReadSamples(MOD_VOICE v, size_t count, MOD_SAMPLES &samples)
{
    auto out = std::ranges::copy(v.Past, samples.begin()).out;
    while (count != 0 && EnterRun(v)) {
        const size_t at = v.Position >> 32, run = std::min<size_t>(count, v.End - at);
        out = std::copy_n(v.Data + at, run, out);
        count -= run;
        v.Position += static_cast<uint64_t>(run) << 32;
    }
    std::fill_n(out, count, int16_t{0});
}

// Advances by `way`, or to where the voice falls silent.
static void Move(MOD_VOICE &v, uint64_t way)
{
    while (EnterRun(v)) {
        const uint64_t left = (static_cast<uint64_t>(v.End) << 32) - v.Position;
        const uint64_t step = std::min(way, left);
        const size_t from = v.Position >> 32, to = (v.Position + step) >> 32;
        const size_t kept = std::min(to - from, MOD_Before);
        std::shift_left(v.Past.begin(), v.Past.end(), static_cast<ptrdiff_t>(kept));
        std::copy(v.Data + (to - kept), v.Data + to, v.Past.end() - static_cast<ptrdiff_t>(kept));
        v.Position += step;
        way -= step;
        if (way == 0)
            return;
        // Once Past is filled from the loop, whole passes of it change nothing and are skipped.
        const uint64_t pass = static_cast<uint64_t>(v.LoopEnd - v.LoopStart) << 32;
        if (v.LoopData && way > pass * MOD_Taps)
            way = way % pass + pass * MOD_Taps;
    }
}

// The interpolators. Each gives `count` values at positions from `position`, 16 bits with 8
// fractional ones; samples[MOD_Before] is the sample at 0.

// Four values at a time: each is weighted in eight lanes, then their sums are added together.
EXTRA_LANES static void ReadWeighed(const MOD_WEIGHTS &weights, const MOD_SAMPLES &samples,
                                    uint64_t position, uint64_t step, size_t count, MOD_VALUES &out)
{
    using LANES [[gnu::vector_size(32)]] = float;
    using SUMS [[gnu::vector_size(16)]] = float;
    using WHOLE [[gnu::vector_size(16)]] = int32_t;
    static_assert(MOD_Taps == 16);
    constexpr uint32_t phase = UINT32_MAX / MOD_Phases + 1;
    const uint64_t last = position + step * (count - 1);
    std::array<float, std::tuple_size_v<MOD_SAMPLES>> wide;
    std::copy_n(samples.begin(), (last >> 32) + MOD_Taps, wide.begin());
    for (size_t i = 0; i < count; i += 4) {
        SUMS sums[4];
        for (SUMS &four : sums) {
            const float *s = &wide[position >> 32];
            const float *w = weights[static_cast<uint32_t>(position) / phase].data();
            LANES samples1, samples2, weights1, weights2;
            std::memcpy(&samples1, s, sizeof samples1);
            std::memcpy(&samples2, s + 8, sizeof samples2);
            std::memcpy(&weights1, w, sizeof weights1);
            std::memcpy(&weights2, w + 8, sizeof weights2);
            const LANES sum = samples1 * weights1 + samples2 * weights2;
            four = __builtin_shufflevector(sum, sum, 0, 1, 2, 3) +
                   __builtin_shufflevector(sum, sum, 4, 5, 6, 7);
            position = std::min(position + step, last);
        }
        const SUMS two = __builtin_shufflevector(sums[0], sums[1], 0, 4, 1, 5) +
                         __builtin_shufflevector(sums[0], sums[1], 2, 6, 3, 7);
        const SUMS others = __builtin_shufflevector(sums[2], sums[3], 0, 4, 1, 5) +
                            __builtin_shufflevector(sums[2], sums[3], 2, 6, 3, 7);
        const SUMS all = __builtin_shufflevector(two, others, 0, 1, 4, 5) +
                         __builtin_shufflevector(two, others, 2, 3, 6, 7);
        const WHOLE whole = __builtin_convertvector(all, WHOLE);
        std::memcpy(&out[i], &whole, sizeof whole);
    }
}

// Each sample is packed with its difference to the next. One scalar loop gathers them at the
// pitch's steps, the other loops are vectorised.
EXTRA_LANES static void ReadLinear(const MOD_SAMPLES &samples, uint64_t position, uint64_t step,
                                   size_t count, MOD_VALUES &out)
{
    std::array<int32_t, std::tuple_size_v<MOD_SAMPLES>> packed;
    const size_t read = ((position + step * (count - 1)) >> 32) + 1;
    const int16_t *first = &samples[MOD_Before];
    for (size_t i = 0; i < read; i++)
        packed[i] = (first[i + 1] - first[i]) * 65536 + static_cast<uint16_t>(first[i]);
    uint64_t at = position;
    for (size_t i = 0; i < count; i++, at += step)
        out[i] = packed[at >> 32];
    const auto from = static_cast<uint32_t>(position), by = static_cast<uint32_t>(step);
    for (size_t i = 0; i < count; i++) {
        const auto part = static_cast<int32_t>((from + static_cast<uint32_t>(i) * by) >> 17);
        out[i] = static_cast<int16_t>(out[i]) * 256 + ((out[i] >> 16) * part >> 7);
    }
}

static void ReadNearest(const MOD_SAMPLES &samples, uint64_t position, uint64_t step, size_t count,
                        MOD_VALUES &out)
{
    for (size_t i = 0; i < count; i++, position += step)
        out[i] = samples[MOD_Before + (position >> 32)] * 256;
}

static const MOD_WEIGHTS &SincFor(uint64_t step)
{
    const auto fits = std::ranges::find_if(
        MOD_Steps, [=](double most) { return static_cast<double>(step) <= most * 4294967296.0; });
    return Tables().Sinc[std::min<size_t>(static_cast<size_t>(fits - MOD_Steps.begin()),
                                          MOD_Steps.size() - 1)];
}

static void Interpolate(MOD_INTERPOLATION how, const MOD_SAMPLES &samples, uint64_t position,
                        uint64_t step, size_t count, MOD_VALUES &out)
{
    switch (how) {
    case MOD_NEAREST:
        return ReadNearest(samples, position, step, count, out);
    case MOD_LINEAR:
        return ReadLinear(samples, position, step, count, out);
    case MOD_CUBIC:
        return ReadWeighed(Tables().Cubic, samples, position, step, count, out);
    case MOD_SINC:
        return ReadWeighed(SincFor(step), samples, position, step, count, out);
    }
}

// The fade's factor with `left` of `frames` frames to go, from MOD_FadeOne to 0.
static int32_t FadeOf(int32_t left, int32_t frames)
{
    const uint64_t at =
        (static_cast<uint64_t>(frames - left) << 24) / static_cast<uint32_t>(frames);
    const int32_t *step = &Tables().Fade[at >> 16];
    return step[0] + static_cast<int32_t>((step[1] - step[0]) * int64_t(at & 0xFFFF) >> 16);
}

static int32_t Faded(int32_t value, int32_t fade)
{
    return static_cast<int32_t>(int64_t{value} * fade / MOD_FadeOne);
}

// Adds values with a ramping gain.
static void AddRamp(MOD_VOICE &v, int32_t ramp, std::span<const int32_t> values, int32_t *bus)
{
    for (const int32_t value : values) {
        v.RampFrames--;
        v.Gain = v.Target + Faded(v.From - v.Target, FadeOf(v.RampFrames, ramp));
        v.Heard = value * (v.Gain / MOD_GainOne);
        *bus++ += v.Heard;
    }
}

EXTRA_LANES static void AddLevel(int32_t level, std::span<const int32_t> values, int32_t *bus)
{
    for (size_t i = 0; i < values.size(); i++)
        bus[i] += values[i] * level;
}

// Adds the fading rest of cut notes.
static void AddTail(MOD_VOICE &v, int32_t ramp, std::span<int32_t> bus)
{
    for (size_t i = 0; i < bus.size() && v.TailFrames != 0; i++)
        bus[i] += Faded(v.Tail, FadeOf(--v.TailFrames, ramp));
}

// Starts the ramp to a new volume.
static void StartRamp(MOD_VOICE &v, int32_t frames)
{
    const int32_t target = v.Volume * MOD_VolumeStep * MOD_GainOne;
    if (target == v.Target)
        return;
    v.From = v.Gain;
    v.Target = target;
    v.RampFrames = frames;
}

// Output frames that the window of samples suffices for, up to the end if no loop follows.
static size_t FramesAhead(const MOD_VOICE &v, uint64_t step, size_t frames)
{
    uint64_t way = uint64_t{MOD_Window} << 32;
    if (!v.LoopData)
        way = std::min(way, (static_cast<uint64_t>(v.End) << 32) - v.Position);
    return static_cast<size_t>(std::min<uint64_t>((way + step - 1) / step, frames));
}

// Adds a voice's output. Returns the frames until it fell silent.
static size_t AddRuns(const MOD_MIXER &mixer, MOD_VOICE &v, uint64_t step, int32_t ramp,
                      std::span<int32_t> bus)
{
    size_t done = 0;
    while (done < bus.size() && EnterRun(v)) {
        MOD_SAMPLES samples;
        MOD_VALUES values;
        const size_t count = FramesAhead(v, step, bus.size() - done);
        const std::span out(values.data(), count);
        const uint64_t part = static_cast<uint32_t>(v.Position), way = step * count;
        ReadSamples(v, ((part + way - step) >> 32) + MOD_Taps - MOD_Before, samples);
        Interpolate(mixer.Interpolation, samples, part, step, count, values);
        const size_t moving = std::min(count, static_cast<size_t>(v.RampFrames));
        AddRamp(v, ramp, out.first(moving), &bus[done]);
        if (moving < count) {
            const int32_t level = v.Gain / MOD_GainOne;
            AddLevel(level, out.subspan(moving), &bus[done + moving]);
            v.Heard = out.back() * level;
        }
        Move(v, way);
        done += count;
    }
    return done;
}

// Turns what stops abruptly into a fading tail.
static void Leave(MOD_VOICE &v, int32_t ramp)
{
    if (v.Heard != 0) {
        v.Tail = v.Heard + (v.TailFrames != 0 ? Faded(v.Tail, FadeOf(v.TailFrames, ramp)) : 0);
        v.TailFrames = ramp;
    }
    v.Heard = v.Gain = v.Target = v.RampFrames = 0;
}

static int32_t RampFramesOf(uint32_t rate)
{
    return std::max(static_cast<int32_t>(rate * MOD_RampTime), 1);
}

// Samples per output frame of a sounding voice; 0 if it is silent.
static uint64_t StepOf(const MOD_VOICE &v, uint32_t rate)
{
    if (v.Period == 0 || (!v.Data && !v.LoopData))
        return 0;
    return static_cast<uint64_t>(4 * MOD_Clock / v.Period / rate * 4294967296.0) | 1;
}

// While a new note's gain rises, the previous note's tail falls: together they are never louder
// than the louder one.
static void AddVoice(const MOD_MIXER &mixer, MOD_VOICE &v, uint32_t rate, std::span<int32_t> bus)
{
    const int32_t ramp = RampFramesOf(rate);
    if (v.Started) {
        Leave(v, ramp);
        v.Past = {};
    }
    v.Started = false;
    size_t done = 0;
    if (const uint64_t step = StepOf(v, rate)) {
        StartRamp(v, ramp);
        done = AddRuns(mixer, v, step, ramp, bus);
    }
    AddTail(v, ramp, bus.first(done));
    if (done < bus.size())
        Leave(v, ramp);
    AddTail(v, ramp, bus.subspan(done));
}

// Coefficients of a second-order low-pass by the bilinear transform.
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

// One side, mixed from the buses, rounded to `bits` and clamped.
EXTRA_LANES static void MixSide(const MOD_MIXER &mixer, double left, double right, uint32_t bits,
                                std::span<int32_t> out)
{
    const double full = static_cast<double>(int64_t{1} << (bits - 1));
    left *= full;
    right *= full;
    for (size_t i = 0; i < out.size(); i++) {
        const double value = mixer.Buses[0][i] * left + mixer.Buses[1][i] * right;
        const double cut = std::min(std::max(value, -full), full - 1);
        out[i] = static_cast<int32_t>(cut + std::copysign(0.5, cut));
    }
}

// Writes a side's samples, `stride` bytes apart.
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

// The same for both sides of the most common format.
EXTRA_LANES static void StorePairs(const int32_t *left, const int32_t *right, size_t frames,
                                   uint8_t *out)
{
    for (size_t i = 0; i < frames; i++) {
        const uint32_t pair =
            (static_cast<uint32_t>(left[i]) & 0xFFFF) | static_cast<uint32_t>(right[i]) << 16;
        for (int shift = 0; shift < 32; shift += 8)
            *out++ = static_cast<uint8_t>(pair >> shift);
    }
}

static void StoreFrames(const MOD_MIXER &mixer, size_t voices, const MOD_FORMAT &format,
                        size_t frames, uint8_t *out)
{
    const double scale =
        1 / (MOD_VoiceFull * static_cast<double>(std::max<size_t>(2, (voices + 1) / 2)));
    const double apart = format.Channels == 1 ? 0 : mixer.Separation / 100.0;
    const double nearSide = scale * (1 + apart) / 2, farSide = scale * (1 - apart) / 2;
    const uint32_t bytes = format.Bits / 8;
    const size_t stride = bytes * format.Channels;
    std::array<std::array<int32_t, MOD_Block>, 3> sides;  // the third stays silent
    MixSide(mixer, nearSide, farSide, format.Bits, std::span(sides[0].data(), frames));
    MixSide(mixer, farSide, nearSide, format.Bits, std::span(sides[1].data(), frames));
    if (format.Channels == 2 && bytes == 2)
        return StorePairs(sides[0].data(), sides[1].data(), frames, out);
    sides[2].fill(0);
    for (uint32_t c = 0; c < format.Channels; c++, out += bytes) {
        const std::span side(sides[std::min(c, 2u)].data(), frames);
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

void MOD_MakeTables()
{
    Tables();
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
        AddVoice(mixer, voices[i], format.Rate,
                 std::span(mixer.Buses[IsLeft(i) ? 0 : 1].data(), frames));
    for (size_t side = 0; filter && side < 2; side++)
        FilterBus(mixer.LowPass, side, std::span(mixer.Buses[side].data(), frames));
    StoreFrames(mixer, voices.size(), format, frames, out);
}

void MOD_SkipFrames(std::span<MOD_VOICE> voices, uint32_t rate, size_t frames)
{
    for (MOD_VOICE &v : voices) {
        if (v.Started)
            v.Past = {};
        v.Started = false;
        v.Heard = v.TailFrames = v.RampFrames = 0;
        const uint64_t step = StepOf(v, rate);
        v.Gain = v.Target = step != 0 ? v.Volume * MOD_VolumeStep * MOD_GainOne : 0;
        if (step != 0)
            Move(v, step * frames);
    }
}
