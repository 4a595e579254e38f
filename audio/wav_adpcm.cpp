#include "audio/wav_adpcm.h"

// Each IMA step is about a tenth larger than the one before, as far as whole numbers allow.
static constexpr bool StepsGrowByTenths()
{
    for (size_t i = 20; i < WAV_ADPCM_STEP_TABLE.size(); i++) {
        const uint32_t before = WAV_ADPCM_STEP_TABLE[i - 1], step = WAV_ADPCM_STEP_TABLE[i];
        if (step * 1000 < before * 1082 || step * 1000 > before * 1116)
            return false;
    }
    return true;
}
static_assert(StepsGrowByTenths());

namespace
{

// IMA ADPCM: what a code adds to the predictor at a step, and the table row of the next step.
struct STEP {
    int32_t Difference;
    uint32_t Row;
};
constexpr uint32_t Row = 16;  // codes
using STEPS = std::array<STEP, Row * WAV_ADPCM_STEP_TABLE.size()>;

// A channel's state while a block is decoded.
struct IMA_CHANNEL {
    int32_t Newest;
    uint32_t Row;
};

}  // namespace

// Built on first use: the table is larger than the code that makes it.
[[gnu::cold]] static STEPS MakeSteps()
{
    STEPS steps;
    for (uint32_t i = 0; i < steps.size(); i++) {
        const uint32_t index = i / Row, code = i % Row;
        const int32_t step = WAV_ADPCM_STEP_TABLE[index];
        const int32_t difference = (step >> 3) + ((code & 4) != 0 ? step : 0) +
                                   ((code & 2) != 0 ? step >> 1 : 0) +
                                   ((code & 1) != 0 ? step >> 2 : 0);
        const int next = static_cast<int>(index) + WAV_ADPCM_INDEX_TABLE[code];
        steps[i] = {(code & 8) != 0 ? -difference : difference,
                    static_cast<uint32_t>(std::clamp(next, 0, 88)) * Row};
    }
    return steps;
}

static const STEPS &Steps()
{
    static const STEPS steps = MakeSteps();
    return steps;
}

// Decodes a code of an IMA channel.
static inline int32_t Next(const STEPS &steps, IMA_CHANNEL &channel, uint32_t code)
{
    const STEP &step = steps[channel.Row + code];
    channel.Newest = Sound_Clamp16(channel.Newest + step.Difference);
    channel.Row = step.Row;
    return channel.Newest;
}

static IMA_CHANNEL Begin(const WAV_CHANNEL &channel)
{
    return {channel.Newest, static_cast<uint32_t>(channel.StepIndex) * Row};
}

static void End(const IMA_CHANNEL &decoded, WAV_CHANNEL &channel)
{
    channel.Newest = decoded.Newest;
    channel.StepIndex = static_cast<int8_t>(decoded.Row / Row);
}

int32_t WAV_IMA_ADPCM_Next(WAV_CHANNEL &channel, uint32_t code)
{
    IMA_CHANNEL state = Begin(channel);
    Next(Steps(), state, code);
    End(state, channel);
    return state.Newest;
}

// Decodes a code of a Microsoft channel. A prediction in 1/256 is truncated toward zero by the
// framework's rules, rounded down by the format's.
template <bool FormatRules>
static inline int32_t Next(WAV_CHANNEL &channel, uint32_t code)
{
    // Modulo 2^32: damaged files may overflow it.
    const int32_t sum = static_cast<int32_t>(
        static_cast<uint32_t>(channel.Newest) * static_cast<uint32_t>(channel.Coefficient1) +
        static_cast<uint32_t>(channel.Previous) * static_cast<uint32_t>(channel.Coefficient2));
    const int32_t difference = (static_cast<int32_t>(code ^ 8) - 8) * channel.Delta;
    const int32_t sample = Sound_Clamp16((FormatRules ? sum >> 8 : sum / 256) + difference);
    channel.Previous = channel.Newest;
    channel.Newest = sample;
    const int32_t delta = WAV_ADPCM_ADAPTATION_TABLE[code] * channel.Delta >> 8;
    channel.Delta = delta < 16 ? 16 : delta;
    if (delta > WAV_MaxDelta) [[unlikely]]
        channel.Delta = WAV_MaxDelta;
    return sample;
}

int32_t WAV_MS_ADPCM_Next(WAV_CHANNEL &channel, uint32_t code)
{
    return Next<false>(channel, code);
}

[[gnu::noinline, gnu::cold]] static int32_t GetWord(std::span<const uint8_t> block, size_t position)
{
    return static_cast<int16_t>(Bytes_GetLittle(block, position, 2));
}

static void PutPair(uint8_t *out, int32_t first, int32_t second)
{
    const uint32_t pair = static_cast<uint16_t>(first) | static_cast<uint32_t>(second) << 16;
    for (int i = 0; i < 4; i++)
        out[i] = static_cast<uint8_t>(pair >> (8 * i));
}

// Microsoft's header: first the predictors of all channels, then delta, newest and previous sample
// of each.
static void ReadMicrosoft(const WAV_ADPCM &adpcm, std::span<const uint8_t> block, size_t channels)
{
    for (size_t i = 0; i < channels; i++) {
        WAV_CHANNEL &channel = adpcm.Channels[i];
        channel.Predictor = std::min(block[i], adpcm.LastPair);
        channel.Coefficient1 = adpcm.Coefficients1[channel.Predictor];
        channel.Coefficient2 = adpcm.Coefficients2[channel.Predictor];
        channel.Delta = GetWord(block, channels + 2 * i);
        channel.Newest = GetWord(block, 3 * channels + 2 * i);
        channel.Previous = GetWord(block, 5 * channels + 2 * i);
    }
}

// The codes after the header, high nibble first: alternating between two channels, or all of one.
template <bool Stereo, bool FormatRules>
[[gnu::noinline, gnu::hot]] static size_t DecodeMicrosoft(std::span<WAV_CHANNEL, 2> channels,
                                                          std::span<const uint8_t> codes,
                                                          std::span<uint8_t> out)
{
    codes = codes.first(std::min(codes.size(), out.size() / 4));
    WAV_CHANNEL left = channels[0], right = channels[1];
    uint8_t *next = out.data();
    for (const uint8_t byte : codes) {
        const int32_t first = Next<FormatRules>(left, byte >> 4);
        int32_t second;
        if constexpr (Stereo)
            second = Next<FormatRules>(right, byte & 15u);
        else
            second = Next<FormatRules>(left, byte & 15u);
        PutPair(next, first, second);
        next += 4;
    }
    channels[0] = left;
    channels[1] = right;
    return 4 * codes.size();
}

// Cold, since a block's own work is little beside that of its codes.
[[gnu::cold]] size_t WAV_MS_ADPCM_Block(const WAV_ADPCM &adpcm, std::span<const uint8_t> block,
                                        std::span<uint8_t> out)
{
    const size_t channels = adpcm.Stereo ? 2 : 1;
    const size_t first = 4 * channels;  // bytes of the header's samples
    if (block.size() < 7 * channels || out.size() < first)
        return 0;
    ReadMicrosoft(adpcm, block, channels);
    const WAV_CHANNEL &left = adpcm.Channels[0], &right = adpcm.Channels[1];
    const std::span<const uint8_t> codes = block.subspan(7 * channels);
    const auto decode = adpcm.Stereo        ? adpcm.FormatRules ? DecodeMicrosoft<true, true>
                                                                : DecodeMicrosoft<true, false>
                               : adpcm.FormatRules ? DecodeMicrosoft<false, true>
                                            : DecodeMicrosoft<false, false>;
    if (!adpcm.Stereo) {
        PutPair(out.data(), left.Previous, left.Newest);
        return first + decode(adpcm.Channels, codes, out.subspan(first));
    }
    PutPair(out.data(), left.Previous, right.Previous);
    PutPair(out.data() + 4, left.Newest, right.Newest);
    return first + decode(adpcm.Channels, codes, out.subspan(first));
}

// IMA's header of a channel: the predictor, the step index and an unused byte.
static void ReadIMA(WAV_CHANNEL &channel, std::span<const uint8_t> block, size_t position)
{
    channel.Newest = GetWord(block, position);
    channel.StepIndex = static_cast<int8_t>(std::min<uint8_t>(block[position + 2], 88));
}

[[gnu::noinline, gnu::hot]] static size_t
DecodeMono(WAV_CHANNEL &channel, std::span<const uint8_t> codes, std::span<uint8_t> out)
{
    codes = codes.first(std::min(codes.size(), out.size() / 4));
    const STEPS &steps = Steps();
    IMA_CHANNEL state = Begin(channel);
    uint8_t *next = out.data();
    for (const uint8_t byte : codes) {
        const int32_t first = Next(steps, state, byte & 15u);
        const int32_t second = Next(steps, state, byte >> 4);
        PutPair(next, first, second);
        next += 4;
    }
    End(state, channel);
    return 4 * codes.size();
}

// 8 bytes are 8 frames: 4 bytes of the left channel, then 4 of the right channel.
[[gnu::noinline, gnu::hot]] static size_t DecodeStereo(std::span<WAV_CHANNEL, 2> channels,
                                                       std::span<const uint8_t> codes,
                                                       std::span<uint8_t> out)
{
    const STEPS &steps = Steps();
    const size_t rounds = std::min(codes.size() / 8, out.size() / 32);
    IMA_CHANNEL left = Begin(channels[0]), right = Begin(channels[1]);
    uint8_t *next = out.data();
    for (size_t i = 0; i < 8 * rounds; i += 8)
#pragma GCC unroll 1
        for (size_t k = i; k < i + 4; k++) {
            const uint8_t l = codes[k], r = codes[k + 4];
            for (const int shift : {0, 4}) {
                const int32_t first = Next(steps, left, l >> shift & 15u);
                PutPair(next, first, Next(steps, right, r >> shift & 15u));
                next += 4;
            }
        }
    End(left, channels[0]);
    End(right, channels[1]);
    return 32 * rounds;
}

// By the format's rules the header's samples are the block's first.
static size_t PutFirst(const WAV_ADPCM &adpcm, std::span<uint8_t> out)
{
    const size_t size = adpcm.Stereo ? 4 : 2;
    if (!adpcm.FormatRules || out.size() < size)
        return 0;
    for (size_t i = 0; i < size; i++)
        out[i] = static_cast<uint8_t>(adpcm.Channels[i / 2].Newest >> (8 * (i % 2)));
    return size;
}

[[gnu::cold]] size_t WAV_IMA_ADPCM_Block(const WAV_ADPCM &adpcm, std::span<const uint8_t> block,
                                         std::span<uint8_t> out)
{
    const size_t header = adpcm.Stereo ? 8 : 4;
    if (block.size() < header)
        return 0;
    ReadIMA(adpcm.Channels[0], block, 0);
    if (adpcm.Stereo)
        ReadIMA(adpcm.Channels[1], block, 4);
    const size_t first = PutFirst(adpcm, out);
    const std::span<const uint8_t> codes = block.subspan(header);
    return first + (adpcm.Stereo ? DecodeStereo(adpcm.Channels, codes, out.subspan(first))
                                 : DecodeMono(adpcm.Channels[0], codes, out.subspan(first)));
}
