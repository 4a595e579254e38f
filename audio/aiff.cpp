#include "audio/aiff.h"

#include <utility>

#include "audio/g711.h"
#include "platform/system.h"

constinit thread_local SOUND_TABLE<AIFF_HEADER> AIFF_Header{};
constinit thread_local uint8_t AIFF_SoundNumber = 0;
constinit thread_local SOUND_FILE AIFF_File{};
constinit thread_local uint64_t AIFF_Position = 0;

// Of the names in the text, the last of this list wins; without a text, or without any of them,
// samples are linear.
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
    constexpr uint32_t fields = 18;  // bytes in front of the compression
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

// Fills the record up to the sound data and gives the size of that; false where the walk meets
// none.
static bool WalkChunks(AIFF_HEADER &record, uint32_t &soundSize, bool padded)
{
    AIFF_Position = 0;
    AIFF_File.Chunks = 0;
    while (const auto chunk = Sound_GetChunk(AIFF_File, AIFF_Position, Sound_GetBig)) {
        const uint32_t size = chunk->Size;
        switch (chunk->Id) {
        case Sound_Id("FORM"):  // the walk goes on inside, whatever its type
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

// Chunks lie back to back, on purpose. Only where that leads to no sound data is each taken to
// start at an even place, as the standard asks.
static void ReadHeader(AIFF_HEADER &record)
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
        return Sound_Pairs(refill, Sound_Swap16);
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

SOUND_FILLED AIFF_Fill(AIFF_HEADER &record, const SOUND_REFILL &refill)
{
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
