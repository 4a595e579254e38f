// The bits of a JPEG scan and its Huffman codes. ITU-T T.81, F.2.2 and annex C.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

struct JPG_HUFFMAN;

/// Bytes that may be read past the end of an interval's bits: 64 symbols of up to 31 bits and a
/// full register, twice, since a block may end in damage.
constexpr size_t JPG_BitsSlack = 2 * (64 * 4 + 16);

/// The bits of one restart interval, followed by zeros. `Buffer` holds the next `Left` ones,
/// highest first.
struct JPG_BITS {
    const uint8_t *In, *End;  // end of the interval; JPG_BitsSlack bytes past it are readable
    uint64_t Buffer;
    uint32_t Left;

    // Leaves at least 56 bits.
    void Refill()
    {
        uint64_t next;
        std::memcpy(&next, In, sizeof next);
        if constexpr (std::endian::native == std::endian::little)
            next = __builtin_bswap64(next);
        Buffer |= next >> Left;
        In += (63 - Left) >> 3;
        Left |= 56;
    }
    void Drop(uint32_t count)
    {
        Buffer <<= count;
        Left -= count;
    }
    uint32_t Take(uint32_t count)
    {
        const auto value = static_cast<uint32_t>(Buffer >> 1 >> (63 - count));
        Drop(count);
        return value;
    }
    // Damage was met, or more bits were taken than exist.
    bool Overrun() const
    {
        return In - (Left >> 3) > End;
    }
    // From here on only zeros are read.
    void MarkDamage()
    {
        In = End + 16;
        Left = 0;
        Buffer = 0;
    }
};

/// A Huffman decoding table. The next JPG_LookBits bits index Look; a shorter code fills every
/// entry that begins with it. If the value's bits also lie within the index, the entry holds the
/// value itself, so one look-up decodes code and value. An entry is one number: the bits to drop,
/// flags, the zeros before the coefficient, and from bit 16 on its value. Longer codes are found by
/// their length in Limits.
constexpr uint32_t JPG_LookBits = 10;
constexpr uint32_t JPG_EntryDrop = 31;   // bits of the code, plus the value's if it is in the entry
constexpr uint32_t JPG_EntrySize = 32;   // the value is its number of bits, still to be read
constexpr uint32_t JPG_EntryEnd = 64;    // end of block or band: the value is the symbol
constexpr uint32_t JPG_EntryLong = 128;  // longer than JPG_LookBits, or no code
constexpr uint32_t JPG_EntryZeros = 8;

struct JPG_CODES {
    std::array<int32_t, 1 << JPG_LookBits> Look;
    std::array<uint32_t, 17> Limits;  // first 16-bit window above all codes of this length
    std::array<int32_t, 17> Offsets;  // from a code of this length to its symbol's index
    std::array<uint8_t, 256> Symbols;
    bool AC;
    bool GoesOn;  // bits that are no code count as the symbol 0; else they are damage
};

/// One or two coefficients of an AC table, indexed as JPG_CODES::Look: if the code and value after
/// the first also lie within the index, one look-up decodes both. From bit 0 on, a byte each: the
/// bits to drop; from the next zigzag index, the ways to the first coefficient, the second one and
/// past both, plus JPG_PairEnd at the end of the block; 16 bits each: their values. A coefficient
/// that is missing has the value 0. 0: decoded by Look.
using JPG_PAIRS = std::array<uint64_t, 1 << JPG_LookBits>;
constexpr uint32_t JPG_PairEnd = 128;

/// Builds the pairs of an AC table.
void JPG_MakePairs(const JPG_CODES &codes, JPG_PAIRS &pairs);

/// Builds a decoding table. Codes beyond the code space are dropped.
void JPG_MakeCodes(const JPG_HUFFMAN &table, bool ac, bool goesOn, JPG_CODES &codes);

/// The entry of a code longer than JPG_LookBits at the head of `buffer`. If it is no code: the
/// symbol 0 if the table's GoesOn is set, else an entry that ends the block and drops nothing.
int32_t JPG_LongEntry(uint64_t buffer, const JPG_CODES &codes);

/// Copies the bytes of `file` from `position` up to the next marker, without the zeros stuffed
/// after 0xFF, plus JPG_BitsSlack zeros. Returns the marker's position.
size_t JPG_TakeInterval(std::span<const uint8_t> file, size_t position, std::vector<uint8_t> &bits);

constexpr int32_t JPG_MakeEntry(uint32_t low, uint32_t zeros, int32_t value)
{
    return value * 65536 + static_cast<int32_t>(zeros << JPG_EntryZeros | low);
}
constexpr uint32_t JPG_ZerosOf(int32_t entry)
{
    return static_cast<uint32_t>(entry) >> JPG_EntryZeros & 255;
}
constexpr int32_t JPG_ValueOf(int32_t entry)
{
    return entry >> 16;
}

/// Sign-extends a value's bits, without a branch: signs are unpredictable. ITU-T T.81, F.2.2.1.
constexpr int32_t JPG_Extend(uint32_t bits, uint32_t count)
{
    const auto value = static_cast<int32_t>(bits), limit = int32_t{1} << count;
    const int32_t negative = (value - (limit >> 1)) >> 31;
    return value + (negative & (1 - limit));
}

/// Decodes the next code and its value. Takes at most 31 bits.
[[gnu::always_inline]] inline int32_t JPG_NextEntry(JPG_BITS &bits, const JPG_CODES &codes)
{
    int32_t entry = codes.Look[bits.Buffer >> (64 - JPG_LookBits)];
    if (entry & static_cast<int32_t>(JPG_EntryLong | JPG_EntrySize)) [[unlikely]] {
        if (entry & static_cast<int32_t>(JPG_EntryLong)) {
            entry = JPG_LongEntry(bits.Buffer, codes);
            if ((entry & static_cast<int32_t>(JPG_EntryDrop)) == 0)
                bits.MarkDamage();
        }
        bits.Drop(static_cast<uint32_t>(entry) & JPG_EntryDrop);
        if ((entry & static_cast<int32_t>(JPG_EntrySize)) == 0)
            return entry;
        const auto size = static_cast<uint32_t>(JPG_ValueOf(entry));
        return JPG_MakeEntry(0, JPG_ZerosOf(entry), JPG_Extend(bits.Take(size), size));
    }
    bits.Drop(static_cast<uint32_t>(entry) & JPG_EntryDrop);
    return entry;
}
