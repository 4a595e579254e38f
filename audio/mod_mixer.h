// From voices to sound: resampling, the two sides of the stereo picture, output formats.
//
// A voice models a channel of the original sound chip: it plays a run of memory once, then a loop
// over and over, and a change of the loop is heard when the run that is playing has ended.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#pragma GCC visibility push(default)

/// Clock of the sound chip in Hz, on PAL machines: a voice plays 4 x MOD_Clock / Period samples a
/// second.
constexpr double MOD_Clock = 3546895.0;

/// What is heard between the samples.
enum MOD_INTERPOLATION : uint8_t {
    MOD_NEAREST,  // the sample before, as the original chip
    MOD_LINEAR,
    MOD_CUBIC,  // a Catmull-Rom spline through four samples
    MOD_SINC,   // band-limited, by sixteen samples; what lies above the output's range is damped
};

constexpr size_t MOD_Taps = 16;                  // samples that the widest of them reads
constexpr size_t MOD_Before = MOD_Taps / 2 - 1;  // of these before the position

/// Positions in samples, with 32 fractional bits.
struct MOD_VOICE {
    const int8_t *Data;      // null: silent until a loop is heard
    uint64_t Position;       // in Data
    uint32_t End;            // of the run that plays
    const int8_t *LoopData;  // what follows it; null: nothing
    uint32_t LoopStart, LoopEnd;
    uint32_t Period;  // of a sample, in quarters of a clock of the chip; 0: silent
    uint8_t Volume;   // 0 to 64
    bool Started;     // a run was set since the voice was last heard
    bool On;          // a run was ever set: before the first no loop is heard
    // What the mixer keeps:
    std::array<int8_t, MOD_Before> Past;  // what was played before the position
    int32_t Gain, From, Target;           // on its way from one volume to another:
    int32_t RampFrames;                   // left of that
    int32_t Heard;                        // the last value of the run that went into a bus
    int32_t Tail, TailFrames;             // what a cut note left, and how long it is still heard
};

/// What the sound card gets.
struct MOD_FORMAT {
    uint32_t Channels;  // 1: both sides, 2: left and right, more: the others are silent
    uint32_t Rate;      // Hz
    uint32_t Bits;      // 8 (unsigned), 16, 24 or 32 (signed, little-endian)
};

constexpr size_t MOD_Block = 512;  // frames that are mixed at a time

struct MOD_FILTER {
    std::array<double, 5> Weights;  // of the input now, once and twice before; of the output before
    std::array<std::array<double, 4>, 2> Past;  // those of each bus
};

struct MOD_MIXER {
    std::array<std::array<int32_t, MOD_Block>, 2> Buses;  // of the left and the right channels
    bool Filter;          // the low-pass that the chip's power light switches
    uint32_t FilterRate;  // that LowPass was made for
    MOD_FILTER LowPass;
    MOD_INTERPOLATION Interpolation;
    uint8_t Separation;  // of the sides in percent; 0: both alike, 100: neither hears the other
};

/// Makes the mixer's tables, which otherwise its first block does.
void MOD_MakeTables();

/// Bytes of a frame; 0 for a format that cannot be rendered.
uint32_t MOD_FrameBytes(const MOD_FORMAT &format);

/// Renders `frames` (at most MOD_Block) of all voices to `out`. The voices stand left, right,
/// right, left and so on. All voices at their full volume just reach full scale.
void MOD_Mix(MOD_MIXER &mixer, std::span<MOD_VOICE> voices, const MOD_FORMAT &format, size_t frames,
             uint8_t *out);

/// Goes on by `frames` without rendering them. What the next frames sound like is settled a few
/// milliseconds later: volumes arrive at once, and cut notes leave nothing.
void MOD_SkipFrames(std::span<MOD_VOICE> voices, uint32_t rate, size_t frames);

#pragma GCC visibility pop
