#include "audio/voc.h"

#include "audio/g711.h"

constinit thread_local SOUND_TABLE<VOC_HEADER> VOC_Header{};
constinit thread_local uint8_t VOC_SoundNumber = 0;
constinit thread_local SOUND_FILE VOC_File{};

constexpr uint64_t VOC_FirstBlock = 26;
constexpr uint64_t VOC_ScanEnd = 1024;

static uint32_t At(uint64_t position, int count)
{
    return Sound_LittleAt(VOC_File, position, count);
}

// Sound data.
static void ReadBlock1(VOC_HEADER &record, uint64_t block)
{
    record.SamplingRate = 1000000 / (256 - At(block + 4, 1));
    record.Codec = static_cast<uint16_t>(At(block + 5, 1));
    record.DataStart = static_cast<uint32_t>(block + 6);
}

// Extended: what the sound data block after it cannot say. That block's rate wins, on purpose.
static void ReadBlock8(VOC_HEADER &record, uint64_t block)
{
    record.Codec = static_cast<uint16_t>(At(block + 6, 1));
    record.Channels = static_cast<uint16_t>(At(block + 7, 1) + 1);
    record.SamplingRate = 256000000 / (record.Channels * (65536 - At(block + 4, 2)));
}

// Sound data, new format.
static void ReadBlock9(VOC_HEADER &record, uint64_t block)
{
    record.SamplingRate = At(block + 4, 4);
    record.BitsPerSample = static_cast<uint16_t>(At(block + 8, 1));
    record.Channels = static_cast<uint16_t>(At(block + 9, 1));
    record.Codec = static_cast<uint16_t>(At(block + 10, 2));
    record.DataStart = static_cast<uint32_t>(block + 16);
}

// Looks at every byte for a block's type; the lengths of blocks are not used.
static void ReadBlocks(VOC_HEADER &record)
{
    for (uint64_t block = VOC_FirstBlock; block < VOC_ScanEnd; block++) {
        switch (At(block, 1)) {
        case 1:
            return ReadBlock1(record, block);
        case 8:
            ReadBlock8(record, block);
            block += 7;
            break;
        case 9:
            return ReadBlock9(record, block);
        }
    }
}

static void ReadHeader(VOC_HEADER &record)
{
    record.Version = static_cast<uint16_t>(At(22, 2));
    record.Validation = At(24, 2);
    record.BitsPerSample = 8;
    ReadBlocks(record);
    if (record.Codec == 6 || record.Codec == 7)
        record.BitsPerSample = 16;
    else if (record.Codec != 0 && record.Codec != 4)
        Reason_Set("codec %u", record.Codec);
    if (record.DataStart == 0)
        Reason_Set("no sound block");
}

void VOC_Load(const char *path)
{
    Sound_Load<VOC_HEADER>({VOC_Header, VOC_SoundNumber, VOC_File, ReadHeader}, path);
}

void VOC_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(VOC_GetHeader(n), VOC_Fill, file, buffer, length);
}

SOUND_FILLED VOC_Fill(VOC_HEADER &record, const SOUND_REFILL &refill)
{
    switch (record.Codec) {
    case 0:
        return Sound_Samples(refill, 1, Sound_Keep);
    case 4:
        return Sound_Samples(refill, 2, Sound_Keep);
    case 6:
        return Sound_G711(refill, AUDIO_ALAW);
    case 7:
        return Sound_G711(refill, AUDIO_ULAW);
    }
    return Sound_Nothing(refill);
}

void VOC_Destroy()
{
    Sound_Destroy(VOC_Header);
}

VOC_HEADER *VOC_GetHeader(uint8_t n)
{
    return Sound_GetHeader(VOC_Header, n);
}

void VOC_SetSoundNumber(uint8_t n)
{
    VOC_SoundNumber = n;
}
