#include "audio/iff.h"

constinit thread_local SOUND_TABLE<IFF_HEADER> IFF_Header{};
constinit thread_local uint8_t IFF_SoundNumber = 0;
constinit thread_local SOUND_FILE IFF_File{};
constinit thread_local uint64_t IFF_Position = 0;

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
    while (const auto chunk = Sound_GetChunk(IFF_File, IFF_Position, Sound_GetBig)) {
        const uint32_t size = chunk->Size;
        switch (chunk->Id) {
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

SOUND_FILLED IFF_Fill(IFF_HEADER &record, const SOUND_REFILL &refill)
{
    if (record.BitsPerSample == 8)
        return Sound_Samples(refill, 1, Sound_From8);
    return record.BitsPerSample == 16 ? Sound_Pairs(refill, Sound_Swap16) : Sound_Nothing(refill);
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
