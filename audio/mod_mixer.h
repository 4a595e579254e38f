// From voices to sound: resampling, stereo mixing, output formats.
//
// A voice models a channel of the original sound chip: it plays a run of memory once, then repeats
// a loop. A changed loop takes effect when the current run has ended.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#pragma GCC visibility push(default)

/// Clock of the sound chip in Hz, on PAL machines: a voice plays 4 x MOD_Clock / Period samples per
/// second.
constexpr double MOD_Clock = 3546895.0;

/// Interpolation between samples.
enum MOD_INTERPOLATION : uint8_t {
    MOD_NEAREST,  // the sample before, as on the original chip
    MOD_LINEAR,
    MOD_CUBIC,  // a Catmull-Rom spline through four samples
    MOD_SINC,   // band-limited, over sixteen samples; frequencies above the output's range are
                // attenuated
};

constexpr size_t MOD_Taps = 16;                  // samples read by the widest one
constexpr size_t MOD_Before = MOD_Taps / 2 - 1;  // of these, before the position

/// Positions in samples, with 32 fractional bits.
struct MOD_VOICE {
    const int8_t *Data;      // null: silent until a loop is heard
    uint64_t Position;       // in Data
    uint32_t End;            // of the current run
    const int8_t *LoopData;  // the loop that follows it; null: nothing
    uint32_t LoopStart, LoopEnd;
    uint32_t Period;  // of a sample, in quarters of a chip clock; 0: silent
    uint8_t Volume;   // 0 to 64
    bool Started;     // a run was set since the voice was last mixed
    bool On;          // a run was ever set: before the first one no loop is heard
    // The mixer's own state:
    std::array<int8_t, MOD_Before> Past;  // samples played before the position
    int32_t Gain, From, Target;           // the ramp from one volume to another:
    int32_t RampFrames;                   // left of it
    int32_t Heard;                        // the last value that was added to a bus
    int32_t Tail, TailFrames;  // a cut note's last value, and the frames left of its fade
};

/// The output format.
struct MOD_FORMAT {
    uint32_t Channels;  // 1: both sides, 2: left and right, more: the others are silent
    uint32_t Rate;      // Hz
    uint32_t Bits;      // 8 (unsigned), 16, 24 or 32 (signed, little-endian)
};

constexpr size_t MOD_Block = 512;  // frames mixed at a time

struct MOD_FILTER {
    std::array<double, 5> Weights;  // of the input now, once and twice before; of the output before
    std::array<std::array<double, 4>, 2> Past;  // the previous values of each bus
};

struct MOD_MIXER {
    std::array<std::array<int32_t, MOD_Block>, 2> Buses;  // of the left and the right channels
    bool Filter;          // the low-pass that the chip's power light switches
    uint32_t FilterRate;  // the rate that LowPass was computed for
    MOD_FILTER LowPass;
    MOD_INTERPOLATION Interpolation;
    uint8_t Separation;  // stereo separation in percent; 0: mono, 100: separate sides
};

/// Builds the mixer's tables in advance; otherwise the first block does.
void MOD_MakeTables();

/// Bytes of a frame; 0 for a format that cannot be rendered.
uint32_t MOD_FrameBytes(const MOD_FORMAT &format);

/// Renders `frames` (at most MOD_Block) of all voices to `out`. The voices are panned left, right,
/// right, left and so on. All voices at full volume together just reach full scale.
void MOD_Mix(MOD_MIXER &mixer, std::span<MOD_VOICE> voices, const MOD_FORMAT &format, size_t frames,
             uint8_t *out);

/// Advances by `frames` without rendering. Volumes change at once and cut notes leave no tail, so
/// the output is exact again only a few milliseconds later.
void MOD_SkipFrames(std::span<MOD_VOICE> voices, uint32_t rate, size_t frames);

#pragma GCC visibility pop
