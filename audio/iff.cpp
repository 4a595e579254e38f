#include "audio/iff.h"

#include <algorithm>
#include <utility>

#include "audio/sound_frames.h"

constinit thread_local SOUND_TABLE<IFF_HEADER> IFF_Header{};
constinit thread_local uint8_t IFF_SoundNumber = 0;
constinit thread_local SOUND_FILE IFF_File{};
constinit thread_local uint64_t IFF_Position = 0;

// Voice header; its last field, the volume, is ignored, and so is its size.
static void ReadVHDR(IFF_HEADER &record)
{
    record.OneShotCount = IFF_GetDWord();
    record.RepeatCount = IFF_GetDWord();
    record.SamplesPerCycle = IFF_GetDWord();
    record.SamplingRate = IFF_GetWord();
    record.Octaves = IFF_GetByte();
    record.Compression = IFF_GetByte();
    IFF_GetDWord();
}

static void ReadFrameworkHeader(IFF_HEADER &record)
{
    IFF_Position = 0;
    while (const auto chunk = Sound_GetChunk(IFF_File, IFF_Position, Sound_GetBig)) {
        const uint32_t size = chunk->Size;
        switch (chunk->Id) {
        case Sound_Id("FORM"):  // the walk descends into it
            record.BitsPerSample = IFF_GetDWord() == Sound_Id("8SVX") ? 8 : 16;
            break;
        case Sound_Id("VHDR"):
            ReadVHDR(record);
            break;
        case Sound_Id("ANNO"):
            Sound_GetText(IFF_File, IFF_Position, size, record.Annotation);
            break;
        case Sound_Id("BODY"):
            record.DataStart = static_cast<uint32_t>(IFF_Position);
            if (record.BitsPerSample == 0)
                Reason_Set("neither an 8SVX nor a 16SV form");
            if (record.Compression != 0)
                Reason_Set("compression %u, played as linear samples", record.Compression);
            Sound_CheckCut(IFF_File, IFF_Position, size);
            return;
        default:
            IFF_Position += size;
        }
    }
    Reason_Set("no body chunk");
}

// Where the body is, by the format's walk, and its stated size.
static uint32_t FindChunks(IFF_HEADER &record, bool padded)
{
    constexpr uint32_t stereo = 6;  // value of the channel chunk
    bool voice = false;
    uint32_t size = 0;
    IFF_Position = 12;
    IFF_File.Chunks = 0;
    while (const auto chunk = Sound_GetChunk(IFF_File, IFF_Position, Sound_GetBig)) {
        const uint64_t start = IFF_Position;
        if (chunk->Id == Sound_Id("VHDR")) {
            ReadVHDR(record);
            voice = true;
        }
        if (chunk->Id == Sound_Id("CHAN"))
            record.Channels = IFF_GetDWord() == stereo ? 2 : 1;
        if (chunk->Id == Sound_Id("ANNO"))
            Sound_GetText(IFF_File, IFF_Position, chunk->Size, record.Annotation);
        if (chunk->Id == Sound_Id("BODY") && record.DataStart == 0) {
            record.DataStart = static_cast<uint32_t>(start);
            size = chunk->Size;
        }
        if (voice && record.DataStart != 0)
            break;
        IFF_Position = start + chunk->Size + (padded ? chunk->Size % 2 : 0);
    }
    return size;
}

// A step over a channel's stored bytes: a sample of one or two bytes, or a byte of two codes.
static uint32_t StepBytes(const IFF_HEADER &record)
{
    return record.BitsPerSample / 8u;
}

static void ReadFormatHeader(IFF_HEADER &record)
{
    constexpr uint32_t header = 2;  // of a packed channel: an unused byte, then the first sample
    record.BitsPerSample = Sound_BigAt(IFF_File, 8, 4) == Sound_Id("8SVX") ? 8 : 16;
    uint32_t size = FindChunks(record, true);
    if (record.DataStart == 0)  // some writers forget the padding
        size = FindChunks(record, false);
    if (record.DataStart == 0)
        return Reason_Set("no body chunk");
    Sound_CheckCut(IFF_File, record.DataStart, size);
    record.ChannelBytes = std::min(size, record.FileSize - record.DataStart) / record.Channels;
    record.ChannelBytes -= record.ChannelBytes % StepBytes(record);
    record.DataEnd = record.DataStart + record.ChannelBytes;
    if (record.Compression == 0)
        return;
    if (record.Compression > 2 || record.BitsPerSample != 8) {
        Reason_Set("compression %u", record.Compression);
        record.DataEnd = record.DataStart;
    }
    record.DataStart = std::min(record.DataStart + header, record.DataEnd);
}

static void ReadHeader(IFF_HEADER &record)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        ReadFormatHeader(record);
    else
        ReadFrameworkHeader(record);
}

uint8_t IFF_GetByte()
{
    return Sound_GetByte(IFF_File, IFF_Position);
}

uint16_t IFF_GetWord()
{
    return static_cast<uint16_t>(Sound_GetBig(IFF_File, IFF_Position, 2));
}

uint32_t IFF_GetDWord()
{
    return Sound_GetBig(IFF_File, IFF_Position, 4);
}

void IFF_Load(const char *path)
{
    Sound_Load<IFF_HEADER>({IFF_Header, IFF_SoundNumber, IFF_File, ReadHeader}, path);
}

void IFF_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(IFF_GetHeader(n), IFF_Fill, file, buffer, length);
}

// What each code adds to the previous sample: Fibonacci and exponential delta.
constexpr std::array<std::array<int8_t, 16>, 2> IFF_Deltas = {{
    {-34, -21, -13, -8, -5, -3, -2, -1, 0, 1, 2, 3, 5, 8, 13, 21},
    {-128, -64, -32, -16, -8, -4, -2, -1, 0, 1, 2, 4, 8, 16, 32, 64},
}};

// The sample that a code leads to, clamped; only damaged files leave the range.
static int8_t NextSample(const IFF_HEADER &record, int8_t sample, uint32_t code)
{
    const int delta = IFF_Deltas[record.Compression - 1u][code];
    return static_cast<int8_t>(std::clamp(sample + delta, -128, 127));
}

// Stores a channel's samples, leaving room for the other channel's.
static void PutSamples(IFF_HEADER &record, size_t channel, std::span<const uint8_t> bytes,
                       uint8_t *out)
{
    const size_t step = StepBytes(record) * record.Channels;
    if (record.Compression == 0 && record.BitsPerSample == 16) {
        for (size_t i = 0; i + 1 < bytes.size(); i += 2, out += step) {
            out[0] = bytes[i + 1];
            out[1] = bytes[i];
        }
        return;
    }
    int8_t &sample = record.Samples[channel];
    for (const uint8_t byte : bytes) {
        if (record.Compression == 0) {
            *out = byte ^ 0x80;
            out += step;
            continue;
        }
        for (const int shift : {0, 4}) {  // low code first, unlike the description
            sample = NextSample(record, sample, byte >> shift & 15u);
            *out = static_cast<uint8_t>(sample + 128);
            out += step;
        }
    }
}

// Reads as far as the file goes.
static std::span<const uint8_t> ReadAt(FILE *file, uint64_t position, std::span<uint8_t> bytes)
{
    fseeko(file, static_cast<off_t>(position), SEEK_SET);
    return bytes.first(std::fread(bytes.data(), 1, bytes.size(), file));
}

constexpr size_t IFF_Scratch = 8192;

// Sets the packed channels' samples to those before `position`. They are known where the last
// refill ended; elsewhere the codes are summed from the start.
static void FindSamples(IFF_HEADER &record, FILE *file, uint64_t position)
{
    if (record.Compression == 0 || (position == record.Next && position != record.DataStart))
        return;
    std::array<uint8_t, IFF_Scratch> scratch;
    std::array<uint8_t, 2 * IFF_Scratch> unused;
    for (size_t channel = 0; channel < record.Channels; channel++) {
        const uint64_t offset = channel * record.ChannelBytes;
        const auto first = ReadAt(file, record.DataStart - 1 + offset, std::span(scratch).first(1));
        record.Samples[channel] = first.empty() ? int8_t{0} : static_cast<int8_t>(first[0]);
        const uint16_t channels = std::exchange(record.Channels, uint16_t{1});
        for (uint64_t at = record.DataStart; at < position; at += scratch.size()) {
            const size_t count = std::min<uint64_t>(scratch.size(), position - at);
            PutSamples(record, channel, ReadAt(file, at + offset, std::span(scratch).first(count)),
                       unused.data());
        }
        record.Channels = channels;
    }
}

// The format's rules: the right channel's bytes follow the left channel's.
static SOUND_FILLED FillChannels(IFF_HEADER &record, const SOUND_REFILL &refill)
{
    const size_t step = StepBytes(record), unpacked = record.Compression == 0 ? step : 2;
    uint64_t position = record.DataEnd - Sound_Remaining(refill.File, record.DataEnd);
    FindSamples(record, refill.File, position);
    std::array<uint8_t, IFF_Scratch> scratch;
    uint8_t *out = refill.Buffer.data();
    size_t room = refill.Buffer.size() / (unpacked * record.Channels) * step;
    for (size_t count = 1; count != 0; position += count, room -= count) {
        count = std::min<uint64_t>({room, record.DataEnd - position, scratch.size()});
        count -= count % step;
        for (size_t channel = 0; channel < record.Channels && count != 0; channel++) {
            const auto bytes = ReadAt(refill.File, position + channel * record.ChannelBytes,
                                      std::span(scratch).first(count));
            count = bytes.size() - bytes.size() % step;
            PutSamples(record, channel, bytes.first(count), out + channel * step);
        }
        out += count / step * unpacked * record.Channels;
    }
    record.Next = static_cast<uint32_t>(position);
    fseeko(refill.File, static_cast<off_t>(position), SEEK_SET);
    const auto stored = static_cast<uint32_t>(out - refill.Buffer.data());
    return {stored, stored};
}

SOUND_FILLED IFF_Fill(IFF_HEADER &record, const SOUND_REFILL &refill)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        return FillChannels(record, refill);
    if (record.BitsPerSample == 8)
        return Sound_Samples(refill, 1, Sound_From8);
    return record.BitsPerSample == 16 ? Sound_Pairs(refill, Sound_SwapWide16)
                                      : Sound_Nothing(refill);
}

uint64_t IFF_Seek(IFF_HEADER &record, FILE *file, uint64_t frame)
{
    const bool byFormat = record.Rules == AUDIO_RULES_FORMAT;
    const uint64_t frames = byFormat && record.Compression != 0 ? 2 : 1;
    return Sound_Seek(file, record.DataStart, byFormat ? record.DataEnd : record.FileSize,
                      {StepBytes(record), frames}, frame);
}

void IFF_Destroy()
{
    Sound_Destroy(IFF_Header);
}

IFF_HEADER *IFF_GetHeader(uint8_t n)
{
    return Sound_GetHeader(IFF_Header, n);
}

void IFF_SetSoundNumber(uint8_t n)
{
    IFF_SoundNumber = n;
}
