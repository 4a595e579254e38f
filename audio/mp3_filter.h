// From Layer III's frequency lines to samples, in fixed point: alias reduction and IMDCT for each
// granule, polyphase synthesis for each frame. ISO/IEC 11172-3, 2.4.3.4.10 and 2.4.3.2.2.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "audio/mp3_fixed.h"

#pragma GCC visibility push(default)

constexpr size_t MP3_Subbands = 32;
constexpr size_t MP3_Slots = 18;     // per granule: samples of a subband, and its lines
constexpr size_t MP3_History = 16;   // earlier slots that a sample depends on, and one spare
constexpr size_t MP3_Columns = 40;   // slots of a frame, 36, and padding to whole vectors
constexpr int MP3_CarriedBits = 14;  // of a 16-bit sample's remainder, carried into the next one

/// Lines of a granule: line k of subband s stands at [k][s].
using MP3_SPECTRUM = std::array<std::array<MP3_FIXED, MP3_Subbands>, MP3_Slots>;

/// A channel's state between granules and frames; zero at the start.
struct MP3_FILTER {
    alignas(64) MP3_SPECTRUM Overlap;  // second halves of the last IMDCT
    /// Samples of each subband in a frame.
    alignas(64) std::array<std::array<MP3_FIXED, MP3_Columns>, MP3_Subbands> Samples;
    /// Their cosine transforms across the subbands, following those of the frame before: whole
    /// numbers of 32 bits.
    alignas(64) std::array<std::array<double, MP3_History + MP3_Columns>, MP3_Subbands> Waves;
    uint32_t Remainder;  // what the last sample left below its 16 bits
};

enum MP3_BLOCK : uint8_t { MP3_NORMAL = 0, MP3_START = 1, MP3_SHORT = 2, MP3_STOP = 3 };

/// Distributes the lines of long blocks to the subbands.
void MP3_Arrange(const std::array<MP3_FIXED, MP3_Subbands * MP3_Slots> &lines,
                 MP3_SPECTRUM &spectrum);

/// Alias reduction, IMDCT, windowing, overlapping and frequency inversion of granule 0 or 1 of a
/// frame, into filter.Samples. `lines` are overwritten. Lines from subband `used` on are 0. Short
/// blocks have the lines of their three windows interleaved. `mixed`: the two lowest subbands are
/// long blocks, whatever the others are.
void MP3_Hybrid(MP3_FILTER &filter, MP3_SPECTRUM &lines, size_t used, MP3_BLOCK block, bool mixed,
                size_t granule);

/// Polyphase synthesis of the first `blocks` (18 or 36) slots of each channel's Samples into 32
/// samples each, the channels (1 or 2) interleaved. Each sample is either truncated, its remainder
/// carried into the next one, or `rounded`.
void MP3_Synthesis(std::span<MP3_FILTER> channels, size_t blocks, int16_t *samples,
                   bool rounded = false);

#pragma GCC visibility pop

/// The same with 32 bits per sample, of which the upper 30 are computed.
void MP3_Synthesis(std::span<MP3_FILTER> channels, size_t blocks, int32_t *samples);
