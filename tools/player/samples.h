// Samples as sound cards and files take them: their formats, conversion and gain.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Interleaved, little-endian; of 8 bits unsigned, of 16, 24 and 32 signed, or floating point of 32
/// bits (IEEE 754) with full scale at 1.
struct SAMPLES_FORMAT {
    uint32_t Bits = 0, Channels = 0, Hz = 0;
    bool Float = false;

    bool operator==(const SAMPLES_FORMAT &) const = default;
    uint32_t FrameBytes() const
    {
        return Bits / 8 * Channels;
    }
};

/// Scales samples (no floating point) of so many bits by a gain of at most 1.
void Samples_Scale(std::span<uint8_t> samples, uint32_t bits, double gain);

/// The largest magnitude of such samples, of full scale 1.
double Samples_Peak(std::span<const uint8_t> samples, uint32_t bits);

/// Appends the same samples with other bits: exact where they become more, rounded and clamped
/// where they become less.
void Samples_Convert(std::span<const uint8_t> samples, const SAMPLES_FORMAT &from,
                     const SAMPLES_FORMAT &to, std::vector<uint8_t> &out);

/// Another rate, by a windowed sinc of 64 frames of the lower rate on each side, and another number
/// of channels: two become one by their mean, one becomes two alike, further ones are silent.
struct SAMPLES_RESAMPLER {
    SAMPLES_FORMAT From, To;
    std::vector<float> Filter;  // its right half, 512 steps a frame
    uint32_t Reach = 0;         // frames on each side
    std::vector<float> Frames;  // of From, those that are still needed
    uint64_t Position = 0;      // of the next frame in Frames, in 1 / To.Hz of one
    uint64_t Owed = 0;          // frames that came, in 1 / To.Hz, and are not given yet

    SAMPLES_RESAMPLER(const SAMPLES_FORMAT &from, const SAMPLES_FORMAT &to);
    /// Forgets what came, as after a seek.
    void Clear();
    /// Takes frames of From, none at the end; appends those of To that they make. The end makes
    /// their number that of the whole sound: frames times rate by rate, rounded up.
    void Resample(std::span<const uint8_t> samples, std::vector<uint8_t> &out);
};
