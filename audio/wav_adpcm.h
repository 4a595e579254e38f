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

/// A channel's decoder, set anew by every block's header.
struct WAV_CHANNEL {
    uint8_t Predictor;                   // Microsoft: index of the coefficients
    int32_t Coefficient1, Coefficient2;  // in use, in 1/256
    int32_t Delta;
    int32_t Newest;  // sample; also IMA's predictor
    int32_t Previous;
    int8_t StepIndex;  // IMA: 0 to 88
};

/// The largest delta, which keeps the arithmetic within 32 bits; a sound that meets it is damaged.
constexpr int32_t WAV_MaxDelta = INT32_MAX / 768;

/// A prediction in 1/256 as a sample: truncated toward zero by the framework's rules, rounded down
/// by the format's.
template <bool FormatRules>
constexpr int32_t WAV_MS_ADPCM_Round(int32_t sum)
{
    if constexpr (FormatRules)
        return sum >> 8;
    else
        return sum / 256;
}

/// The sample (16 bits) that a code of 4 bits stands for; moves the channel on.
template <bool FormatRules = false>
int32_t WAV_MS_ADPCM_Next(WAV_CHANNEL &channel, uint32_t code)
{
    // Modulo 2^32: what damaged files ask for may pass it.
    const int32_t sum = static_cast<int32_t>(
        static_cast<uint32_t>(channel.Newest) * static_cast<uint32_t>(channel.Coefficient1) +
        static_cast<uint32_t>(channel.Previous) * static_cast<uint32_t>(channel.Coefficient2));
    const int32_t difference = (static_cast<int32_t>(code ^ 8) - 8) * channel.Delta;
    const int32_t sample = Sound_Clamp16(WAV_MS_ADPCM_Round<FormatRules>(sum) + difference);
    channel.Previous = channel.Newest;
    channel.Newest = sample;
    const int32_t delta = WAV_ADPCM_ADAPTATION_TABLE[code] * channel.Delta >> 8;
    channel.Delta = delta < 16 ? 16 : delta;
    if (delta > WAV_MaxDelta) [[unlikely]]
        channel.Delta = WAV_MaxDelta;
    return sample;
}

/// IMA ADPCM: what a code adds to the predictor at each step.
constexpr std::array<std::array<int32_t, 16>, 89> WAV_IMA_Differences()
{
    std::array<std::array<int32_t, 16>, 89> table{};
    for (size_t i = 0; i < table.size(); i++)
        for (uint32_t code = 0; code < 16; code++) {
            const int32_t step = WAV_ADPCM_STEP_TABLE[i];
            const int32_t difference = (step >> 3) + ((code & 4) != 0 ? step : 0) +
                                       ((code & 2) != 0 ? step >> 1 : 0) +
                                       ((code & 1) != 0 ? step >> 2 : 0);
            table[i][code] = (code & 8) != 0 ? -difference : difference;
        }
    return table;
}
inline constexpr std::array<std::array<int32_t, 16>, 89> WAV_IMA_Difference = WAV_IMA_Differences();

/// The same for IMA's codec.
inline int32_t WAV_IMA_ADPCM_Next(WAV_CHANNEL &channel, uint32_t code)
{
    const int32_t index = channel.StepIndex;
    const int32_t sample =
        Sound_Clamp16(channel.Newest + WAV_IMA_Difference[static_cast<size_t>(index)][code]);
    channel.Newest = sample;
    channel.StepIndex = static_cast<int8_t>(std::clamp(index + WAV_ADPCM_INDEX_TABLE[code], 0, 88));
    return sample;
}

/// What the decoding of blocks needs of a file's header.
struct WAV_ADPCM {
    std::span<const int32_t, 32> Coefficients1, Coefficients2;  // Microsoft
    std::span<WAV_CHANNEL, 2> Channels;
    bool Stereo;
    bool FormatRules;
    uint8_t LastPair = 6;  // of the coefficients that blocks may choose
};

/// Decodes a block into 16-bit little-endian samples, as many as `out` holds. Returns the bytes
/// written. A block shorter than its header gives none.
size_t WAV_MS_ADPCM_Block(const WAV_ADPCM &adpcm, std::span<const uint8_t> block,
                          std::span<uint8_t> out);

/// The same for IMA's codec. The framework's rules do not output the header's samples, on purpose.
size_t WAV_IMA_ADPCM_Block(const WAV_ADPCM &adpcm, std::span<const uint8_t> block,
                           std::span<uint8_t> out);

#pragma GCC visibility pop
