// Bits of an MPEG audio frame, the highest of a byte first.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)

/// Where a header or side information is being read.
struct MP3_BITS {
    const uint8_t *Start;  // the data, not owned
    const uint8_t *End;
    int32_t Index;  // next bit
    int32_t Size;   // in bits
};

/// Four bytes as a big-endian number.
uint32_t MP3_UnAligned32(const uint8_t *bytes);

/// Sets the reader to the first of `bits` bits at `data`; a negative number makes it empty.
void MP3_InitGetBits(MP3_BITS &reader, const uint8_t *data, int32_t bits);

/// The next `n` bits, 1 to 25. Bits past the data's last byte are 0 and the index moves on all
/// the same: Index > Size afterwards means "cut short".
uint32_t MP3_GetBits(MP3_BITS &reader, int n);
uint32_t MP3_GetBits1(MP3_BITS &reader);

/// 57 bits from bit `index` of `data` on, as the highest of the result; what lies below them is
/// not to be used. Seven bytes past the one with that bit must be readable.
inline uint64_t MP3_Peek(const uint8_t *data, size_t index)
{
    const uint8_t *bytes = data + (index >> 3);
    uint64_t word = 0;
    for (int i = 0; i < 8; i++)  // compilers make this one load
        word = word << 8 | bytes[i];
    return word << (index & 7);
}

#pragma GCC visibility pop
