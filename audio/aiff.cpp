#include "audio/aiff.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "audio/g711.h"
#include "platform/system.h"

constinit thread_local SOUND_TABLE<AIFF_HEADER> AIFF_Header{};
constinit thread_local uint8_t AIFF_SoundNumber = 0;
constinit thread_local SOUND_FILE AIFF_File{};
constinit thread_local uint64_t AIFF_Position = 0;

namespace
{

// An AIFF-C compression: the samples' coding, the bytes of each (0: as the common chunk says), and
// whether they are big-endian.
struct AIFF_COMPRESSION {
    std::string_view Name;  // letters of any case
    SOUND_CODING Coding;
    uint8_t Bytes;
    bool Big;
};

}  // namespace

// Of the names in the text, the last in this list wins. Without a text, or without any of these
// names, samples are linear.
static uint16_t CodecOf(const char *compression)
{
    constexpr std::array<std::pair<const char *, uint16_t>, 3> names = {
        {{"raw", 1}, {"alaw", 2}, {"ulaw", 3}}};
    uint16_t codec = 0;
    for (const auto &[name, value] : names) {
        uint32_t position = 0;
        if (System_StrSearch(compression, name, &position, -32))
            codec = value;
    }
    return codec;
}

static void ReadCOMM(AIFF_HEADER &record, uint32_t size)
{
    constexpr uint32_t fields = 18;  // bytes before the compression
    record.Channels = AIFF_GetWord();
    record.FrameCount = AIFF_GetDWord();
    record.BitsPerSample = AIFF_GetWord();
    for (uint8_t &byte : record.Rate)
        byte = AIFF_GetByte();
    record.SamplingRate = System_MakeUWord(record.Rate[3], record.Rate[2]);
    Sound_GetText(AIFF_File, AIFF_Position, size > fields ? size - fields : 0, record.Compression);
    record.Codec = CodecOf(record.Compression.data());
    if (record.Codec == 2 || record.Codec == 3)
        record.BitsPerSample = 16;
}

// Fills the record up to the sound data and returns its size. False if the walk finds none.
static bool WalkChunks(AIFF_HEADER &record, uint32_t &soundSize, bool padded)
{
    AIFF_Position = 0;
    AIFF_File.Chunks = 0;
    while (const auto chunk = Sound_GetChunk(AIFF_File, AIFF_Position, Sound_GetBig)) {
        const uint32_t size = chunk->Size;
        switch (chunk->Id) {
        case Sound_Id("FORM"):  // the walk descends into it, whatever its type
            AIFF_GetDWord();
            break;
        case Sound_Id("COMM"):
            ReadCOMM(record, size);
            break;
        case Sound_Id("SSND"):
            record.DataStart = static_cast<uint32_t>(AIFF_Position);
            soundSize = size;
            return true;
        default:
            AIFF_Position += uint64_t{size} + (padded ? size % 2 : 0);
        }
    }
    return false;
}

// Chunks lie back to back, on purpose. Only if that leads to no sound data is each taken to start
// at an even offset, as the standard asks.
static void ReadFrameworkHeader(AIFF_HEADER &record)
{
    AIFF_HEADER padded = record;
    uint32_t size = 0;
    bool found = WalkChunks(record, size, false);
    if (!found && (found = WalkChunks(padded, size, true)))
        record = padded;
    if (!found)
        return Reason_Set("no sound data chunk");
    const uint16_t bits = record.BitsPerSample;
    if (record.Codec == 0 && bits != 8 && bits != 16 && bits != 24 && bits != 32)
        Reason_Set("%u bits a sample", bits);
    Sound_CheckCut(AIFF_File, record.DataStart, size);
}

constexpr std::array<AIFF_COMPRESSION, 13> AIFF_Compressions = {{
    {"none", SOUND_SIGNED, 0, true},
    {"twos", SOUND_SIGNED, 0, true},
    {"sowt", SOUND_SIGNED, 0, false},
    {"raw ", SOUND_UNSIGNED, 0, true},
    {"in16", SOUND_SIGNED, 2, true},
    {"in24", SOUND_SIGNED, 3, true},
    {"42ni", SOUND_SIGNED, 3, false},
    {"in32", SOUND_SIGNED, 4, true},
    {"23ni", SOUND_SIGNED, 4, false},
    {"fl32", SOUND_FLOAT, 4, true},
    {"fl64", SOUND_FLOAT, 8, true},
    {"alaw", SOUND_ALAW, 1, true},
    {"ulaw", SOUND_ULAW, 1, true},
}};

static bool IsNamed(std::string_view name, std::string_view text)
{
    return std::equal(name.begin(), name.end(), text.begin(), text.end(),
                      [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b + 32 : b); });
}

// A file's samples; linear without a compression name.
static SOUND_FRAMES FramesOf(const AIFF_HEADER &record)
{
    const std::string_view text(record.Compression.data());
    const auto *row = text.empty() ? &AIFF_Compressions.front()
                                   : std::ranges::find_if(AIFF_Compressions, [&](const auto &c) {
                                         return IsNamed(c.Name, text.substr(0, 4));
                                     });
    SOUND_FRAMES frames;
    frames.Swap16 = Sound_SwapWide16;
    if (row == AIFF_Compressions.end()) {
        Reason_Set("compression '%.4s'", text.data());
        return frames;
    }
    frames.Coding = row->Coding;
    frames.Big = row->Big;
    frames.Bytes = row->Bytes != 0 ? row->Bytes : (record.BitsPerSample + 7u) / 8;
    frames.Channels = record.Channels;
    Sound_PrepareFrames(frames);
    return frames;
}

// The rate in Hz by the format's rules, rounded to the nearest whole number.
static uint32_t RateOf(const std::array<uint8_t, 10> &bytes)
{
    const int exponent = ((bytes[0] & 0x7F) << 8 | bytes[1]) - 16383 - 63;
    uint64_t mantissa = 0;
    for (size_t i = 2; i < bytes.size(); i++)
        mantissa = mantissa << 8 | bytes[i];
    const double rate = std::ldexp(static_cast<double>(mantissa), exponent);
    return bytes[0] < 0x80 && rate < 4294967295.0 ? static_cast<uint32_t>(std::lround(rate)) : 0;
}

// The format's walk: chunks in any order.
static uint32_t FindChunks(AIFF_HEADER &record, bool padded)
{
    uint32_t size = 0;
    AIFF_Position = 12;
    AIFF_File.Chunks = 0;
    while (const auto chunk = Sound_GetChunk(AIFF_File, AIFF_Position, Sound_GetBig)) {
        const uint64_t next = AIFF_Position + chunk->Size + (padded ? chunk->Size % 2 : 0);
        if (chunk->Id == Sound_Id("COMM"))
            ReadCOMM(record, chunk->Size);
        if (chunk->Id == Sound_Id("SSND") && record.DataStart == 0) {
            const uint32_t offset = AIFF_GetDWord();
            record.DataStart = static_cast<uint32_t>(
                std::min<uint64_t>(AIFF_Position + 4 + offset, record.FileSize));
            if (chunk->Size < 8)  // 0 in a recording that was not finished: all there is
                size = record.FileSize - record.DataStart;
            else
                size = chunk->Size - 8 - std::min(chunk->Size - 8, offset);
        }
        if (record.DataStart != 0 && record.Channels != 0 && record.Rate[1] != 0)
            break;
        AIFF_Position = next;
    }
    return size;
}

static void ReadFormatHeader(AIFF_HEADER &record)
{
    record.Channels = 0;
    uint32_t size = FindChunks(record, true);
    if (record.Channels == 0 || record.DataStart == 0)  // some writers forget the padding
        size = FindChunks(record, false);
    if (record.Channels == 0)
        return Reason_Set("no common chunk");
    record.Frames = FramesOf(record);
    record.SamplingRate = RateOf(record.Rate);
    record.Channels = Sound_ChannelsOf(record.Frames);
    record.BitsPerSample = Sound_BitsOf(record.Frames);
    if (record.DataStart == 0)
        return Reason_Set("no sound data chunk");
    record.DataEnd = static_cast<uint32_t>(
        std::min<uint64_t>(uint64_t{record.DataStart} + size, record.FileSize));
    Sound_CheckCut(AIFF_File, record.DataStart, size);
}

static void ReadHeader(AIFF_HEADER &record)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        ReadFormatHeader(record);
    else
        ReadFrameworkHeader(record);
}

uint8_t AIFF_GetByte()
{
    return Sound_GetByte(AIFF_File, AIFF_Position);
}

uint16_t AIFF_GetWord()
{
    return static_cast<uint16_t>(Sound_GetBig(AIFF_File, AIFF_Position, 2));
}

uint32_t AIFF_GetDWord()
{
    return Sound_GetBig(AIFF_File, AIFF_Position, 4);
}

void AIFF_Load(const char *path)
{
    Sound_Load<AIFF_HEADER>({AIFF_Header, AIFF_SoundNumber, AIFF_File, ReadHeader}, path);
}

static SOUND_FILLED FillLinear(const SOUND_REFILL &refill, uint16_t bits)
{
    switch (bits) {
    case 8:
        return Sound_Samples(refill, 1, Sound_From8);
    case 16:
        return Sound_Pairs(refill, Sound_SwapWide16);
    case 24:  // not swapped, on purpose
        return Sound_Samples(refill, 3, Sound_Keep);
    case 32:
        return Sound_Samples(refill, 4, Sound_Swap32);
    }
    return Sound_Nothing(refill);
}

void AIFF_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(AIFF_GetHeader(n), AIFF_Fill, file, buffer, length);
}

SOUND_FILLED AIFF_Fill(AIFF_HEADER &record, const SOUND_REFILL &given)
{
    SOUND_REFILL refill = given;
    if (record.Rules == AUDIO_RULES_FORMAT) {
        refill.Available = Sound_Remaining(refill.File, record.DataEnd);
        return Sound_FillFrames(record.Frames, refill);
    }
    switch (record.Codec) {
    case 1:
        return Sound_Samples(refill, 1, Sound_Keep);
    case 2:
        return Sound_G711(refill, AUDIO_ALAW);
    case 3:
        return Sound_G711(refill, AUDIO_ULAW);
    }
    return FillLinear(refill, record.BitsPerSample);
}

uint64_t AIFF_Seek(AIFF_HEADER &record, FILE *file, uint64_t frame)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        return Sound_Seek(file, record.DataStart, record.DataEnd,
                          {Sound_StoredBytes(record.Frames), 1}, frame);
    const uint32_t bits = record.BitsPerSample;
    const bool decoded = record.Codec != 0 || (bits % 8 == 0 && bits <= 32);
    const uint64_t bytes = decoded ? bits / 8 * record.Channels : 0;
    return Sound_Seek(file, record.DataStart, record.FileSize,
                      {record.Codec >= 2 ? bytes / 2 : bytes, 1}, frame);
}

void AIFF_Destroy()
{
    Sound_Destroy(AIFF_Header);
}

AIFF_HEADER *AIFF_GetHeader(uint8_t n)
{
    return Sound_GetHeader(AIFF_Header, n);
}

void AIFF_SetSoundNumber(uint8_t n)
{
    AIFF_SoundNumber = n;
}
