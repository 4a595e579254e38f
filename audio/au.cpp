#include "audio/au.h"

#include <algorithm>

#include "audio/g711.h"

constinit thread_local SOUND_TABLE<AU_HEADER> AU_Header{};
constinit thread_local uint8_t AU_SoundNumber = 0;
constinit thread_local SOUND_FILE AU_File{};

static uint16_t BitsOf(uint16_t encoding)
{
    switch (encoding) {
    case 1:
    case 3:
    case 27:
        return 16;
    case 4:
        return 24;
    case 5:
        return 32;
    }
    return 8;
}

static bool IsDecoded(uint16_t encoding)
{
    return (encoding >= 1 && encoding <= 5) || encoding == 27;
}

namespace
{

struct AU_ENCODING {
    uint16_t Number;
    SOUND_CODING Coding;
    uint8_t Bytes;
};

}  // namespace

// The encodings that the format's rules decode.
constexpr std::array<AU_ENCODING, 8> AU_Encodings = {{
    {1, SOUND_ULAW, 1},
    {2, SOUND_SIGNED, 1},
    {3, SOUND_SIGNED, 2},
    {4, SOUND_SIGNED, 3},
    {5, SOUND_SIGNED, 4},
    {6, SOUND_FLOAT, 4},
    {7, SOUND_FLOAT, 8},
    {27, SOUND_ALAW, 1},
}};

constexpr uint32_t AU_Magic = Sound_Id(".snd");
constexpr uint32_t AU_Unknown = UINT32_MAX;  // size stated before the sound was finished

// The format's rules for the header's fields after the size.
static void ReadFormatFields(AU_HEADER &record, uint32_t encoding, uint32_t channels, uint32_t size,
                             bool big)
{
    const auto row = std::ranges::find(AU_Encodings, encoding, &AU_ENCODING::Number);
    if (row == AU_Encodings.end())
        return Reason_Set("encoding %u", encoding);
    record.Frames = {row->Coding, row->Bytes, big, channels};
    record.Frames.Swap16 = Sound_SwapWide16;
    Sound_PrepareFrames(record.Frames);
    record.Channels = Sound_ChannelsOf(record.Frames);
    record.BitsPerSample = Sound_BitsOf(record.Frames);
    const uint64_t end = uint64_t{record.DataStart} + size;
    const bool known = size != AU_Unknown && size != 0;
    record.DataEnd = known && end < record.FileSize ? static_cast<uint32_t>(end) : record.FileSize;
}

static void ReadHeader(AU_HEADER &record)
{
    const bool little =
        record.Rules == AUDIO_RULES_FORMAT && Sound_BigAt(AU_File, 0, 4) != AU_Magic;
    const auto get = little ? Sound_LittleAt : Sound_BigAt;
    const auto at = [get](uint64_t position) { return get(AU_File, position, 4); };
    constexpr uint32_t headerBytes = 24;  // of the fields before the annotation
    record.DataStart = record.Rules == AUDIO_RULES_FORMAT ? std::max(at(4), headerBytes) : at(4);
    record.Encoding = static_cast<uint16_t>(at(12));
    record.SamplingRate = at(16);
    record.Channels = static_cast<uint16_t>(at(20));
    record.BitsPerSample = BitsOf(record.Encoding);
    const uint32_t size = at(8);
    if (record.Rules == AUDIO_RULES_FORMAT)
        ReadFormatFields(record, at(12), at(20), size, !little);
    else if (!IsDecoded(record.Encoding))
        Reason_Set("encoding %u", record.Encoding);
    if (size != AU_Unknown)
        Sound_CheckCut(AU_File, record.DataStart, size);
}

void AU_Load(const char *path)
{
    Sound_Load<AU_HEADER>({AU_Header, AU_SoundNumber, AU_File, ReadHeader}, path);
}

void AU_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(AU_GetHeader(n), AU_Fill, file, buffer, length);
}

SOUND_FILLED AU_Fill(AU_HEADER &record, const SOUND_REFILL &given)
{
    SOUND_REFILL refill = given;
    if (record.Rules == AUDIO_RULES_FORMAT) {
        refill.Available = Sound_Remaining(refill.File, record.DataEnd);
        return Sound_FillFrames(record.Frames, refill);
    }
    switch (record.Encoding) {
    case 1:
        return Sound_G711(refill, AUDIO_ULAW);
    case 2:
        return Sound_Samples(refill, 1, Sound_From8);
    case 3:
        return Sound_Endless(refill, 2, Sound_SwapWide16);
    case 4:
        return Sound_Samples(refill, 3, Sound_Swap24);
    case 5:
        return Sound_Endless(refill, 4, Sound_Swap32);
    case 27:
        return Sound_G711(refill, AUDIO_ALAW);
    }
    return Sound_Nothing(refill);
}

uint64_t AU_Seek(AU_HEADER &record, FILE *file, uint64_t frame)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        return Sound_Seek(file, record.DataStart, record.DataEnd,
                          {Sound_StoredBytes(record.Frames), 1}, frame);
    const bool g711 = record.Encoding == 1 || record.Encoding == 27;
    const uint64_t bytes =
        IsDecoded(record.Encoding) ? record.BitsPerSample / 8u * record.Channels : 0;
    return Sound_Seek(file, record.DataStart, record.FileSize, {g711 ? bytes / 2 : bytes, 1},
                      frame);
}

void AU_Destroy()
{
    Sound_Destroy(AU_Header);
}

AU_HEADER *AU_GetHeader(uint8_t n)
{
    return Sound_GetHeader(AU_Header, n);
}

void AU_SetSoundNumber(uint8_t n)
{
    AU_SoundNumber = n;
}
