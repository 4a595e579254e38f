// The two ADPCM codecs of WAVE files, block by block: Microsoft's ("New Multimedia Data Types and
// Data Techniques", 1994) and IMA's ("Recommended Practices for Enhancing Digital Audio
// Compatibility in Multimedia Systems", 1992).
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "audio/sound_file.h"

#pragma GCC visibility push(default)

/// Microsoft ADPCM: how a code scales the next delta, in 1/256.
inline constexpr std::array<int16_t, 16> WAV_ADPCM_ADAPTATION_TABLE = {
    230, 230, 230, 230, 307, 409, 512, 614, 768, 614, 512, 409, 307, 230, 230, 230};

/// IMA ADPCM: how a code moves the step index, and the steps.
inline constexpr std::array<int8_t, 16> WAV_ADPCM_INDEX_TABLE = {-1, -1, -1, -1, 2, 4, 6, 8,
                                                                 -1, -1, -1, -1, 2, 4, 6, 8};
// clang-format off
inline constexpr std::array<uint16_t, 89> WAV_ADPCM_STEP_TABLE = {
    7, 8, 9, 10, 11, 12, 13, 14, 16, 17, 19, 21, 23, 25, 28, 31, 34, 37, 41, 45, 50, 55, 60, 66,
    73, 80, 88, 97, 107, 118, 130, 143, 157, 173, 190, 209, 230, 253, 279, 307, 337, 371, 408, 449,
    494, 544, 598, 658, 724, 796, 876, 963, 1060, 1166, 1282, 1411, 1552, 1707, 1878, 2066, 2272,
    2499, 2749, 3024, 3327, 3660, 4026, 4428, 4871, 5358, 5894, 6484, 7132, 7845, 8630, 9493,
    10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
// clang-format on

/// A channel's decoder; each block's header resets it.
struct WAV_CHANNEL {
    uint8_t Predictor;                   // Microsoft: index of the coefficients
    int32_t Coefficient1, Coefficient2;  // in use, in 1/256
    int32_t Delta;
    int32_t Newest;  // sample; also IMA's predictor
    int32_t Previous;
    int8_t StepIndex;  // IMA: 0 to 88
};

/// The largest delta, which keeps the arithmetic within 32 bits; only a damaged sound reaches it.
constexpr int32_t WAV_MaxDelta = INT32_MAX / 768;

/// The sample (16 bits) of a 4-bit code; advances the channel. By the framework's rules, which
/// truncate the prediction toward zero.
int32_t WAV_MS_ADPCM_Next(WAV_CHANNEL &channel, uint32_t code);
/// The same for IMA's codec.
int32_t WAV_IMA_ADPCM_Next(WAV_CHANNEL &channel, uint32_t code);

/// What decoding blocks needs from a file's header.
struct WAV_ADPCM {
    std::span<const int32_t, 32> Coefficients1, Coefficients2;  // Microsoft
    std::span<WAV_CHANNEL, 2> Channels;
    bool Stereo;
    bool FormatRules;
    uint8_t LastPair = 6;  // the last coefficient pair that blocks may choose
};

/// Decodes a block into 16-bit little-endian samples, as many as fit into `out`. Returns the bytes
/// written, 0 for a block shorter than its header.
size_t WAV_MS_ADPCM_Block(const WAV_ADPCM &adpcm, std::span<const uint8_t> block,
                          std::span<uint8_t> out);

/// The same for IMA's codec. The framework's rules do not output the header's samples, on purpose.
size_t WAV_IMA_ADPCM_Block(const WAV_ADPCM &adpcm, std::span<const uint8_t> block,
                           std::span<uint8_t> out);

#pragma GCC visibility pop
