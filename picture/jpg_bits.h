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

/// The most bytes that a block's bits may be read past their end: 64 symbols of up to 31 bits, and
/// a register full; and as much again for a block that ends in damage.
constexpr size_t JPG_BitsSlack = 2 * (64 * 4 + 16);

/// The bits of one restart interval; zeros follow them. `Buffer` holds the next `Left` ones,
/// highest first.
struct JPG_BITS {
    const uint8_t *In, *End;  // End: of the interval's bytes, JPG_BitsSlack more can be read
    uint64_t Buffer;
    uint32_t Left;

    // At least 56 bits afterwards.
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
    // Damage was met, or more bits were taken than there are.
    bool Overrun() const
    {
        return In - (Left >> 3) > End;
    }
    // Only zeros follow.
    void MarkDamage()
    {
        In = End + 16;
        Left = 0;
        Buffer = 0;
    }
};

/// A Huffman table to decode with. An entry is one number that holds what the next bits tell: the
/// bits to drop, flags, the zeros before a coefficient, and above them its value.
constexpr uint32_t JPG_LookBits = 10;
constexpr uint32_t JPG_EntryDrop = 31;   // bits of the code, with the value's where that is known
constexpr uint32_t JPG_EntrySize = 32;   // the value counts the bits of the true one, still to come
constexpr uint32_t JPG_EntryEnd = 64;    // end of block, or of a band: the value is the symbol
constexpr uint32_t JPG_EntryLong = 128;  // a code longer than JPG_LookBits, or none
constexpr uint32_t JPG_EntryZeros = 8;

struct JPG_CODES {
    std::array<int32_t, 1 << JPG_LookBits> Look;
    std::array<uint32_t, 17> Limits;  // first 16-bit window above all codes of so many bits
    std::array<int32_t, 17> Offsets;  // from such a code to its symbol's index
    std::array<uint8_t, 256> Symbols;
    bool AC;
    bool GoesOn;  // after bits that are no code, as if they were the symbol 0; else they are damage
};

/// Prepares a table. Codes that it has no room for are left out, and thus are no codes.
void JPG_MakeCodes(const JPG_HUFFMAN &table, bool ac, bool goesOn, JPG_CODES &codes);

/// The entry of a code longer than JPG_LookBits at the head of `buffer`. Where no code is: one that
/// ends the block and drops nothing, or the symbol 0 where the decoder goes on.
int32_t JPG_LongEntry(uint64_t buffer, const JPG_CODES &codes);

/// Takes the bytes of `file` from `position` up to the next marker, without the zeros stuffed
/// after 0xFF, with JPG_BitsSlack zeros at their end. Returns where the marker stands.
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

/// A value's bits as the number they stand for. ITU-T T.81, F.2.2.1.
constexpr int32_t JPG_Extend(uint32_t bits, uint32_t count)
{
    const auto value = static_cast<int32_t>(bits);
    return count == 0 || bits >> (count - 1) ? value : value - (1 << count) + 1;
}

/// The entry of the next code, with its value. Takes up to 31 bits, or JPG_LookBits when the result
/// keeps bits to drop.
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
