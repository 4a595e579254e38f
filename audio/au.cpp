#include "audio/au.h"

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

static void ReadHeader(AU_HEADER &record)
{
    const auto at = [](uint64_t position) { return Sound_BigAt(AU_File, position, 4); };
    record.DataStart = at(4);
    record.Encoding = static_cast<uint16_t>(at(12));
    record.SamplingRate = at(16);
    record.Channels = static_cast<uint16_t>(at(20));
    record.BitsPerSample = BitsOf(record.Encoding);
    if (!IsDecoded(record.Encoding))
        Reason_Set("encoding %u", record.Encoding);
    constexpr uint32_t unknown = UINT32_MAX;  // of a sound that was not complete yet
    if (const uint32_t size = at(8); size != unknown)
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

SOUND_FILLED AU_Fill(AU_HEADER &record, const SOUND_REFILL &refill)
{
    switch (record.Encoding) {
    case 1:
        return Sound_G711(refill, AUDIO_ULAW);
    case 2:
        return Sound_Samples(refill, 1, Sound_From8);
    case 3:
        return Sound_Endless(refill, 2, Sound_Swap16);
    case 4:
        return Sound_Samples(refill, 3, Sound_Swap24);
    case 5:
        return Sound_Endless(refill, 4, Sound_Swap32);
    case 27:
        return Sound_G711(refill, AUDIO_ALAW);
    }
    return Sound_Nothing(refill);
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
