#include "audio/iff.h"

SOUND_TABLE<IFF_HEADER> IFF_Header;
uint8_t IFF_SoundNumber = 0;
SOUND_FILE IFF_File;
uint64_t IFF_Position = 0;

// Voice header; the volume at its end is dropped. Its size is not looked at.
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

static void ReadHeader(IFF_HEADER &record)
{
    IFF_Position = 0;
    while (IFF_Position < record.FileSize) {
        const uint32_t id = IFF_GetDWord();
        const uint32_t size = IFF_GetDWord();
        switch (id) {
        case Sound_Id("FORM"):  // the walk goes on inside
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
            return;
        default:
            IFF_Position += size;
        }
    }
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
    Sound_Load(IFF_Header, IFF_SoundNumber, IFF_File, path, ReadHeader);
}

void IFF_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    const IFF_HEADER *record = IFF_GetHeader(n);
    const SOUND_REFILL refill = {file, {buffer, *length}};
    if (!record)
        *length = 0;
    else if (record->BitsPerSample == 8)
        *length = Sound_Samples(refill, 1, Sound_From8);
    else if (record->BitsPerSample == 16)
        *length = Sound_SwappedPairs(refill);
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
