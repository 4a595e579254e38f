#include "audio/sound_frames.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "audio/g711.h"

constinit thread_local uint32_t Sound_MixAbove = 2;
constinit thread_local bool Sound_KeepReal = false;

namespace
{

// In 1/32768.
struct WEIGHTS {
    int32_t Left, Right;
};
using MIX = std::array<WEIGHTS, Sound_MaxChannels>;

}  // namespace

// WAVEFORMATEXTENSIBLE's speakers by their bit of the mask; those above the listener count as their
// counterparts at ear level.
constexpr int32_t Sound_Full = 32768, Sound_Part = 23170, Sound_Half = 16384;
constexpr std::array<WEIGHTS, 18> Sound_Speakers = {{
    {Sound_Full, 0},           // front left
    {0, Sound_Full},           // front right
    {Sound_Part, Sound_Part},  // front centre
    {0, 0},                    // low frequencies
    {Sound_Part, 0},           // back left
    {0, Sound_Part},           // back right
    {Sound_Full, 0},           // front left of centre
    {0, Sound_Full},           // front right of centre
    {Sound_Half, Sound_Half},  // back centre
    {Sound_Part, 0},           // side left
    {0, Sound_Part},           // side right
    {Sound_Half, Sound_Half},  // top centre
    {Sound_Part, 0},           // top front left
    {Sound_Half, Sound_Half},  // top front centre
    {0, Sound_Part},           // top front right
    {Sound_Part, 0},           // top back left
    {Sound_Half, Sound_Half},  // top back centre
    {0, Sound_Part},           // top back right
}};

// The usual speakers for a number of channels, where the file names none.
constexpr std::array<uint32_t, 9> Sound_UsualSpeakers = {0,    0x4,  0x3,   0x7,  0x33,
                                                         0x37, 0x3F, 0x70F, 0x63F};

// The channels' weights, lowest speaker bit first; channels without a speaker go to the centre.
static MIX MixOf(const SOUND_FRAMES &frames)
{
    MIX mix{};
    uint32_t speakers = frames.Speakers;
    if (speakers == 0 && frames.Channels < Sound_UsualSpeakers.size())
        speakers = Sound_UsualSpeakers[frames.Channels];
    int64_t left = 0, right = 0;
    for (uint32_t i = 0; i < frames.Channels; i++) {
        const auto speaker = static_cast<size_t>(std::countr_zero(speakers));
        mix[i] = speaker < Sound_Speakers.size() ? Sound_Speakers[speaker]
                                                 : WEIGHTS{Sound_Half, Sound_Half};
        speakers &= speakers - 1;
        left += mix[i].Left;
        right += mix[i].Right;
    }
    const int64_t most = std::max<int64_t>({left, right, Sound_Full});
    for (auto &[toLeft, toRight] : mix) {
        toLeft = static_cast<int32_t>(toLeft * int64_t{Sound_Full} / most);
        toRight = static_cast<int32_t>(toRight * int64_t{Sound_Full} / most);
    }
    return mix;
}

uint16_t Sound_BitsOf(const SOUND_FRAMES &frames)
{
    switch (frames.Coding) {
    case SOUND_FLOAT:
        return 32;
    case SOUND_ALAW:
    case SOUND_ULAW:
        return 16;
    case SOUND_SIGNED:
    case SOUND_UNSIGNED:
        break;
    }
    return static_cast<uint16_t>(8 * std::min(frames.Bytes, 4u));
}

uint16_t Sound_ChannelsOf(const SOUND_FRAMES &frames)
{
    return static_cast<uint16_t>(frames.Mixed ? 2 : frames.Channels);
}

uint32_t Sound_StoredBytes(const SOUND_FRAMES &frames)
{
    return frames.Bytes * frames.Channels;
}

[[gnu::cold]] void Sound_PrepareFrames(SOUND_FRAMES &frames)
{
    const bool real = frames.Coding == SOUND_FLOAT;
    if (frames.Channels == 0 || frames.Channels > Sound_MaxChannels)
        Reason_Set("%u channels", frames.Channels);
    else if (frames.Bytes == 0 || frames.Bytes > 8 || (real && frames.Bytes % 4 != 0))
        Reason_Set("%u bits a sample", 8 * frames.Bytes);
    else {
        frames.Mixed = frames.Channels > Sound_MixAbove;
        frames.Real = real && Sound_KeepReal && !frames.Mixed;
        return;
    }
    frames = {};
}

// A number of up to 8 bytes, in the upper bits.
static uint64_t LeftJustified(const uint8_t *bytes, uint32_t count, bool big)
{
    uint64_t value = 0;
    if (count == 4 && !big)  // the common case, which compilers turn into one load
        return uint64_t{bytes[3]} << 56 | uint64_t{bytes[2]} << 48 | uint64_t{bytes[1]} << 40 |
               uint64_t{bytes[0]} << 32;
    for (uint32_t i = 0; i < count; i++)
        value = value << 8 | bytes[big ? i : count - 1 - i];
    return value << (64 - 8 * count);
}

// Floating point, full level 1, as 32 bits; NaN is silence.
static int32_t FromReal(double value)
{
    const double scaled = value * 2147483648.0;
    if (!(scaled >= -2147483648.0))
        return std::isnan(scaled) ? 0 : INT32_MIN;
    constexpr double whole = 0x1.8p52;  // so large that adding it rounds to whole numbers
    return scaled >= 2147483647.0 ? INT32_MAX : static_cast<int32_t>(scaled + whole - whole);
}

// A stored sample, left-justified in 32 bits.
static int32_t SampleOf(const SOUND_FRAMES &frames, const uint8_t *bytes)
{
    switch (frames.Coding) {
    case SOUND_ALAW:
        return Audio_Alaw(*bytes) * 65536;
    case SOUND_ULAW:
        return Audio_Ulaw(*bytes) * 65536;
    default:
        break;
    }
    const uint64_t value = LeftJustified(bytes, frames.Bytes, frames.Big);
    const auto upper = static_cast<uint32_t>(value >> 32);
    if (frames.Coding != SOUND_FLOAT)
        return static_cast<int32_t>(frames.Coding == SOUND_UNSIGNED ? upper ^ 0x80000000 : upper);
    if (frames.Bytes == 4)
        return FromReal(double{std::bit_cast<float>(upper)});
    const auto real = std::bit_cast<double>(value);
    return frames.Real ? std::bit_cast<int32_t>(static_cast<float>(real)) : FromReal(real);
}

static uint8_t *PutSample(uint8_t *out, int32_t sample, uint32_t bytes)
{
    if (bytes == 1)
        sample ^= INT32_MIN;  // unsigned
    for (uint32_t i = 0; i < bytes; i++)
        *out++ = static_cast<uint8_t>(static_cast<uint32_t>(sample) >> (32 - 8 * (bytes - i)));
    return out;
}

constexpr size_t Sound_Scratch = 8192;  // bytes of stored frames

// Mixes frames down to two channels, in place. Returns the end of their samples.
static int32_t *Mix(const SOUND_FRAMES &frames, const MIX &mix, int32_t *samples,
                    const int32_t *end)
{
    int32_t *out = samples;
    while (samples != end) {
        int64_t left = 0, right = 0;
        for (uint32_t channel = 0; channel < frames.Channels; channel++) {
            const int64_t sample = *samples++;
            left += sample * mix[channel].Left;
            right += sample * mix[channel].Right;
        }
        *out++ = static_cast<int32_t>(left >> 15);
        *out++ = static_cast<int32_t>(right >> 15);
    }
    return out;
}

// Stores frames in the buffer's format.
static void ConvertFrames(const SOUND_FRAMES &frames, const MIX &mix,
                          std::span<const uint8_t> stored, uint8_t *out)
{
    std::array<int32_t, Sound_Scratch> samples;
    int32_t *end = samples.data();
    for (size_t at = 0; at < stored.size(); at += frames.Bytes)
        *end++ = SampleOf(frames, &stored[at]);
    if (frames.Mixed)
        end = Mix(frames, mix, samples.data(), end);
    const uint32_t bytes = Sound_BitsOf(frames) / 8u;
    for (const int32_t *sample = samples.data(); sample != end; sample++)
        out = PutSample(out, *sample, bytes);
}

// The conversion of stored samples, in place, to what a buffer holds; null if they need more.
static SOUND_CONVERSION ConversionOf(const SOUND_FRAMES &frames)
{
    if (frames.Mixed || frames.Bytes > 4 || (frames.Coding > SOUND_UNSIGNED && !frames.Real))
        return nullptr;
    if (frames.Coding == SOUND_UNSIGNED)
        return frames.Bytes == 1 ? Sound_Keep : nullptr;
    const std::array<SOUND_CONVERSION, 5> swaps = {nullptr, nullptr, frames.Swap16, Sound_Swap24,
                                                   Sound_Swap32};
    if (frames.Bytes == 1)
        return Sound_TurnSign;
    return frames.Big ? swaps[frames.Bytes] : Sound_Keep;
}

SOUND_FILLED Sound_FillFrames(const SOUND_FRAMES &frames, const SOUND_REFILL &refill)
{
    const size_t in = Sound_StoredBytes(frames);
    if (in == 0)
        return {};
    const size_t out = Sound_BitsOf(frames) / 8u * Sound_ChannelsOf(frames);
    const size_t wanted = std::min<uint64_t>(refill.Buffer.size() / out, refill.Available / in);
    if (!frames.Mixed && (frames.Coding == SOUND_ALAW || frames.Coding == SOUND_ULAW)) {
        const uint32_t filled =
            Sound_G711({refill.File, refill.Buffer.first(wanted * out), true, wanted * in},
                       frames.Coding == SOUND_ALAW ? AUDIO_ALAW : AUDIO_ULAW)
                .Stored;
        return {filled, filled};
    }
    std::array<uint8_t, Sound_Scratch> scratch;
    const MIX mix = frames.Mixed ? MixOf(frames) : MIX{};
    const SOUND_CONVERSION convert = ConversionOf(frames);
    const size_t most = convert ? wanted : scratch.size() / in;
    size_t done = 0;
    while (done < wanted) {
        uint8_t *to = refill.Buffer.data() + done * out, *from = convert ? to : scratch.data();
        const size_t asked = std::min(most, wanted - done);
        const size_t read = std::fread(from, 1, asked * in, refill.File) / in;
        if (convert)
            convert({to, read * out});
        else
            ConvertFrames(frames, mix, {from, read * in}, to);
        done += read;
        if (read < asked)
            break;
    }
    const auto stored = static_cast<uint32_t>(done * out);
    return {stored, stored};
}

uint64_t Sound_Remaining(FILE *file, uint64_t end)
{
    const off_t position = ftello(file);
    return position < 0 || static_cast<uint64_t>(position) > end
               ? 0
               : end - static_cast<uint64_t>(position);
}
