// Sample formats of sound cards and files, conversion between them, and gain.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Interleaved, little-endian: 8 bits unsigned; 16, 24 and 32 signed; or floating point of 32 bits
/// (IEEE 754) with full scale at 1.
struct SAMPLES_FORMAT {
    uint32_t Bits = 0, Channels = 0, Hz = 0;
    bool Float = false;
    bool Dither = false;  // triangular, of two steps in all, where bits are lost

    bool operator==(const SAMPLES_FORMAT &) const = default;
    uint32_t FrameBytes() const
    {
        return Bits / 8 * Channels;
    }
};

/// Scales integer samples of so many bits by a gain of at most 1.
void Samples_Scale(std::span<uint8_t> samples, uint32_t bits, double gain);

/// The largest magnitude of such samples, as a fraction of full scale.
double Samples_Peak(std::span<const uint8_t> samples, uint32_t bits);

/// Appends the samples in another depth: exact if it is greater, rounded and clamped if it is less.
void Samples_Convert(std::span<const uint8_t> samples, const SAMPLES_FORMAT &from,
                     const SAMPLES_FORMAT &to, std::vector<uint8_t> &out);

/// Converts rate and channels. The rate by a windowed sinc of 64 frames of the lower rate on each
/// side; the channels: two become one by their mean, one is copied to two, further ones are silent.
struct SAMPLES_RESAMPLER {
    SAMPLES_FORMAT From, To;
    std::vector<float> Filter;  // right half, 512 steps per frame
    uint32_t Reach = 0;         // frames on each side
    std::vector<float> Frames;  // of From, those still needed
    uint64_t Position = 0;      // of the next output frame in Frames, in units of 1 / To.Hz frames
    uint64_t Owed = 0;          // frames received but not yet output, in units of 1 / To.Hz frames

    SAMPLES_RESAMPLER(const SAMPLES_FORMAT &from, const SAMPLES_FORMAT &to);
    /// Drops what was received, as after a seek.
    void Clear();
    /// Takes frames of From, none at the end; appends the frames of To that they complete. At the
    /// end their total is that of the whole sound: frames times the ratio of the rates, rounded up.
    void Resample(std::span<const uint8_t> samples, std::vector<uint8_t> &out);
};
