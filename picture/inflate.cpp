#include "picture/inflate.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>

#include "extra/local.h"
#include "picture/bits.h"
#include "picture/pixels.h"

#ifdef __x86_64__
#include <cpuid.h>
#define INFLATE_BMI2
#endif

constinit thread_local INFLATE_STATE Inflate_State{};
constinit thread_local size_t PNG_BitPointer{};

static constinit thread_local std::span<const uint8_t> Inflate_Stream{};
static constinit thread_local bool Inflate_LastBlock{};

namespace
{

// What remains of the current block.
enum INFLATE_BLOCK : uint8_t { BLOCK_NONE, BLOCK_STORED, BLOCK_CODED };

}  // namespace

static constinit thread_local INFLATE_BLOCK Inflate_Block{};
static constinit thread_local size_t Inflate_StoredLeft{};  // bytes

constexpr size_t PNG_LiteralCodes = 288, PNG_DistanceCodes = 32, PNG_CLCodes = 19;
constexpr size_t PNG_MaxCodeBits = 15;

// RFC 1951, 3.2.7: order in which the lengths of the code-length code are sent.
constexpr std::array<uint8_t, PNG_CLCodes> PNG_CLorder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                          11, 4,  12, 3, 13, 2, 14, 1, 15};

// RFC 1951, 3.2.5: base and number of extra bits of length codes 257 to 285 and of distance codes 0
// to 29.
constexpr std::array<uint16_t, 29> PNG_LengthBase = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                                     15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                                     67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::array<uint8_t, 29> PNG_LengthExtra = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                     2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::array<uint16_t, 30> PNG_DistanceBase = {
    1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr std::array<uint8_t, 30> PNG_DistanceExtra = {0, 0, 0,  0,  1,  1,  2,  2,  3,  3,
                                                       4, 4, 5,  5,  6,  6,  7,  7,  8,  8,
                                                       9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

// An entry of a decoding table is one 32-bit number, so one load gives everything. Bits 0 to 5: the
// code's bits plus its extra bits. Bits 30 and 31: the number of literals, which then are bits 6 to
// 29, the first one lowest. Without literals, bits 6 to 9: the code's bits alone. Bits 10 to 13:
// flags. Bits 14 to 29: the value, which is a base or the start of a second-level table.
constexpr uint32_t Inflate_EntryBits = 63, Inflate_EntryLiteral = 1u << 30;
constexpr uint32_t Inflate_EntrySpecial = 1 << 10;  // one of the next three, or a skipped code
constexpr uint32_t Inflate_EntryLong = 1 << 11, Inflate_EntryEnd = 1 << 12,
                   Inflate_EntryNone = 1 << 13;
constexpr int Inflate_EntryCode = 6, Inflate_EntryBytes = 6, Inflate_EntryValue = 14,
              Inflate_EntryCount = 30;

constexpr bool IsLiteral(uint32_t entry)
{
    return entry >= Inflate_EntryLiteral;
}
constexpr uint32_t EntryBits(uint32_t entry)
{
    return entry & Inflate_EntryBits;
}
constexpr uint32_t EntryCodeBits(uint32_t entry)
{
    return IsLiteral(entry) ? EntryBits(entry) : entry >> Inflate_EntryCode & 15;
}
constexpr uint32_t EntryExtraBits(uint32_t entry)
{
    return EntryBits(entry) - EntryCodeBits(entry);
}
constexpr uint32_t EntryValue(uint32_t entry)
{
    return entry >> Inflate_EntryValue;
}

constexpr uint32_t LiteralOf(uint32_t byte)
{
    return byte << Inflate_EntryBytes | Inflate_EntryLiteral;
}
constexpr uint32_t MeaningOf(uint32_t value, uint32_t extra)
{
    return value << Inflate_EntryValue | extra;
}

// What the symbols stand for: entries still without the bits of their codes. Literals are computed;
// the first table starts with symbol 256.
constexpr auto PNG_LengthMeaning = [] {
    std::array<uint32_t, PNG_LiteralCodes - 256> meaning{};
    meaning.fill(Inflate_EntrySpecial);  // on purpose: 286 and 287 are skipped
    meaning[0] = Inflate_EntrySpecial | Inflate_EntryEnd;
    for (size_t i = 0; i < PNG_LengthBase.size(); i++)
        meaning[1 + i] = MeaningOf(PNG_LengthBase[i], PNG_LengthExtra[i]);
    return meaning;
}();
constexpr auto PNG_DistanceMeaning = [] {
    std::array<uint32_t, PNG_DistanceCodes> meaning{};
    meaning.fill(Inflate_EntrySpecial | Inflate_EntryNone);
    for (size_t i = 0; i < PNG_DistanceBase.size(); i++)
        meaning[i] = MeaningOf(PNG_DistanceBase[i], PNG_DistanceExtra[i]);
    return meaning;
}();
constexpr auto PNG_CLMeaning = [] {
    std::array<uint32_t, PNG_CLCodes> meaning{};
    for (uint32_t i = 0; i < meaning.size(); i++)
        meaning[i] = MeaningOf(i, i == 16 ? 2 : i == 17 ? 3 : i == 18 ? 7 : 0);
    return meaning;
}();

namespace
{

struct PNG_CODE {
    uint16_t Symbol, Code, Length;  // Code: bit-reversed, as in the stream
};

// A two-level decoding table. The next RootBits bits of the stream, first bit lowest, index the
// first level. A code of n <= RootBits bits fills every entry whose low n bits equal it, so one
// look-up decodes it whatever bits follow. All longer codes with the same first RootBits bits share
// one first-level entry, flagged Inflate_EntryLong. Its value is the start of a second-level table,
// which the next 15 - RootBits bits index; there, too, a code of fewer than 15 bits fills several
// entries. Frequent symbols have short codes, so most look-ups end in the first level, which stays
// in the cache. Entries has room for one second-level table per symbol, more than can occur.
struct PNG_HUFFMAN {
    uint32_t RootBits;
    std::array<uint32_t, (1 << 11) + PNG_LiteralCodes *(1 << (PNG_MaxCodeBits - 11))> Entries;
    std::array<PNG_CODE, PNG_LiteralCodes> RootCodes;  // of the first level, shorter codes first
    size_t RootCount;
};

}  // namespace

constexpr uint32_t Inflate_LiteralRoot = 11, Inflate_DistanceRoot = 9, Inflate_CLRoot = 7;
static constinit thread_local PNG_HUFFMAN PNG_LiteralTable{}, PNG_DistanceTable{}, PNG_CLTable{};
static constinit thread_local bool Inflate_FixedTables{};  // the tables hold the fixed codes

// The first level of PNG_LiteralTable with up to three literals per entry: as many whole codes as
// its index bits contain. Other entries are copies.
static constinit thread_local std::array<uint32_t, 1 << Inflate_LiteralRoot> Inflate_Triples{};

// Converts between a number and its little-endian bytes in memory.
template <typename Number>
static Number Little(Number value)
{
    if constexpr (std::endian::native == std::endian::little)
        return value;
    else if constexpr (sizeof value == 4)
        return __builtin_bswap32(value);
    else
        return __builtin_bswap64(value);
}

static uint64_t Load64(const uint8_t *from)
{
    uint64_t value;
    std::memcpy(&value, from, sizeof value);
    return Little(value);
}

namespace
{

// The stream and the position in it, looked up once per loop.
struct INFLATE_READER {
    const std::span<const uint8_t> Stream = Inflate_Stream;
    size_t &Position = Extra_Local(PNG_BitPointer);

    // Gives at least the next 57 bits.
    [[gnu::noinline]] uint64_t Peek() const  // not inlined: the callers are many, and not hot
    {
        const size_t at = Position / 8;
        uint64_t bits = 0;
        if (at + 8 <= Stream.size())
            bits = Load64(Stream.data() + at);
        else
            for (size_t i = 0; at + i < Stream.size() && i < 8; i++)
                bits |= uint64_t{Stream[at + i]} << (8 * i);
        return bits >> Position % 8;
    }

    bool CutShort() const
    {
        return Position > Stream.size() * 8;
    }

    uint32_t ReadBits(uint32_t count)
    {
        const uint64_t bits = Peek() & ((uint64_t{1} << count) - 1);
        Position += count;
        return static_cast<uint32_t>(bits);
    }

    // Decodes the next code; its extra bits stay unread. A code that the table lacks gives
    // Inflate_EntryNone.
    uint32_t PNG_DecodeHuffmanSymbol(const PNG_HUFFMAN &table)
    {
        const uint64_t bits = Peek();
        uint32_t entry = table.Entries[bits & ((1u << table.RootBits) - 1)];
        if (!IsLiteral(entry) && entry & Inflate_EntryLong)
            entry = table.Entries[EntryValue(entry) +
                                  (bits >> table.RootBits &
                                   ((1u << (PNG_MaxCodeBits - table.RootBits)) - 1))];
        Position += EntryCodeBits(entry);
        return entry;
    }
};

}  // namespace

uint32_t PNG_ReadBits(int count)
{
    return INFLATE_READER().ReadBits(static_cast<uint32_t>(count));
}

uint32_t PNG_ReadBit()
{
    return PNG_ReadBits(1);
}

uint32_t PNG_ReadReversedBit()
{
    const size_t at = PNG_BitPointer / 8, shift = 7 - PNG_BitPointer % 8;
    PNG_BitPointer++;
    return at < Inflate_Stream.size() ? Inflate_Stream[at] >> shift & 1 : 0;
}

// The lowest `count` bits, at most 16, in reverse order.
static uint32_t Reversed(uint32_t bits, uint32_t count)
{
    const uint32_t low = Bits_Mirror[bits & 255], high = Bits_Mirror[bits >> 8];
    return (low << 8 | high) >> (16 - count);
}

// Builds the table of the canonical code with these lengths (RFC 1951, 3.2.2), whose first symbols
// are as many literals as said. False if the lengths are oversubscribed. Bits that are no code give
// Inflate_EntryNone.
[[gnu::noinline]] static bool
PNG_MakeHuffmanFromLengths(PNG_HUFFMAN &table, std::span<const uint8_t> lengths, size_t literals,
                           std::span<const uint32_t> meaning, uint32_t rootBits)
{
    // The halves of the alphabet are counted and sorted side by side, since equal lengths follow
    // each other and each increment of a number waits for the one before.
    using NUMBERS = std::array<uint32_t, PNG_MaxCodeBits + 1>;
    std::array<NUMBERS, 2> halves{}, starts;
    const size_t half = (lengths.size() + 1) / 2;
    const auto forAll = [&](const auto &visit) {
        for (size_t i = 0; i < half; i++) {
            visit(0, i);
            if (half + i < lengths.size())
                visit(1, half + i);
        }
    };
    forAll([&](size_t h, size_t i) { halves[h][lengths[i]]++; });
    NUMBERS counts{};
    int left = 1;  // unused codes of the current length
    uint32_t start = 0;
    for (size_t n = 1; n <= PNG_MaxCodeBits; n++) {
        counts[n] = halves[0][n] + halves[1][n];
        left = 2 * left - static_cast<int>(counts[n]);
        if (left < 0)
            return false;
        starts[0][n] = start;
        starts[1][n] = start + halves[0][n];
        start += counts[n];
    }
    starts[0][0] = start;  // unused symbols come last
    starts[1][0] = start + halves[0][0];
    std::array<uint16_t, PNG_LiteralCodes> sorted;
    forAll([&](size_t h, size_t i) { sorted[starts[h][lengths[i]]++] = static_cast<uint16_t>(i); });

    // First level. The table for codes of up to n bits is the one for n - 1 bits twice, overwritten
    // with the codes of n bits.
    constexpr uint32_t none = Inflate_EntrySpecial | Inflate_EntryNone | 1 << Inflate_EntryCode | 1;
    const uint16_t *symbol = sorted.data();
    const auto next = [&](uint32_t bits) {
        const uint16_t s = *symbol++;
        return s < literals ? LiteralOf(s) | bits
                            : meaning[s - literals] + (bits | bits << Inflate_EntryCode);
    };
    uint32_t *entries = table.Entries.data();
    uint32_t code = 0, size = 1;
    table.RootBits = rootBits;
    table.RootCount = 0;
    entries[0] = none;
    for (uint32_t n = 1; n <= rootBits; n++) {
        std::memcpy(entries + size, entries, size * sizeof *entries);
        size *= 2;
        code *= 2;
        for (uint32_t i = 0; i < counts[n]; i++) {
            const uint32_t reversed = Reversed(code++, n);
            table.RootCodes[table.RootCount++] = {*symbol, static_cast<uint16_t>(reversed),
                                                  static_cast<uint16_t>(n)};
            entries[reversed] = next(n);
        }
    }

    // Second level: the first RootBits bits of a longer code select a table, the rest index it.
    const uint32_t subSize = 1u << (PNG_MaxCodeBits - rootBits);
    uint32_t end = size;
    for (uint32_t n = rootBits + 1; n <= PNG_MaxCodeBits; n++) {
        code *= 2;
        for (uint32_t i = 0; i < counts[n]; i++) {
            const uint32_t reversed = Reversed(code++, n);
            uint32_t &root = entries[reversed & (size - 1)];
            if (!(root & Inflate_EntryLong)) {
                root = end << Inflate_EntryValue | Inflate_EntrySpecial | Inflate_EntryLong;
                std::fill_n(entries + end, subSize, none);
                end += subSize;
            }
            const uint32_t entry = next(n);
            for (uint32_t k = reversed >> rootBits; k < subSize; k += 1u << (n - rootBits))
                entries[EntryValue(root) + k] = entry;
        }
    }
    return true;
}

// Fills Inflate_Triples from the complete literal table.
static void MakeTriples(const PNG_HUFFMAN &table)
{
    // For every `width`, element 2^width + i of a table describes the bits i of that width: the
    // literals whose codes they begin with, none in `nothing`, at most one in `ones`, at most two
    // in `twos`. Putting a literal's code in front of shorter bits adds a literal: `ones` from
    // `nothing`, `twos` from `ones`, Inflate_Triples from `twos`.
    constexpr uint32_t bytes = Inflate_EntryLiteral - Inflate_EntryBits - 1;
    using TRIPLES = std::array<uint32_t, 1 << Inflate_LiteralRoot>;
    // Never written; not const, since a constant would take space in the executable.
    static constinit TRIPLES nothing{};
    static constinit thread_local TRIPLES onesOf{}, twosOf{};
    TRIPLES &ones = Extra_Local(onesOf), &twos = Extra_Local(twosOf);
    TRIPLES &triples = Extra_Local(Inflate_Triples);
    std::copy_n(table.Entries.begin(), triples.size(), triples.begin());
    const auto isLiteral = [](const PNG_CODE &code) { return code.Symbol < 256; };
    const std::span codes = std::span(table.RootCodes).first(table.RootCount);
    const auto literal = std::ranges::find_if(codes, isLiteral);
    const uint32_t shortest = literal == codes.end() ? Inflate_LiteralRoot : literal->Length;
    if (2 * shortest > Inflate_LiteralRoot)
        return;
    std::array<PNG_CODE, 256> literals;
    const auto end = std::copy_if(literal, codes.end(), literals.begin(), isLiteral);
    const auto put = [&](uint32_t *to, const TRIPLES &rests, uint32_t width) {
        for (auto code = literals.begin(); code != end && code->Length <= width; ++code) {
            const uint32_t first = LiteralOf(code->Symbol) | code->Length;
            const uint32_t size = 1u << (width - code->Length);
            const uint32_t *rest = rests.data() + size;
            for (uint32_t i = 0, at = code->Code; i < size; i++, at += 1u << code->Length)
                to[at] = first + (rest[i] & ~bytes) + ((rest[i] & bytes) << 8);
        }
    };
    const auto putAll = [&](TRIPLES &to, const TRIPLES &rests, uint32_t widest) {
        for (uint32_t width = 0; width <= widest; width++) {
            uint32_t *const sized = to.data() + (1u << width);
            std::fill_n(sized, 1u << width, 0);
            put(sized, rests, width);
        }
    };
    putAll(ones, nothing, Inflate_LiteralRoot - 2 * shortest);
    putAll(twos, ones, Inflate_LiteralRoot - shortest);
    put(triples.data(), twos, Inflate_LiteralRoot);
}

// Not inlined: the code is large and both kinds of block use it.
[[gnu::noinline]] static bool MakeTables(std::span<const uint8_t> literals,
                                         std::span<const uint8_t> distances)
{
    PNG_HUFFMAN &table = Extra_Local(PNG_LiteralTable);
    if (!PNG_MakeHuffmanFromLengths(table, literals, 256, PNG_LengthMeaning, Inflate_LiteralRoot) ||
        !PNG_MakeHuffmanFromLengths(Extra_Local(PNG_DistanceTable), distances, 0,
                                    PNG_DistanceMeaning, Inflate_DistanceRoot))
        return false;
    MakeTriples(table);
    return true;
}

// RFC 1951, 3.2.6.
static bool PNG_GetFixedTree()
{
    if (Inflate_FixedTables)
        return true;
    std::array<uint8_t, PNG_LiteralCodes> literals;
    for (size_t i = 0; i < literals.size(); i++)
        literals[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
    std::array<uint8_t, PNG_DistanceCodes> distances;
    distances.fill(5);
    Inflate_FixedTables = MakeTables(literals, distances);
    return Inflate_FixedTables;
}

// RFC 1951, 3.2.7.
static bool ReadTables()
{
    INFLATE_READER reader;
    const size_t literalCount = reader.ReadBits(5) + 257, distanceCount = reader.ReadBits(5) + 1;
    const size_t clCount = reader.ReadBits(4) + 4;
    std::array<uint8_t, PNG_CLCodes> clLengths{};
    for (size_t i = 0; i < clCount; i++)
        clLengths[PNG_CLorder[i]] = static_cast<uint8_t>(reader.ReadBits(3));
    PNG_HUFFMAN &codes = Extra_Local(PNG_CLTable);
    if (!PNG_MakeHuffmanFromLengths(codes, clLengths, 0, PNG_CLMeaning, Inflate_CLRoot))
        return false;

    // The lengths of both alphabets are one sequence: a repeat may run from the first into the
    // second.
    std::array<uint8_t, PNG_LiteralCodes + PNG_DistanceCodes> lengths{};
    const size_t count = literalCount + distanceCount;
    for (size_t i = 0; i < count && !reader.CutShort();) {
        uint64_t bits = reader.Peek();  // a code and its extra bits are 14 at most
        for (int k = 0; k < 4 && i < count && !reader.CutShort(); k++) {
            const uint32_t entry = codes.Entries[bits & ((1u << Inflate_CLRoot) - 1)];
            const uint32_t symbol = EntryValue(entry);
            const uint64_t extra = bits >> EntryCodeBits(entry);
            bits >>= EntryBits(entry);
            reader.Position += EntryBits(entry);
            if (entry & Inflate_EntryNone) {
                if (Picture_Rules != PICTURE_RULES_FORMAT)
                    std::fputs("Unexisting code!\n", stdout);
                i++;
            } else if (symbol < 16) {
                lengths[i++] = static_cast<uint8_t>(symbol);
            } else {
                const size_t least = symbol == 18 ? 11 : 3;
                const size_t repeats = least + (extra & ((1u << EntryExtraBits(entry)) - 1));
                if (repeats > count - i || (symbol == 16 && i == 0))
                    return false;
                if (symbol == 16)
                    std::fill_n(lengths.begin() + static_cast<ptrdiff_t>(i), repeats,
                                lengths[i - 1]);
                i += repeats;
            }
        }
    }
    std::array<uint8_t, PNG_DistanceCodes> distances{};
    std::copy_n(lengths.begin() + static_cast<ptrdiff_t>(literalCount), distanceCount,
                distances.begin());
    Inflate_FixedTables = false;
    return !reader.CutShort() && MakeTables(std::span(lengths).first(literalCount), distances);
}

static void ReadBlockHeader()
{
    Inflate_LastBlock = PNG_ReadBit();
    const uint32_t type = PNG_ReadBits(2);
    bool good = false;
    if (type == 0) {
        PNG_BitPointer = (PNG_BitPointer + 7) / 8 * 8;
        Inflate_StoredLeft = PNG_ReadBits(16);
        PNG_BitPointer += 16;  // complement of the length, not checked
        Inflate_Block = BLOCK_STORED;
        good = true;
    } else {
        Inflate_Block = BLOCK_CODED;
        good = type == 1 ? PNG_GetFixedTree() : type == 2 && ReadTables();
    }
    if (!good || INFLATE_READER().CutShort())
        Inflate_State = INFLATE_DAMAGED;
}

static void EndBlock()
{
    Inflate_Block = BLOCK_NONE;
    if (Inflate_LastBlock)
        Inflate_State = INFLATE_ENDED;
}

static size_t CopyStored(std::span<uint8_t> buffer, size_t position)
{
    const size_t from = PNG_BitPointer / 8, present = Inflate_Stream.size() - from;
    const size_t count = std::min({Inflate_StoredLeft, buffer.size() - position, present});
    if (count > 0)
        std::memcpy(buffer.data() + position, Inflate_Stream.data() + from, count);
    PNG_BitPointer += count * 8;
    Inflate_StoredLeft -= count;
    if (Inflate_StoredLeft == 0)
        EndBlock();
    else if (count == present)
        Inflate_State = INFLATE_DAMAGED;
    return position + count;
}

// Copies `length` bytes from `distance` back. May write up to 32 bytes of garbage after them.
static inline void CopyMatch(uint8_t *out, size_t distance, size_t length)
{
    using PATTERN [[gnu::vector_size(16)]] = uint64_t;
    const uint8_t *from = out - distance, *const end = out + length;
    if (distance >= 16) {
        std::memcpy(out, from, 16);
        std::memcpy(out + 16, from + 16, 16);
        while (out + 32 < end) {
            out += 32;
            from += 32;
            std::memcpy(out, from, 16);
            std::memcpy(out + 16, from + 16, 16);
        }
    } else if (distance == 1) {
        const uint64_t byte = *from * uint64_t{0x0101010101010101};
        const PATTERN pattern = {byte, byte};
        do {
            std::memcpy(out, &pattern, 16);
            std::memcpy(out + 16, &pattern, 16);
            out += 32;
        } while (out < end);
    } else if (distance >= 8) {
        do {
            std::memcpy(out, from, 8);
            out += 8;
            from += 8;
        } while (out < end);
    } else {
        // A distance below 8 repeats a pattern of that many bytes. It is expanded to two words of 8
        // bytes, the second one starting 8 mod `distance` bytes into the pattern. Each step writes
        // 16 bytes and advances by the largest multiple of the distance within 16.
        constexpr std::array<uint64_t, 8> repeat = {0,
                                                    0x0101010101010101,
                                                    0x0001000100010001,
                                                    0x0001000001000001,
                                                    0x0000000100000001,
                                                    0x0000010000000001,
                                                    0x0001000000000001,
                                                    0x0100000000000001};
        constexpr std::array<uint8_t, 8> begin = {0, 0, 0, 2, 0, 3, 2, 1};
        constexpr std::array<uint8_t, 8> step = {0, 16, 16, 15, 16, 15, 12, 14};
        const uint64_t mask = (uint64_t{1} << (8 * distance)) - 1, first = Load64(from) & mask;
        const uint64_t second =
            first >> 8 * begin[distance] | first << 8 * (distance - begin[distance]);
        const PATTERN pattern = {Little(first * repeat[distance]),
                                 Little((second & mask) * repeat[distance])};
        do {
            std::memcpy(out, &pattern, 16);
            out += step[distance];
            std::memcpy(out, &pattern, 16);
            out += step[distance];
        } while (out < end);
    }
}

namespace
{

// A bit register, next bit lowest. Only the low six bits of Left are its count, so a whole entry
// can be subtracted from it.
struct INFLATE_BITS {
    const uint8_t *In;
    uint64_t Buffer;
    uint32_t Left;

    // Leaves at least 56 bits. Reads 8 bytes, advances by at most 7.
    void Refill()
    {
        Buffer |= Load64(In) << (Left & 63);
        In += 7 - (Left >> 3 & 7);
        Left |= 56;
    }
    void Drop(uint32_t entry)
    {
        Buffer >>= EntryBits(entry);
        Left -= entry;
    }
    // The value plus the extra bits after the code, of an entry without flags (or any number).
    uint32_t Value(uint32_t entry) const
    {
        const uint64_t all = Buffer & ~(~uint64_t{0} << EntryBits(entry));
        return EntryValue(entry) + static_cast<uint32_t>(all >> (entry >> Inflate_EntryCode & 63));
    }
    uint32_t Long(const PNG_HUFFMAN &table, uint32_t root, uint32_t entry) const
    {
        return table
            .Entries[EntryValue(entry) + (Buffer >> root & ((1u << (PNG_MaxCodeBits - root)) - 1))];
    }
};

}  // namespace

// Decodes while neither input nor output is near its end, so an iteration needs no bounds checks.
[[gnu::always_inline]] static inline uint8_t *DecodeFast(const uint8_t *begin, uint8_t *out,
                                                         const uint8_t *outEnd)
{
    // Input bytes that one iteration may read.
    constexpr ptrdiff_t maxRead = 32;
    const uint8_t *const in = Inflate_Stream.data(), *const inLast = in + Inflate_Stream.size();
    INFLATE_BITS bits{in + PNG_BitPointer / 8, 0, 0};
    if (inLast - bits.In < maxRead)
        return out;
    bits.Refill();
    bits.Buffer >>= PNG_BitPointer % 8;
    bits.Left -= PNG_BitPointer % 8;

    const PNG_HUFFMAN &literals = Extra_Local(PNG_LiteralTable);
    const PNG_HUFFMAN &distances = Extra_Local(PNG_DistanceTable);
    const auto nextEntry = [&bits, triples = Extra_Local(Inflate_Triples).data()] {
        return triples[bits.Buffer & ((1u << Inflate_LiteralRoot) - 1)];
    };
    const auto putLiterals = [&](uint32_t entry) {
        const uint32_t three = Little(entry >> Inflate_EntryBytes);
        std::memcpy(out, &three, 4);
        out += entry >> Inflate_EntryCount;
        bits.Drop(entry);
        return nextEntry();
    };
    // An iteration takes up to four literal entries, or two and another symbol. It ends with the
    // next entry already loaded, so that the load does not wait for the copy.
    uint32_t entry = nextEntry();
    while (inLast - bits.In >= maxRead && out < outEnd) {
        bits.Refill();
        if (IsLiteral(entry)) {
            entry = putLiterals(entry);
            if (IsLiteral(entry)) {
                entry = putLiterals(entry);
                if (IsLiteral(entry)) {
                    entry = putLiterals(entry);
                    if (IsLiteral(entry))
                        entry = putLiterals(entry);
                    continue;
                }
            }
        }
        if (entry & Inflate_EntrySpecial) {
            if (entry & Inflate_EntryLong)
                entry = bits.Long(literals, Inflate_LiteralRoot, entry);
            if (IsLiteral(entry)) {
                entry = putLiterals(entry);
                continue;
            }
            if (entry & Inflate_EntrySpecial) {
                bits.Drop(entry);
                if (entry & Inflate_EntryEnd) {
                    EndBlock();
                    break;
                }
                if (entry & Inflate_EntryNone) {
                    Inflate_State = INFLATE_DAMAGED;
                    break;
                }
                entry = nextEntry();
                continue;
            }
        }
        const size_t length = bits.Value(entry);
        bits.Drop(entry);
        entry = distances.Entries[bits.Buffer & ((1u << Inflate_DistanceRoot) - 1)];
        bits.Refill();
        if (entry & Inflate_EntryLong)
            entry = bits.Long(distances, Inflate_DistanceRoot, entry);
        const size_t distance = bits.Value(entry);
        bits.Drop(entry);
        if (entry & Inflate_EntrySpecial || distance > static_cast<size_t>(out - begin)) {
            Inflate_State = INFLATE_DAMAGED;
            break;
        }
        entry = nextEntry();
        CopyMatch(out, distance, length);
        out += length;
    }
    PNG_BitPointer = static_cast<size_t>(bits.In - in) * 8 - (bits.Left & 63);
    return out;
}

// With BMI2 shifts by variable amounts take one instruction. The processor is asked here, since
// what compilers add to choose between a function's versions is as large as the rest of the
// inflater.
#ifdef INFLATE_BMI2
[[gnu::target("bmi2")]] static uint8_t *DecodeBMI2(const uint8_t *begin, uint8_t *out,
                                                   const uint8_t *outEnd)
{
    return DecodeFast(begin, out, outEnd);
}

static bool HasBMI2()
{
    uint32_t a, b, c, d;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & bit_BMI2);
}
#endif

[[gnu::noinline]] static uint8_t *DecodeMost(const uint8_t *begin, uint8_t *out,
                                             const uint8_t *outEnd)
{
#ifdef INFLATE_BMI2
    static const bool shifts = HasBMI2();
    if (shifts)
        return DecodeBMI2(begin, out, outEnd);
#endif
    return DecodeFast(begin, out, outEnd);
}

// Decodes symbol by symbol, near the end of the stream.
static uint8_t *DecodeCarefully(const uint8_t *begin, uint8_t *out, const uint8_t *outEnd)
{
    INFLATE_READER reader;
    const PNG_HUFFMAN &literals = Extra_Local(PNG_LiteralTable);
    const PNG_HUFFMAN &distances = Extra_Local(PNG_DistanceTable);
    const auto valueOf = [&reader](uint32_t entry) {
        return EntryValue(entry) + reader.ReadBits(EntryExtraBits(entry));
    };
    while (out < outEnd) {
        const uint32_t entry = reader.PNG_DecodeHuffmanSymbol(literals);
        const bool literal = IsLiteral(entry);
        if (reader.CutShort() || (!literal && entry & Inflate_EntryNone)) {
            Inflate_State = INFLATE_DAMAGED;
            return out;
        }
        if (literal) {
            *out++ = static_cast<uint8_t>(entry >> Inflate_EntryBytes);
        } else if (entry & Inflate_EntryEnd) {
            EndBlock();
            return out;
        } else if (!(entry & Inflate_EntrySpecial)) {
            const size_t length = valueOf(entry);
            const uint32_t distanceEntry = reader.PNG_DecodeHuffmanSymbol(distances);
            const size_t distance = valueOf(distanceEntry);
            if (reader.CutShort() || distanceEntry & Inflate_EntryNone ||
                distance > static_cast<size_t>(out - begin)) {
                Inflate_State = INFLATE_DAMAGED;
                return out;
            }
            CopyMatch(out, distance, length);
            out += length;
        }
    }
    return out;
}

void Inflate_Begin(std::span<const uint8_t> zlib)
{
    Inflate_Stream = zlib;
    PNG_BitPointer = 16;
    Inflate_State = INFLATE_MORE;
    Inflate_Block = BLOCK_NONE;
}

size_t Inflate_More(std::span<uint8_t> buffer, size_t position)
{
    while (Inflate_State == INFLATE_MORE && buffer.size() - position >= Inflate_Margin) {
        if (Inflate_Block == BLOCK_NONE) {
            ReadBlockHeader();
        } else if (Inflate_Block == BLOCK_STORED) {
            position = CopyStored(buffer, position);
        } else {
            uint8_t *const begin = buffer.data(), *out = begin + position;
            const uint8_t *const outEnd = begin + (buffer.size() - Inflate_Margin + 1);
            out = DecodeMost(begin, out, outEnd);
            if (Inflate_State == INFLATE_MORE && Inflate_Block == BLOCK_CODED && out < outEnd)
                out = DecodeCarefully(begin, out, outEnd);
            position = static_cast<size_t>(out - begin);
        }
    }
    return position;
}

INFLATE_RESULT Inflate_All(std::span<const uint8_t> zlib, std::span<uint8_t> out)
{
    Inflate_Begin(zlib);
    size_t size = Inflate_More(out, 0);
    if (Inflate_State == INFLATE_MORE) {
        // The rest, at most a margin of output, goes through a buffer with room to spare.
        std::array<uint8_t, Inflate_History + 2 * Inflate_Margin> last;
        const size_t history = std::min(size, Inflate_History);
        std::copy_n(out.data() + (size - history), history, last.data());
        const size_t end = Inflate_More(last, history);
        const size_t count = std::min(end - history, out.size() - size);
        std::copy_n(last.data() + history, count, out.data() + size);
        size += count;
        if (end - history > count)
            return {size, false};
    }
    return {size, Inflate_State == INFLATE_ENDED};
}
