#include "audio/mp3_bits.h"

#include "extra/bytes.h"

uint32_t MP3_UnAligned32(const uint8_t *bytes)
{
    size_t position = 0;
    return Bytes_GetBig({bytes, 4}, position, 4);
}

void MP3_InitGetBits(MP3_BITS &reader, const uint8_t *data, int32_t bits)
{
    reader = {};
    if (bits < 0)
        return;
    reader.Start = data;
    reader.End = data + (int64_t{bits} + 7) / 8;
    reader.Size = bits;
}

uint32_t MP3_GetBits(MP3_BITS &reader, int n)
{
    size_t position = static_cast<size_t>(reader.Index >> 3);
    const uint32_t word = Bytes_GetBig({reader.Start, reader.End}, position, 4);
    const int used = reader.Index & 7;
    reader.Index += n;
    return word << used >> ((32 - n) & 31);
}

uint32_t MP3_GetBits1(MP3_BITS &reader)
{
    return MP3_GetBits(reader, 1);
}
