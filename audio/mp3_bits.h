// Bits of an MPEG audio frame, most significant bit first.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#pragma GCC visibility push(default)

/// A position in a header or in side information.
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

/// The next `n` bits, 1 to 25. Bits past the end are 0 and the index still advances: Index > Size
/// afterwards means "truncated".
uint32_t MP3_GetBits(MP3_BITS &reader, int n);
uint32_t MP3_GetBits1(MP3_BITS &reader);

/// 57 bits from bit `index` of `data`, left-justified in the result; the bits below them are
/// undefined. Seven bytes past the one with that bit must be readable.
inline uint64_t MP3_Peek(const uint8_t *data, size_t index)
{
    uint64_t word;
    std::memcpy(&word, data + (index >> 3), sizeof word);
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap64(word);
    return word << (index & 7);
}

#pragma GCC visibility pop
