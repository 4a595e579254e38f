#include "picture/jpg_scan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "extra/lanes.h"
#include "picture/jpg.h"
#include "picture/jpg_colour.h"
#include "picture/picture.h"

// Eight numbers side by side: a row of a block, or a column.
using LANES = float __attribute__((vector_size(32)));

// The one-dimensional inverse DCT of Arai, Agui and Nakajima (1988), whose inputs are scaled by
// JPG_ScaleFactor, on all eight lanes at once.
[[gnu::always_inline]] static inline void Transform(LANES *v)
{
    const LANES sum04 = v[0] + v[4], difference04 = v[0] - v[4], sum26 = v[2] + v[6];
    const LANES turned26 = (v[2] - v[6]) * 1.414213562F - sum26;
    const LANES even0 = sum04 + sum26, even3 = sum04 - sum26;
    const LANES even1 = difference04 + turned26, even2 = difference04 - turned26;

    const LANES sum53 = v[5] + v[3], difference53 = v[5] - v[3];
    const LANES sum17 = v[1] + v[7], difference17 = v[1] - v[7];
    const LANES odd0 = sum17 + sum53;
    const LANES turned = (difference53 + difference17) * 1.847759065F;
    const LANES odd1 = turned - difference53 * 2.613125930F - odd0;
    const LANES odd2 = (sum17 - sum53) * 1.414213562F - odd1;
    const LANES odd3 = turned - difference17 * 1.082392200F - odd2;

    v[0] = even0 + odd0;
    v[7] = even0 - odd0;
    v[1] = even1 + odd1;
    v[6] = even1 - odd1;
    v[2] = even2 + odd2;
    v[5] = even2 - odd2;
    v[3] = even3 + odd3;
    v[4] = even3 - odd3;
}

[[gnu::always_inline]] static inline void Transpose(LANES *v)
{
    LANES a[8], b[8];
    for (int i = 0; i < 8; i += 2) { // pairs of rows, interleaved by pairs of lanes
        a[i] = __builtin_shufflevector(v[i], v[i + 1], 0, 8, 2, 10, 4, 12, 6, 14);
        a[i + 1] = __builtin_shufflevector(v[i], v[i + 1], 1, 9, 3, 11, 5, 13, 7, 15);
    }
    for (int i = 0; i < 8; i += 4)
        for (int k = 0; k < 2; k++) {
            b[i + k] = __builtin_shufflevector(a[i + k], a[i + k + 2], 0, 1, 8, 9, 4, 5, 12, 13);
            b[i + k + 2] =
                __builtin_shufflevector(a[i + k], a[i + k + 2], 2, 3, 10, 11, 6, 7, 14, 15);
        }
    for (int i = 0; i < 4; i++) {
        v[i] = __builtin_shufflevector(b[i], b[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
        v[i + 4] = __builtin_shufflevector(b[i], b[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    }
}

EXTRA_LANES void JPG_InverseDCT(const int16_t *coefficients, const float *scale, uint8_t *samples,
                                size_t stride)
{
    using SHORTS = int16_t __attribute__((vector_size(16)));
    LANES v[8];
    for (size_t i = 0; i < 8; i++) {
        SHORTS column;
        LANES factors;
        std::memcpy(&column, coefficients + 8 * i, sizeof column);
        std::memcpy(&factors, scale + 8 * i, sizeof factors);
        v[i] = __builtin_convertvector(column, LANES) * factors;
    }
    v[0][0] += 128.5F; // the level shift, and rounding; each sample has its share of it
    Transform(v);
    Transpose(v);
    Transform(v);
    int32_t rounded[64];
    for (size_t i = 0; i < 8; i++) {
        using INTS = int32_t __attribute__((vector_size(32)));
        const LANES zero{}, most = zero + 255;
        v[i] = v[i] > zero ? v[i] : zero;
        v[i] = v[i] < most ? v[i] : most;
        const INTS row = __builtin_convertvector(v[i], INTS);
        std::memcpy(rounded + 8 * i, &row, sizeof row);
    }
    uint8_t bytes[64];
    for (size_t i = 0; i < 64; i++)
        bytes[i] = static_cast<uint8_t>(rounded[i]);
    for (size_t i = 0; i < 8; i++)
        std::memcpy(samples + i * stride, bytes + 8 * i, 8);
}

static void FillBlock(int16_t dc, float scale, uint8_t *samples, size_t stride)
{
    const float level = std::clamp(static_cast<float>(dc) * scale + 128.5F, 0.0F, 255.0F);
    for (size_t i = 0; i < 8; i++)
        std::memset(samples + i * stride, static_cast<int>(level), 8);
}

// A Huffman table to decode with. An entry is one number that holds what the next bits tell: the
// bits to drop, flags, the zeros before a coefficient, and above them its value.
constexpr uint32_t LOOK_BITS = 10;
constexpr uint32_t ENTRY_DROP = 31; // bits of the code, with the value's where that is known
constexpr uint32_t ENTRY_VALUE_NEXT =
    32;                              // the value counts the bits of the true one, still to come
constexpr uint32_t ENTRY_END = 64;   // end of block, or of a band: the value is the symbol
constexpr uint32_t ENTRY_LONG = 128; // a code longer than LOOK_BITS, or none
constexpr int ENTRY_ZEROS = 8;

constexpr uint32_t MakeEntry(uint32_t low, uint32_t zeros, int32_t value)
{
    return static_cast<uint32_t>(value) << 16 | zeros << ENTRY_ZEROS | low;
}
constexpr uint32_t ZerosOf(uint32_t entry)
{
    return entry >> ENTRY_ZEROS & 255;
}
constexpr int32_t ValueOf(uint32_t entry)
{
    return static_cast<int32_t>(entry) >> 16;
}

struct DECODING_TABLE {
    std::array<uint32_t, 1 << LOOK_BITS> Look;
    std::array<uint32_t, 17> Limits; // first 16-bit window behind all codes of so many bits
    std::array<int32_t, 17> Offsets; // from such a code to its symbol's index
    const JPG_HUFFMAN *Source;
};

// A value's bits as the number they stand for. ITU-T T.81, F.2.2.1.
static int32_t Extend(uint32_t bits, uint32_t count)
{
    const auto value = static_cast<int32_t>(bits);
    return count == 0 || bits >> (count - 1) ? value : value - (1 << count) + 1;
}

// What a symbol says, without what its bits may add.
static uint32_t EntryOf(uint8_t symbol, uint32_t bits, bool ac)
{
    const uint32_t zeros = ac ? symbol >> 4 : 0, size = symbol & 15;
    if (ac && size == 0 && zeros < 15)
        return MakeEntry(bits | ENTRY_END, 0, symbol);
    return MakeEntry(size == 0 ? bits : bits | ENTRY_VALUE_NEXT, zeros, static_cast<int32_t>(size));
}

static void MakeTable(const JPG_HUFFMAN &source, bool ac, DECODING_TABLE &table)
{
    table.Source = &source;
    table.Look.fill(ENTRY_LONG);
    uint32_t code = 0;
    int32_t index = 0;
    for (uint32_t n = 1; n <= 16; n++) {
        const uint32_t count = source.Counts[n - 1];
        table.Offsets[n] = index - static_cast<int32_t>(code);
        for (uint32_t i = 0; i < count && n <= LOOK_BITS; i++) {
            const uint32_t first = (code + i) << (LOOK_BITS - n), spread = 1u << (LOOK_BITS - n);
            const auto at = static_cast<size_t>(index) + i;
            if (first + spread > table.Look.size() || at >= source.Symbols.size())
                break;
            for (uint32_t k = 0; k < spread; k++) {
                uint32_t entry = EntryOf(source.Symbols[at], n, ac);
                const auto size = static_cast<uint32_t>(ValueOf(entry));
                if ((entry & ENTRY_VALUE_NEXT) && n + size <= LOOK_BITS)
                    entry = MakeEntry(n + size, ZerosOf(entry),
                                      Extend(k >> (LOOK_BITS - n - size), size));
                table.Look[first + k] = entry;
            }
        }
        code += count;
        index += static_cast<int32_t>(count);
        table.Limits[n] = code << (16 - n);
        code *= 2;
    }
}

// The bits of one restart interval, without stuffing; the next ones highest.
struct BITS {
    const uint8_t *In, *Begin;
    size_t Count; // bits that there are; zeros follow
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
    bool Overrun() const
    {
        return static_cast<size_t>(In - Begin) * 8 - Left > Count;
    }
};

// The most bytes that a block's bits may be read past their end: 64 symbols of up to 32 bits, and
// a register full.
constexpr size_t BITS_SLACK = 64 * 4 + 64;

// The entry of a code longer than LOOK_BITS; one that the table lacks ends the block.
static uint32_t LongEntry(const BITS &bits, const DECODING_TABLE &table, bool ac)
{
    const auto window = static_cast<uint32_t>(bits.Buffer >> 48);
    uint32_t n = LOOK_BITS + 1;
    while (n <= 16 && window >= table.Limits[n])
        n++;
    if (n > 16)
        return ENTRY_END;
    const int32_t index = static_cast<int32_t>(window >> (16 - n)) + table.Offsets[n];
    return EntryOf(table.Source->Symbols[static_cast<size_t>(index) & 255], n, ac);
}

// The entry of the next code, with its value. Takes up to 31 bits.
[[gnu::always_inline]] static inline uint32_t NextEntry(BITS &bits, const DECODING_TABLE &table,
                                                        bool ac)
{
    uint32_t entry = table.Look[bits.Buffer >> (64 - LOOK_BITS)];
    if (entry & (ENTRY_LONG | ENTRY_VALUE_NEXT)) [[unlikely]] {
        if (entry & ENTRY_LONG)
            entry = LongEntry(bits, table, ac);
        bits.Drop(entry & ENTRY_DROP);
        if ((entry & ENTRY_VALUE_NEXT) == 0)
            return entry;
        const auto size = static_cast<uint32_t>(ValueOf(entry));
        return MakeEntry(0, ZerosOf(entry), Extend(bits.Take(size), size));
    }
    bits.Drop(entry & ENTRY_DROP);
    return entry;
}

struct COMPONENT {
    JPG_PLANE Plane;
    size_t BlocksAcross, BlocksDown;   // with those that pad the last MCUs
    size_t CodedAcross, CodedDown;     // of a scan of this component alone
    std::vector<int16_t> Coefficients; // of all blocks, for progressive files
    std::vector<uint64_t> NonZero;     // and which of a block's are not 0, but for the first: a bit
                                       // each in zigzag order
    std::array<float, 64> Scale;
    bool Scaled;                             // by the table that held at its first scan
    int16_t DC;                              // the last block's, which the next one's counts from
    const DECODING_TABLE *DCTable, *ACTable; // of the current scan

    uint8_t *SamplesOf(size_t x, size_t y)
    {
        return Plane.Samples.data() + 8 * y % Plane.Rows * Plane.Stride + 8 * x;
    }
};

struct PICTURE {
    std::array<COMPONENT, 3> Components;
    size_t Count; // of components
    bool Progressive;
    std::vector<uint8_t> Bits; // of the current restart interval
    uint32_t EndOfBandRun;
    std::array<DECODING_TABLE, 4> DCTables, ACTables; // those that the current scan names
};

// Natural place of each coefficient in a block that stands column by column; places from 64 on are
// those of runs that lead out of it.
static const auto columnOrder = [] {
    std::array<uint8_t, 80> order;
    order.fill(64);
    for (size_t i = 0; i < 64; i++)
        order[i] = static_cast<uint8_t>(JPG_ZigZag[i] % 8 * 8 + JPG_ZigZag[i] / 8);
    return order;
}();

static bool Decodable()
{
    const JPG_HEADER &h = JPG_Header;
    const JPG_DECODER &d = JPG_Decoder;
    if (h.DataOffset == 0 || h.Precision != 8 || (h.ComponentCount != 1 && h.ComponentCount != 3) ||
        h.Width == 0 || h.Height == 0)
        return false;
    uint64_t blocks = 0; // of an MCU
    for (size_t i = 0; i < h.ComponentCount; i++) {
        const unsigned horizontal = h.Components[i].Sampling >> 4;
        const unsigned vertical = h.Components[i].Sampling & 15;
        if (horizontal < 1 || horizontal > 4 || vertical < 1 || vertical > 4 || horizontal > d.H ||
            vertical > d.V)
            return false;
        blocks += horizontal * vertical;
    }
    blocks *= uint64_t{d.McusAcross} * d.McusDown;
    return blocks / 64 <= uint64_t{JPG_File.size()} * 8; // of a bit at least
}

// Whether the samples come, or are made last, in rows of MCUs: of progressive files, and of a scan
// that has all components. Then two rows at a time are kept.
static bool ComesByRows()
{
    return JPG_Decoder.Progressive || JPG_Header.ScanComponentCount == JPG_Header.ComponentCount;
}

static void MakeComponents(PICTURE &picture)
{
    const JPG_DECODER &d = JPG_Decoder;
    picture.Count = JPG_Header.ComponentCount;
    picture.Progressive = d.Progressive;
    for (size_t i = 0; i < picture.Count; i++) {
        COMPONENT &c = picture.Components[i];
        const uint8_t sampling = JPG_Header.Components[i].Sampling;
        const size_t h = sampling >> 4, v = sampling & 15;
        c.Plane.H = h;
        c.Plane.V = v;
        c.Plane.Width = (JPG_Header.Width * h + d.H - 1) / d.H;
        c.Plane.Height = (JPG_Header.Height * v + d.V - 1) / d.V;
        c.BlocksAcross = d.McusAcross * h;
        c.BlocksDown = d.McusDown * v;
        c.CodedAcross = (c.Plane.Width + 7) / 8;
        c.CodedDown = (c.Plane.Height + 7) / 8;
        c.Plane.Stride = c.BlocksAcross * 8;
        c.Plane.Rows = 8 * (ComesByRows() ? 2 * v : c.BlocksDown);
        c.Plane.Samples.assign(c.Plane.Stride * c.Plane.Rows, 128);
        if (picture.Progressive) {
            c.Coefficients.assign(c.BlocksAcross * c.BlocksDown * 64, 0);
            c.NonZero.assign(c.BlocksAcross * c.BlocksDown, 0);
        }
    }
}

static void MakeScale(COMPONENT &c, size_t number)
{
    if (c.Scaled || number >= JPG_Header.Quantisation.size())
        return;
    const JPG_QUANTISATION &table = JPG_Header.Quantisation[number];
    for (size_t row = 0; row < 8; row++)
        for (size_t column = 0; column < 8; column++) {
            const size_t natural = 8 * row + column;
            const float wide = static_cast<float>(table.Wide[JPG_ZigZag2[natural]]) *
                               JPG_ScaleFactor[row] * JPG_ScaleFactor[column];
            c.Scale[8 * column + row] = (table.Precision ? wide : table.Values[natural]) / 8;
        }
    c.Scaled = true;
}

// What each kind of scan does with a block; `block` has room for one coefficient more.

// Returns the zigzag index behind the last coefficient that may not be 0.
static size_t DecodeSequential(BITS &stream, COMPONENT &c, int16_t *block)
{
    BITS bits = stream; // in registers
    bits.Refill();
    c.DC = static_cast<int16_t>(c.DC + ValueOf(NextEntry(bits, *c.DCTable, false)));
    block[0] = c.DC;
    size_t k = 1;
    while (k < 64) {
        if (bits.Left < 32)
            bits.Refill();
        const uint32_t entry = NextEntry(bits, *c.ACTable, true);
        if (entry & ENTRY_END)
            break;
        k += ZerosOf(entry);
        block[columnOrder[k]] = static_cast<int16_t>(ValueOf(entry));
        k++;
    }
    stream = bits;
    return k;
}

static void DecodeDCFirst(BITS &bits, COMPONENT &c, int16_t *block)
{
    bits.Refill();
    c.DC = static_cast<int16_t>(c.DC + ValueOf(NextEntry(bits, *c.DCTable, false)));
    block[0] = static_cast<int16_t>(c.DC * (1 << JPG_Header.Al));
}

static void DecodeDCRefine(BITS &bits, int16_t *block)
{
    bits.Refill();
    if (bits.Take(1))
        block[0] = static_cast<int16_t>(block[0] | 1 << JPG_Header.Al);
}

// Blocks that an end-of-band symbol ends: this one and those that its bits count. ITU-T T.81,
// table G.1.
static uint32_t EndOfBandRun(BITS &bits, uint32_t entry)
{
    const auto size = static_cast<uint32_t>(ValueOf(entry)) >> 4;
    return (1u << size) + bits.Take(size);
}

// ITU-T T.81, G.1.2.2.
static void DecodeACFirst(BITS &stream, PICTURE &picture, COMPONENT &c, int16_t *block,
                          uint64_t &nonZero)
{
    if (picture.EndOfBandRun > 0) {
        picture.EndOfBandRun--;
        return;
    }
    BITS bits = stream; // in registers
    for (size_t k = JPG_Header.Ss; k <= JPG_Header.Se; k++) {
        if (bits.Left < 32)
            bits.Refill();
        const uint32_t entry = NextEntry(bits, *c.ACTable, true);
        if (entry & ENTRY_END) {
            picture.EndOfBandRun = EndOfBandRun(bits, entry) - 1;
            break;
        }
        k += ZerosOf(entry);
        if (k <= JPG_Header.Se && ValueOf(entry) != 0) {
            block[columnOrder[k]] = static_cast<int16_t>(ValueOf(entry) * (1 << JPG_Header.Al));
            nonZero |= uint64_t{1} << k;
        }
    }
    stream = bits;
}

// Reads a correction bit for a coefficient that is not 0.
static void Correct(BITS &bits, int16_t &coefficient, int bit)
{
    if (bits.Left < 32)
        bits.Refill();
    if (bits.Take(1) && (coefficient & bit) == 0)
        coefficient = static_cast<int16_t>(coefficient + (coefficient < 0 ? -bit : bit));
}

// ITU-T T.81, G.1.2.3.
static void DecodeACRefine(BITS &stream, PICTURE &picture, COMPONENT &c, int16_t *block,
                           uint64_t &nonZero)
{
    BITS bits = stream; // in registers
    const int bit = 1 << JPG_Header.Al;
    size_t k = JPG_Header.Ss;
    const size_t end = JPG_Header.Se + size_t{1};
    // The coefficients still to correct.
    const uint64_t band = ~uint64_t{0} >> (64 - end);
    uint64_t known = k < end ? nonZero & band & ~uint64_t{0} << k : 0;
    while (k < end && picture.EndOfBandRun == 0) {
        if (bits.Left < 32)
            bits.Refill();
        const uint32_t entry = NextEntry(bits, *c.ACTable, true);
        if (entry & ENTRY_END) {
            picture.EndOfBandRun = EndOfBandRun(bits, entry);
            break;
        }
        // Passes over so many zeros, correcting what lies between, to the place of the new one.
        for (size_t zeros = ZerosOf(entry);;) {
            const size_t next = known ? static_cast<size_t>(std::countr_zero(known)) : end;
            if (zeros < next - k || next == end) {
                k = std::min(k + zeros, end);
                break;
            }
            zeros -= next - k;
            Correct(bits, block[columnOrder[next]], bit);
            known &= known - 1;
            k = next + 1;
        }
        if (k < end && ValueOf(entry) != 0) {
            block[columnOrder[k]] = static_cast<int16_t>(ValueOf(entry) < 0 ? -bit : bit);
            nonZero |= uint64_t{1} << k;
        }
        k++;
    }
    if (picture.EndOfBandRun > 0) {
        for (; known; known &= known - 1)
            Correct(bits, block[columnOrder[static_cast<size_t>(std::countr_zero(known))]], bit);
        picture.EndOfBandRun--;
    }
    stream = bits;
}

static void TransformBlock(const COMPONENT &c, const int16_t *block, bool onlyDC, uint8_t *samples)
{
    if (onlyDC)
        FillBlock(block[0], c.Scale[0], samples, c.Plane.Stride);
    else
        JPG_InverseDCT(block, c.Scale.data(), samples, c.Plane.Stride);
}

// Decodes block (x, y) of a component. False when the bits came to their end within it.
static bool DecodeBlock(BITS &bits, PICTURE &picture, COMPONENT &c, size_t x, size_t y)
{
    if (!picture.Progressive) {
        std::array<int16_t, 72> block{};
        const size_t end = DecodeSequential(bits, c, block.data());
        if (bits.Overrun())
            return false;
        TransformBlock(c, block.data(), end == 1, c.SamplesOf(x, y));
        return true;
    }
    const size_t at = y * c.BlocksAcross + x;
    int16_t *block = c.Coefficients.data() + 64 * at;
    switch (JPG_Header.ScanMode) {
    case 2:
        DecodeDCFirst(bits, c, block);
        break;
    case 3:
        DecodeDCRefine(bits, block);
        break;
    case 4:
        DecodeACFirst(bits, picture, c, block, c.NonZero[at]);
        break;
    case 5:
        DecodeACRefine(bits, picture, c, block, c.NonZero[at]);
        break;
    }
    return !bits.Overrun();
}

// The components of the current scan, in its order; none when it names one that there is not.
static std::vector<COMPONENT *> ScanComponents(PICTURE &picture)
{
    std::vector<COMPONENT *> components;
    const JPG_HEADER &h = JPG_Header;
    if (h.ScanComponentCount > picture.Count)
        return {};
    for (size_t i = 0; i < h.ScanComponentCount; i++)
        for (size_t k = 0; k < picture.Count; k++)
            if (h.Components[k].Id == h.ScanComponents[i].Id) {
                COMPONENT &c = picture.Components[k];
                const size_t dc = h.ScanComponents[i].Tables >> 4 & 3;
                const size_t ac = h.ScanComponents[i].Tables & 3;
                MakeTable(h.DC[dc], false, picture.DCTables[dc]);
                MakeTable(h.AC[ac], true, picture.ACTables[ac]);
                c.DCTable = &picture.DCTables[dc];
                c.ACTable = &picture.ACTables[ac];
                MakeScale(c, h.Components[k].Quantisation);
                components.push_back(&c);
                break;
            }
    if (components.size() != h.ScanComponentCount)
        return {};
    return components;
}

// Takes the bytes from `position` up to the next marker, without the zeros stuffed behind 0xFF.
// Returns where the marker stands.
static size_t TakeInterval(size_t position, std::vector<uint8_t> &bits)
{
    const uint8_t *data = JPG_File.data();
    const size_t size = JPG_File.size();
    bits.clear();
    while (position < size) {
        const void *found = std::memchr(data + position, 0xFF, size - position);
        const size_t mark =
            found ? static_cast<size_t>(static_cast<const uint8_t *>(found) - data) : size;
        bits.insert(bits.end(), data + position, data + mark);
        position = mark;
        if (mark >= size)
            break;
        if (mark + 1 < size && data[mark + 1] != 0)
            break;
        bits.push_back(0xFF);
        position = mark + 2;
    }
    bits.insert(bits.end(), BITS_SLACK, 0);
    return std::min(position, size);
}

// A scan under way. Its blocks come in MCUs of all its components, or as one component's blocks.
struct SCAN {
    std::vector<COMPONENT *> Components;
    size_t Across, Count; // MCUs
    size_t Step;          // MCUs of a restart interval
    size_t Start, End;    // MCUs of the current one
    size_t Mcu;           // the next
    bool Sound;           // no damage in the current interval so far
    bool Over;            // no interval follows
    BITS Bits;
};

static bool DecodeMCU(PICTURE &picture, SCAN &scan)
{
    const size_t x = scan.Mcu % scan.Across, y = scan.Mcu / scan.Across;
    if (scan.Components.size() == 1)
        return DecodeBlock(scan.Bits, picture, *scan.Components[0], x, y);
    for (COMPONENT *c : scan.Components)
        for (size_t v = 0; v < c->Plane.V; v++)
            for (size_t h = 0; h < c->Plane.H; h++)
                if (!DecodeBlock(scan.Bits, picture, *c, x * c->Plane.H + h, y * c->Plane.V + v))
                    return false;
    return true;
}

// Makes an MCU grey that the file lacks.
static void SkipMCU(const PICTURE &picture, SCAN &scan)
{
    if (picture.Progressive)
        return; // coefficients are 0 from the start
    const size_t x = scan.Mcu % scan.Across, y = scan.Mcu / scan.Across;
    for (COMPONENT *c : scan.Components) {
        const size_t across = scan.Components.size() == 1 ? 1 : c->Plane.H;
        const size_t down = scan.Components.size() == 1 ? 1 : c->Plane.V;
        for (size_t v = 0; v < down; v++)
            for (size_t h = 0; h < across; h++)
                FillBlock(0, 0, c->SamplesOf(x * across + h, y * down + v), c->Plane.Stride);
    }
}

// Takes the restart interval at JPG_Position, whose first MCU is scan.Start.
static void BeginInterval(PICTURE &picture, SCAN &scan)
{
    JPG_Position = TakeInterval(JPG_Position, picture.Bits);
    scan.End = std::min(scan.Start + scan.Step, scan.Count);
    scan.Sound = true;
    scan.Bits = {};
    scan.Bits.In = scan.Bits.Begin = picture.Bits.data();
    scan.Bits.Count = (picture.Bits.size() - BITS_SLACK) * 8;
    picture.EndOfBandRun = 0;
    for (COMPONENT *c : scan.Components)
        c->DC = 0;
}

// Goes on with the interval behind the marker at JPG_Position, or ends the scan there. Where a
// restart marker has another number than its turn, the intervals between were lost.
static void NextInterval(PICTURE &picture, SCAN &scan)
{
    while (JPG_Position + 2 < JPG_File.size() && JPG_File[JPG_Position + 1] == 0xFF)
        JPG_Position++; // fill
    const uint8_t marker =
        JPG_Position + 1 < JPG_File.size() ? JPG_File[JPG_Position + 1] : uint8_t{0};
    scan.Over = marker < 0xD0 || marker > 0xD7;
    if (scan.Over)
        return;
    const size_t lost = (marker - scan.Start / std::max<size_t>(scan.Step, 1)) & 7;
    scan.Start += scan.Step * (lost < 4 ? lost + 1 : 1);
    JPG_Position += 2;
    BeginInterval(picture, scan);
}

static SCAN BeginScan(PICTURE &picture)
{
    SCAN scan{};
    scan.Components = ScanComponents(picture);
    const bool band = JPG_Header.ScanMode >= 2 && JPG_Header.Se <= 63;
    if (scan.Components.empty() || (picture.Progressive && !band)) {
        scan.Components.clear();
    } else if (scan.Components.size() == 1) {
        // A scan of one component has no MCUs beyond its samples. ITU-T T.81, A.2.2.
        scan.Across = scan.Components[0]->CodedAcross;
        scan.Count = scan.Across * scan.Components[0]->CodedDown;
    } else {
        scan.Across = JPG_Decoder.McusAcross;
        scan.Count = scan.Across * JPG_Decoder.McusDown;
    }
    scan.Step = JPG_Header.RestartInterval ? JPG_Header.RestartInterval : scan.Count;
    BeginInterval(picture, scan);
    return scan;
}

// Decodes MCUs up to number `end`.
static void DecodeUpTo(PICTURE &picture, SCAN &scan, size_t end)
{
    while (scan.Mcu < std::min(end, scan.Count)) {
        if (scan.Mcu >= scan.End && !scan.Over) {
            NextInterval(picture, scan);
            continue;
        }
        if (scan.Mcu < scan.Start || scan.Mcu >= scan.End || !scan.Sound) {
            SkipMCU(picture, scan);
        } else if (!DecodeMCU(picture, scan)) {
            scan.Sound = false;
            SkipMCU(picture, scan);
        }
        scan.Mcu++;
    }
}

// Leaves JPG_Position at the marker behind the scan.
static void EndScan(PICTURE &picture, SCAN &scan)
{
    while (!scan.Over)
        NextInterval(picture, scan);
}

// Samples for a row of MCUs.
static void TransformRow(COMPONENT &c, size_t row)
{
    for (size_t y = row * c.Plane.V; y < (row + 1) * c.Plane.V; y++) {
        const int16_t *block = c.Coefficients.data() + 64 * y * c.BlocksAcross;
        const uint64_t *nonZero = c.NonZero.data() + y * c.BlocksAcross;
        for (size_t x = 0; x < c.BlocksAcross; x++, block += 64, nonZero++)
            TransformBlock(c, block, *nonZero == 0, c.SamplesOf(x, y));
    }
}

static void MakePixels(const PICTURE &picture, const std::function<void(size_t row)> &await,
                       uint8_t *pixels)
{
    std::array<const JPG_PLANE *, 3> planes;
    for (size_t i = 0; i < picture.Count; i++)
        planes[i] = &picture.Components[i].Plane;
    JPG_ToPixels(std::span(planes).first(picture.Count), JPG_Decoder.PaddedWidth,
                 JPG_Decoder.PaddedHeight, pixels, await);
}

// Pixels of a scan that has all components, as its MCUs come.
static void DecodeByRows(PICTURE &picture, uint8_t *pixels)
{
    SCAN scan = BeginScan(picture);
    const size_t height = picture.Count == 1 ? 8 : 8u * JPG_Decoder.V; // of an MCU
    const auto await = [&](size_t row) {
        DecodeUpTo(picture, scan, (row / height + 1) * scan.Across);
    };
    MakePixels(picture, await, pixels);
}

// No encoder makes so many; so a small file cannot ask for hours.
constexpr int SCANS_MOST = 1000;

// Decodes all scans, then the pixels.
static void DecodeByScans(PICTURE &picture, uint8_t *pixels)
{
    const JPG_DECODER decoder = JPG_Decoder; // should a second frame header follow
    const JPG_HEADER header = JPG_Header;
    for (int scans = 0; JPG_Header.DataOffset != 0 && scans < SCANS_MOST; scans++) {
        SCAN scan = BeginScan(picture);
        DecodeUpTo(picture, scan, scan.Count);
        EndScan(picture, scan);
        JPG_Load("*");
        JPG_Decoder = decoder;
        JPG_Header.Width = header.Width;
        JPG_Header.Height = header.Height;
        JPG_Header.ComponentCount = header.ComponentCount;
        JPG_Header.Components = header.Components;
    }
    size_t done = 0; // rows of MCUs
    const auto await = [&](size_t row) {
        for (; picture.Progressive && done <= row / (8u * decoder.V); done++)
            for (size_t i = 0; i < picture.Count; i++)
                TransformRow(picture.Components[i], done);
    };
    MakePixels(picture, await, pixels);
}

static uint8_t *DecodePicture()
{
    uint8_t *pixels = Picture_NewPixels(JPG_Decoder.PaddedWidth, JPG_Decoder.PaddedHeight);
    if (!pixels)
        return nullptr;
    const auto picture = std::make_unique<PICTURE>();
    MakeComponents(*picture);
    if (ComesByRows() && !picture->Progressive)
        DecodeByRows(*picture, pixels);
    else
        DecodeByScans(*picture, pixels);
    return pixels;
}

uint8_t *JPG_Decoding()
{
    if (!Decodable())
        return nullptr;
    try {
        return DecodePicture();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
