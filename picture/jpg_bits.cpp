#include "picture/jpg_bits.h"

#include <algorithm>

#include "picture/jpg_markers.h"

// The entry of a symbol, without the value's bits.
static int32_t EntryOf(uint8_t symbol, uint32_t bits, bool ac)
{
    const uint32_t zeros = ac ? symbol >> 4 : 0, size = symbol & 15;
    if (ac && size == 0 && zeros < 15)
        return JPG_MakeEntry(bits | JPG_EntryEnd, 0, symbol);
    return JPG_MakeEntry(size == 0 ? bits : bits | JPG_EntrySize, zeros,
                         static_cast<int32_t>(size));
}

// Fills the entries that begin with a code of n bits, with the value where its bits fit in, too.
static void FillLook(JPG_CODES &codes, uint32_t code, uint32_t n, uint8_t symbol)
{
    const uint32_t free = JPG_LookBits - n, first = code << free;
    const int32_t plain = EntryOf(symbol, n, codes.AC);
    const auto size = static_cast<uint32_t>(JPG_ValueOf(plain));
    int32_t *const look = codes.Look.data() + first;
    if ((plain & static_cast<int32_t>(JPG_EntrySize)) == 0 || size > free) {
        std::fill_n(look, 1u << free, plain);
        return;
    }
    // The values of this size in order, as in JPG_Extend: the lower half is negative.
    const int32_t entry = JPG_MakeEntry(n + size, JPG_ZerosOf(plain), 0), half = 1 << (size - 1);
    const uint32_t hidden = free - size;
    for (uint32_t k = 0; k < 1u << free; k++) {
        const auto bits = static_cast<int32_t>(k >> hidden);
        look[k] = entry + (bits < half ? bits - 2 * half + 1 : bits) * 65536;
    }
}

void JPG_MakeCodes(const JPG_HUFFMAN &table, bool ac, bool goesOn, JPG_CODES &codes)
{
    codes.AC = ac;
    codes.GoesOn = goesOn;
    codes.Symbols = table.Symbols;
    uint32_t code = 0, index = 0;
    for (uint32_t n = 1; n <= 16; n++, code *= 2) {
        const uint32_t room = std::min((1u << n) - std::min(code, 1u << n), 256 - index);
        const uint32_t count = std::min<uint32_t>(table.Counts[n - 1], room);
        codes.Offsets[n] = static_cast<int32_t>(index) - static_cast<int32_t>(code);
        for (uint32_t i = 0; i < count && n <= JPG_LookBits; i++)
            FillLook(codes, code + i, n, codes.Symbols[index + i]);
        code += count;
        index += count;
        codes.Limits[n] = code << (16 - n);
        if (n == JPG_LookBits)  // the rest
            std::fill(codes.Look.begin() + code, codes.Look.end(),
                      static_cast<int32_t>(JPG_EntryLong));
    }
}

// Whether the entry decodes its code and value all by itself.
static bool IsWhole(int32_t entry)
{
    return (entry & static_cast<int32_t>(JPG_EntrySize | JPG_EntryLong)) == 0;
}

void JPG_MakePairs(const JPG_CODES &codes, JPG_PAIRS &pairs)
{
    constexpr uint32_t mask = (1 << JPG_LookBits) - 1;
    for (uint32_t i = 0; i <= mask; i++) {
        uint64_t pair = 0;
        uint32_t drop = 0, way = 0;
        for (uint32_t n = 0; n < 2; n++) {
            const int32_t entry = codes.Look[i << drop & mask];
            const auto low = static_cast<uint32_t>(entry);
            if (!IsWhole(entry) || drop + (low & JPG_EntryDrop) > JPG_LookBits) {
                pair |= way << 16;  // overwritten by the next coefficient
                break;
            }
            drop += low & JPG_EntryDrop;
            if ((low & JPG_EntryEnd) != 0) {
                pair |= way << 16;
                way += JPG_PairEnd;
                break;
            }
            way += JPG_ZerosOf(entry);
            pair |= way << (8 + 8 * n) | uint64_t{static_cast<uint16_t>(JPG_ValueOf(entry))}
                                             << (32 + 16 * n);
            way++;
        }
        pairs[i] = drop == 0 ? 0 : pair | way << 24 | drop;
    }
}

int32_t JPG_LongEntry(uint64_t buffer, const JPG_CODES &codes)
{
    const auto window = static_cast<uint32_t>(buffer >> 48);
    uint32_t n = JPG_LookBits + 1;
    while (n <= 16 && window >= codes.Limits[n])
        n++;
    if (n > 16)  // no code; n is 17, the bits examined
        return codes.GoesOn ? EntryOf(0, n, codes.AC) : static_cast<int32_t>(JPG_EntryEnd);
    const int32_t index = static_cast<int32_t>(window >> (16 - n)) + codes.Offsets[n];
    return EntryOf(codes.Symbols[static_cast<size_t>(index) & 255], n, codes.AC);
}

size_t JPG_TakeInterval(std::span<const uint8_t> file, size_t position, std::vector<uint8_t> &bits)
{
    bits.clear();
    while (position < file.size()) {
        const std::span<const uint8_t> rest = file.subspan(position);
        const auto *found =
            static_cast<const uint8_t *>(std::memchr(rest.data(), 0xFF, rest.size()));
        const size_t count = found ? static_cast<size_t>(found - rest.data()) : rest.size();
        bits.insert(bits.end(), rest.begin(), rest.begin() + static_cast<ptrdiff_t>(count));
        position += count;
        if (count + 1 >= rest.size() || rest[count + 1] != 0)
            break;
        bits.push_back(0xFF);
        position += 2;
    }
    bits.insert(bits.end(), JPG_BitsSlack, 0);
    return position;
}
