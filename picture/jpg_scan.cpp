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
    std::array<float, 64> Scale;
    bool Scaled; // by the table that held at its first scan
    int16_t DC;  // the last block's, which the next one's counts from
    DECODING_TABLE DCTable, ACTable;

    uint8_t *SamplesOf(size_t x, size_t y)
    {
        return Plane.Samples.data() + 8 * (y * Plane.Stride + x);
    }
};

struct PICTURE {
    std::array<COMPONENT, 3> Components;
    size_t Count; // of components
    bool Progressive;
    std::vector<uint8_t> Bits; // of the current restart interval
    uint32_t EndOfBandRun;
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
        c.Plane.Samples.assign(c.Plane.Stride * c.BlocksDown * 8, 128);
        if (picture.Progressive)
            c.Coefficients.assign(c.BlocksAcross * c.BlocksDown * 64, 0);
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
    c.DC = static_cast<int16_t>(c.DC + ValueOf(NextEntry(bits, c.DCTable, false)));
    block[0] = c.DC;
    size_t k = 1;
    while (k < 64) {
        if (bits.Left < 32)
            bits.Refill();
        const uint32_t entry = NextEntry(bits, c.ACTable, true);
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
    c.DC = static_cast<int16_t>(c.DC + ValueOf(NextEntry(bits, c.DCTable, false)));
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
static void DecodeACFirst(BITS &bits, PICTURE &picture, COMPONENT &c, int16_t *block)
{
    if (picture.EndOfBandRun > 0) {
        picture.EndOfBandRun--;
        return;
    }
    for (size_t k = JPG_Header.Ss; k <= JPG_Header.Se; k++) {
        bits.Refill();
        const uint32_t entry = NextEntry(bits, c.ACTable, true);
        if (entry & ENTRY_END) {
            picture.EndOfBandRun = EndOfBandRun(bits, entry) - 1;
            return;
        }
        k += ZerosOf(entry);
        if (k <= JPG_Header.Se)
            block[columnOrder[k]] = static_cast<int16_t>(ValueOf(entry) * (1 << JPG_Header.Al));
    }
}

// Reads a correction bit for a coefficient that is not 0.
static void Correct(BITS &bits, int16_t &coefficient)
{
    const int bit = 1 << JPG_Header.Al;
    if (bits.Take(1) && (coefficient & bit) == 0)
        coefficient = static_cast<int16_t>(coefficient + (coefficient < 0 ? -bit : bit));
}

// ITU-T T.81, G.1.2.3.
static void DecodeACRefine(BITS &bits, PICTURE &picture, COMPONENT &c, int16_t *block)
{
    size_t k = JPG_Header.Ss;
    const size_t end = JPG_Header.Se + size_t{1};
    while (k < end && picture.EndOfBandRun == 0) {
        bits.Refill();
        const uint32_t entry = NextEntry(bits, c.ACTable, true);
        if (entry & ENTRY_END) {
            picture.EndOfBandRun = EndOfBandRun(bits, entry);
            break;
        }
        // Passes over so many zeros, correcting what lies between, to the place of the new one.
        for (uint32_t zeros = ZerosOf(entry); k < end; k++) {
            int16_t &coefficient = block[columnOrder[k]];
            if (bits.Left < 32)
                bits.Refill();
            if (coefficient != 0)
                Correct(bits, coefficient);
            else if (zeros-- == 0)
                break;
        }
        if (k < end && ValueOf(entry) != 0)
            block[columnOrder[k]] =
                static_cast<int16_t>((ValueOf(entry) < 0 ? -1 : 1) * (1 << JPG_Header.Al));
        k++;
    }
    if (picture.EndOfBandRun == 0)
        return;
    for (; k < end; k++) {
        if (bits.Left < 32)
            bits.Refill();
        if (block[columnOrder[k]] != 0)
            Correct(bits, block[columnOrder[k]]);
    }
    picture.EndOfBandRun--;
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
    int16_t *block = c.Coefficients.data() + 64 * (y * c.BlocksAcross + x);
    switch (JPG_Header.ScanMode) {
    case 2:
        DecodeDCFirst(bits, c, block);
        break;
    case 3:
        DecodeDCRefine(bits, block);
        break;
    case 4:
        DecodeACFirst(bits, picture, c, block);
        break;
    case 5:
        DecodeACRefine(bits, picture, c, block);
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
                MakeTable(h.DC[dc], false, c.DCTable);
                MakeTable(h.AC[ac], true, c.ACTable);
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

// The order of a scan's blocks: MCUs of all its components, or one component's blocks.
struct MCU_GRID {
    size_t Across, Count;
    bool Interleaved;
};

static bool DecodeMCU(BITS &bits, PICTURE &picture, const std::vector<COMPONENT *> &components,
                      const MCU_GRID &grid, size_t mcu)
{
    const size_t x = mcu % grid.Across, y = mcu / grid.Across;
    if (!grid.Interleaved)
        return DecodeBlock(bits, picture, *components[0], x, y);
    for (COMPONENT *c : components)
        for (size_t v = 0; v < c->Plane.V; v++)
            for (size_t h = 0; h < c->Plane.H; h++)
                if (!DecodeBlock(bits, picture, *c, x * c->Plane.H + h, y * c->Plane.V + v))
                    return false;
    return true;
}

// Decodes MCUs from `first` on with the interval in picture.Bits, up to `end` or the bits' own.
static void DecodeInterval(PICTURE &picture, const std::vector<COMPONENT *> &components,
                           const MCU_GRID &grid, size_t first, size_t end)
{
    BITS bits{};
    bits.In = bits.Begin = picture.Bits.data();
    bits.Count = (picture.Bits.size() - BITS_SLACK) * 8;
    picture.EndOfBandRun = 0;
    for (COMPONENT *c : components)
        c->DC = 0;
    for (size_t mcu = first; mcu < end; mcu++)
        if (!DecodeMCU(bits, picture, components, grid, mcu))
            break;
}

static MCU_GRID GridOf(const std::vector<COMPONENT *> &components)
{
    // A scan of one component has no MCUs beyond its samples. ITU-T T.81, A.2.2.
    if (components.size() == 1)
        return {components[0]->CodedAcross, components[0]->CodedAcross * components[0]->CodedDown,
                false};
    return {JPG_Decoder.McusAcross, size_t{JPG_Decoder.McusAcross} * JPG_Decoder.McusDown, true};
}

// Decodes the scan at JPG_Position and leaves that at the marker behind it. Where a restart marker
// has another number than its turn, the intervals between were lost.
static void DecodeScan(PICTURE &picture)
{
    const std::vector<COMPONENT *> components = ScanComponents(picture);
    const bool band = JPG_Header.ScanMode >= 2 && JPG_Header.Se <= 63;
    const bool wanted = !components.empty() && (band || !picture.Progressive);
    const MCU_GRID grid = wanted ? GridOf(components) : MCU_GRID{1, 0, false};
    const size_t step = JPG_Header.RestartInterval ? JPG_Header.RestartInterval : grid.Count;
    size_t mcu = 0;
    for (;;) {
        JPG_Position = TakeInterval(JPG_Position, picture.Bits);
        if (mcu < grid.Count)
            DecodeInterval(picture, components, grid, mcu, std::min(mcu + step, grid.Count));
        if (JPG_Position + 1 >= JPG_File.size())
            return;
        while (JPG_Position + 2 < JPG_File.size() && JPG_File[JPG_Position + 1] == 0xFF)
            JPG_Position++; // fill
        const uint8_t marker = JPG_File[JPG_Position + 1];
        if (marker < 0xD0 || marker > 0xD7)
            return;
        const size_t lost = (marker - mcu / std::max<size_t>(step, 1)) & 7;
        mcu += step * (lost < 4 ? lost + 1 : 1);
        JPG_Position += 2;
    }
}

static bool OnlyDC(const int16_t *block)
{
    int16_t rest = static_cast<int16_t>(block[1] | block[2] | block[3]);
    for (size_t i = 4; i < 64; i++)
        rest = static_cast<int16_t>(rest | block[i]);
    return rest == 0;
}

static void TransformAll(COMPONENT &c)
{
    const int16_t *block = c.Coefficients.data();
    for (size_t y = 0; y < c.BlocksDown; y++)
        for (size_t x = 0; x < c.BlocksAcross; x++, block += 64)
            TransformBlock(c, block, OnlyDC(block), c.SamplesOf(x, y));
}

// No encoder makes so many; so a small file cannot ask for hours.
constexpr int SCANS_MOST = 1000;

static uint8_t *DecodePicture()
{
    uint8_t *pixels = Picture_NewPixels(JPG_Decoder.PaddedWidth, JPG_Decoder.PaddedHeight);
    if (!pixels)
        return nullptr;
    const auto picture = std::make_unique<PICTURE>();
    MakeComponents(*picture);
    const JPG_DECODER decoder = JPG_Decoder; // should a second frame header follow
    const JPG_HEADER header = JPG_Header;
    for (int scans = 0; JPG_Header.DataOffset != 0 && scans < SCANS_MOST; scans++) {
        DecodeScan(*picture);
        JPG_Load("*");
        JPG_Decoder = decoder;
        JPG_Header.Width = header.Width;
        JPG_Header.Height = header.Height;
        JPG_Header.ComponentCount = header.ComponentCount;
        JPG_Header.Components = header.Components;
    }
    std::array<JPG_PLANE, 3> planes;
    for (size_t i = 0; i < picture->Count; i++) {
        if (picture->Progressive)
            TransformAll(picture->Components[i]);
        planes[i] = std::move(picture->Components[i].Plane);
    }
    JPG_ToPixels(std::span(planes).first(picture->Count), decoder.PaddedWidth, decoder.PaddedHeight,
                 pixels);
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
