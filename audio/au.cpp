#include "audio/au.h"

#include "audio/g711.h"

SOUND_TABLE<AU_HEADER> AU_Header;
uint8_t AU_SoundNumber = 0;
SOUND_FILE AU_File;

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

static void ReadHeader(AU_HEADER &record)
{
    const auto at = [](uint64_t position) { return Sound_BigAt(AU_File, position, 4); };
    record.DataStart = at(4);
    record.Encoding = static_cast<uint16_t>(at(12));
    record.SamplingRate = at(16);
    record.Channels = static_cast<uint16_t>(at(20));
    record.BitsPerSample = BitsOf(record.Encoding);
}

void AU_Load(const char *path)
{
    Sound_Load(AU_Header, AU_SoundNumber, AU_File, path, ReadHeader);
}

// Fills all of the buffer, past the end of the file too, on purpose.
static uint32_t Endless(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert)
{
    Sound_ReadSamples(refill, bytes, convert);
    return Sound_Length(refill, Sound_Begun(refill.Buffer.size(), bytes), 1);
}

void AU_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    const AU_HEADER *record = AU_GetHeader(n);
    const SOUND_REFILL refill = {file, {buffer, *length}};
    if (!record) {
        *length = 0;
        return;
    }
    switch (record->Encoding) {
    case 1:
        *length = Sound_G711(refill, AUDIO_ULAW);
        break;
    case 2:
        *length = Sound_Samples(refill, 1, Sound_From8);
        break;
    case 3:
        *length = Endless(refill, 2, Sound_Swap16);
        break;
    case 4:
        *length = Sound_Samples(refill, 3, Sound_Swap24);
        break;
    case 5:
        *length = Endless(refill, 4, Sound_Swap32);
        break;
    case 27:
        *length = Sound_G711(refill, AUDIO_ALAW);
        break;
    }
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
