#include "picture/jpg_scan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <memory>
#include <new>

#include "picture/jpg.h"
#include "picture/jpg_bits.h"
#include "picture/jpg_block.h"
#include "picture/jpg_colour.h"
#include "picture/pixels.h"

struct FREE {
    void operator()(void *memory) const
    {
        std::free(memory);
    }
};

struct COMPONENT {
    JPG_PLANE Plane;
    size_t BlocksAcross, BlocksDown;  // with those that pad the last MCUs
    size_t CodedAcross, CodedDown;    // of a scan of this component alone
    // All blocks, column by column, and which of each block's coefficients in zigzag order but the
    // first are not 0. Only for pictures of several scans.
    int16_t *Coefficients;
    std::vector<uint64_t> NonZero;
    std::array<float, 64> Scale;
    bool Scaled;  // by the table that held at its first scan
    int16_t DC;   // the last block's, which the next one's counts from
    JPG_CODES DCCodes, ACCodes;

    int16_t *BlockAt(size_t x, size_t y)
    {
        return Coefficients + 64 * (y * BlocksAcross + x);
    }
    uint8_t *SamplesOf(size_t x, size_t y)
    {
        return Plane.Row(8 * y) + 8 * x;
    }
};

struct PICTURE {
    std::array<COMPONENT, 3> Components;
    std::unique_ptr<int16_t, FREE> Coefficients;  // of all components, in one piece
    size_t Count;                                 // of components
    bool Direct;  // one sequential scan holds everything: no coefficients are kept
};

// Place of each coefficient in a block that stands column by column; places from 64 on are those of
// runs that lead out of it.
static const auto columnOrder = [] {
    std::array<uint8_t, 80> order;
    order.fill(64);
    for (size_t i = 0; i < 64; i++)
        order[i] = static_cast<uint8_t>(JPG_ZigZag[i] % 8 * 8 + JPG_ZigZag[i] / 8);
    return order;
}();

// The scan being decoded.
struct SCAN {
    std::vector<COMPONENT *> Components;
    size_t Across, Down;  // MCUs of all its components, or one component's blocks
    size_t Interval;      // MCUs between restart markers
    JPG_BITS Bits;
    std::vector<uint8_t> Bytes;  // that Bits stands in
    size_t Pending;              // restart interval that JPG_Position stands before
    bool Ended;                  // another marker follows
    uint32_t EndOfBandRun;

    bool Interleaved() const
    {
        return Components.size() > 1;
    }
};

// Calls block(bits, component, x, y) for each block of the MCUs x..end of row y. Returns the first
// MCU that could not be decoded since the bits came to their end, or to damage; or `end`.
template <typename Block>
static size_t EachBlock(SCAN &scan, size_t x, size_t end, size_t y, Block block)
{
    JPG_BITS bits = scan.Bits;  // in registers
    if (!scan.Interleaved()) {
        for (COMPONENT &c = *scan.Components[0]; x < end; x++) {
            block(bits, c, x, y);
            if (bits.Overrun())
                return x;
        }
        scan.Bits = bits;
        return end;
    }
    for (; x < end; x++)
        for (COMPONENT *c : scan.Components)
            for (size_t v = 0; v < c->Plane.V; v++)
                for (size_t h = 0; h < c->Plane.H; h++) {
                    block(bits, *c, x * c->Plane.H + h, y * c->Plane.V + v);
                    if (bits.Overrun())
                        return x;
                }
    scan.Bits = bits;
    return end;
}

static bool IsEnd(int32_t entry)
{
    return (entry & static_cast<int32_t>(JPG_EntryEnd)) != 0;
}

[[gnu::always_inline]] static inline int16_t NextDC(JPG_BITS &bits, COMPONENT &c)
{
    bits.Refill();
    c.DC = static_cast<int16_t>(c.DC + JPG_ValueOf(JPG_NextEntry(bits, c.DCCodes)));
    return c.DC;
}

// A whole block into `block`, which has room for one coefficient more. Returns the zigzag index
// behind the last one that may not be 0.
[[gnu::always_inline]] static inline size_t DecodeBlock(JPG_BITS &bits, COMPONENT &c,
                                                        int16_t *block)
{
    block[0] = NextDC(bits, c);
    size_t k = 1;
    while (k < 64) {
        if (bits.Left < 32)
            bits.Refill();
        const int32_t entry = JPG_NextEntry(bits, c.ACCodes);
        if (IsEnd(entry))
            break;
        k += JPG_ZerosOf(entry);
        block[columnOrder[k]] = static_cast<int16_t>(JPG_ValueOf(entry));
        k++;
    }
    if (k > 64)
        bits.MarkDamage();
    return k;
}

// Each of the following decodes the MCUs x..end of row y by one of the scan modes, and returns what
// EachBlock does.

static size_t DecodeDirect(SCAN &scan, size_t x, size_t end, size_t y)
{
    return EachBlock(scan, x, end, y, [](JPG_BITS &bits, COMPONENT &c, size_t bx, size_t by) {
        std::array<int16_t, 65> block{};
        const size_t last = DecodeBlock(bits, c, block.data());
        if (!bits.Overrun())
            JPG_InverseDCT(block.data(), c.Scale.data(), last, c.SamplesOf(bx, by), c.Plane.Stride);
    });
}

static size_t DecodeSequential(SCAN &scan, size_t x, size_t end, size_t y)
{
    return EachBlock(scan, x, end, y, [](JPG_BITS &bits, COMPONENT &c, size_t bx, size_t by) {
        std::array<int16_t, 65> block{};
        const size_t last = DecodeBlock(bits, c, block.data());
        if (bits.Overrun())
            return;
        std::copy_n(block.begin(), 64, c.BlockAt(bx, by));
        c.NonZero[by * c.BlocksAcross + bx] = (uint64_t{2} << (last - 1)) - 2;
    });
}

static size_t DecodeDCFirst(SCAN &scan, size_t x, size_t end, size_t y)
{
    return EachBlock(scan, x, end, y, [](JPG_BITS &bits, COMPONENT &c, size_t bx, size_t by) {
        *c.BlockAt(bx, by) = static_cast<int16_t>(NextDC(bits, c) * (1 << JPG_Header.Al));
    });
}

static size_t DecodeDCRefine(SCAN &scan, size_t x, size_t end, size_t y)
{
    return EachBlock(scan, x, end, y, [](JPG_BITS &bits, COMPONENT &c, size_t bx, size_t by) {
        if (bits.Left < 32)
            bits.Refill();
        int16_t &value = *c.BlockAt(bx, by);
        value = static_cast<int16_t>(value | static_cast<int>(bits.Take(1)) << JPG_Header.Al);
    });
}

// Blocks that an end-of-band symbol ends: this one and those that its bits count. ITU-T T.81,
// table G.1.
[[gnu::always_inline]] static inline uint32_t TakeRun(JPG_BITS &bits, int32_t entry)
{
    const auto size = static_cast<uint32_t>(JPG_ValueOf(entry)) >> 4;
    return (1u << size) + bits.Take(size);
}

// ITU-T T.81, G.1.2.2.
static size_t DecodeACFirst(SCAN &scan, size_t x, size_t end, size_t y)
{
    COMPONENT &c = *scan.Components[0];
    const size_t first = JPG_Header.Ss, last = JPG_Header.Se;
    const int32_t scale = 1 << JPG_Header.Al;
    JPG_BITS bits = scan.Bits;
    uint32_t run = scan.EndOfBandRun;
    while (x < end) {
        if (run > 0) {
            const size_t skipped = std::min<size_t>(run, end - x);
            run -= static_cast<uint32_t>(skipped);
            x += skipped;
            continue;
        }
        int16_t *block = c.BlockAt(x, y);
        uint64_t set = 0;
        size_t k = first;
        while (k <= last) {
            if (bits.Left < 32)
                bits.Refill();
            const int32_t entry = JPG_NextEntry(bits, c.ACCodes);
            if (IsEnd(entry)) {
                run = TakeRun(bits, entry) - 1;
                break;
            }
            k += JPG_ZerosOf(entry);
            if (JPG_ValueOf(entry) != 0 && k <= last) {
                block[columnOrder[k]] = static_cast<int16_t>(JPG_ValueOf(entry) * scale);
                set |= uint64_t{1} << k;
            }
            k++;
        }
        c.NonZero[y * c.BlocksAcross + x] |= set;
        if (bits.Overrun() || k > last + 1)
            return x;
        x++;
    }
    scan.Bits = bits;
    scan.EndOfBandRun = run;
    return end;
}

// Reads a correction bit for each coefficient of `which`; no branch depends on it.
[[gnu::always_inline]] static inline void Correct(JPG_BITS &bits, int16_t *block, uint64_t which,
                                                  int bit)
{
    for (; which != 0; which &= which - 1) {
        if (bits.Left < 32)
            bits.Refill();
        int16_t &value = block[columnOrder[static_cast<size_t>(std::countr_zero(which))]];
        const int sign = value < 0 ? -1 : 0, change = (bit ^ sign) - sign;
        value = static_cast<int16_t>(value + (change & -static_cast<int>(bits.Take(1))));
    }
}

// The bits below bit `k`.
static uint64_t Below(size_t k)
{
    return k > 63 ? ~uint64_t{0} : (uint64_t{1} << k) - 1;
}

// Where the zero behind `zeros` others stands in `free`, whose bits are zero coefficients; 64 when
// there are not so many.
static size_t FindZero(uint64_t free, uint32_t zeros)
{
    for (; zeros > 0 && free != 0; zeros--)
        free &= free - 1;
    return static_cast<size_t>(std::countr_zero(free));
}

// ITU-T T.81, G.1.2.3.
static size_t DecodeACRefine(SCAN &scan, size_t x, size_t end, size_t y)
{
    COMPONENT &c = *scan.Components[0];
    const uint64_t band = Below(JPG_Header.Se + size_t{1}) & ~Below(JPG_Header.Ss);
    const int bit = 1 << JPG_Header.Al;
    JPG_BITS bits = scan.Bits;
    uint32_t run = scan.EndOfBandRun;
    for (; x < end; x++) {
        int16_t *block = c.BlockAt(x, y);
        uint64_t &nonZero = c.NonZero[y * c.BlocksAcross + x];
        uint64_t left = band;  // of this block
        while (left != 0 && run == 0) {
            if (bits.Left < 32)
                bits.Refill();
            const int32_t entry = JPG_NextEntry(bits, c.ACCodes);
            if (IsEnd(entry)) {
                run = TakeRun(bits, entry);
                break;
            }
            // Correct what lies before the place of the new coefficient.
            const size_t k = FindZero(left & ~nonZero, JPG_ZerosOf(entry));
            Correct(bits, block, left & nonZero & Below(k), bit);
            left &= ~Below(k + 1);
            if (JPG_ValueOf(entry) != 0 && k < 64) {
                block[columnOrder[k]] = static_cast<int16_t>(JPG_ValueOf(entry) < 0 ? -bit : bit);
                nonZero |= uint64_t{1} << k;
            }
        }
        if (run > 0) {
            Correct(bits, block, left & nonZero, bit);
            run--;
        }
        if (bits.Overrun())
            return x;
    }
    scan.Bits = bits;
    scan.EndOfBandRun = run;
    return end;
}

using DECODE = size_t (*)(SCAN &scan, size_t x, size_t end, size_t y);

// What decodes the current scan; null where its header makes no sense.
static DECODE DecoderOf(const PICTURE &picture, const SCAN &scan)
{
    constexpr std::array<DECODE, 6> decoders = {nullptr,        DecodeSequential, DecodeDCFirst,
                                                DecodeDCRefine, DecodeACFirst,    DecodeACRefine};
    const JPG_HEADER &h = JPG_Header;
    if (scan.Components.empty() || h.Se > 63 || h.Ss > h.Se || h.Al > 13)
        return nullptr;
    if (h.ScanMode >= 4 && scan.Interleaved())
        return nullptr;
    return picture.Direct ? DecodeDirect : decoders[h.ScanMode];
}

static bool Decodable()
{
    const JPG_HEADER &h = JPG_Header;
    const JPG_DECODER &d = JPG_Decoder;
    if (h.DataOffset == 0 || h.Precision != 8 || (h.ComponentCount != 1 && h.ComponentCount != 3) ||
        h.Width == 0 || h.Height == 0)
        return false;
    uint64_t blocks = 0;  // of an MCU
    for (size_t i = 0; i < h.ComponentCount; i++) {
        const unsigned horizontal = h.Components[i].Sampling >> 4;
        const unsigned vertical = h.Components[i].Sampling & 15;
        if (horizontal < 1 || horizontal > 4 || vertical < 1 || vertical > 4 || horizontal > d.H ||
            vertical > d.V)
            return false;
        blocks += horizontal * vertical;
    }
    blocks *= uint64_t{d.McusAcross} * d.McusDown;
    return d.PaddedWidth <= 65535 && d.PaddedHeight <= 65535 &&
           blocks / 64 <= uint64_t{JPG_File.size()} * 8;  // of a bit at least
}

// The components that the current scan header names; none when it names one that there is not.
static std::vector<COMPONENT *> FindComponents(PICTURE &picture)
{
    const JPG_HEADER &h = JPG_Header;
    std::vector<COMPONENT *> found;
    for (size_t i = 0; i < h.ScanComponentCount && h.ScanComponentCount <= picture.Count; i++)
        for (size_t k = 0; k < picture.Count; k++)
            if (h.Components[k].Id == h.ScanComponents[i].Id) {
                found.push_back(&picture.Components[k]);
                break;
            }
    if (found.size() != h.ScanComponentCount)
        return {};
    return found;
}

// Zeros for the coefficients of all components; false without memory.
static bool MakeCoefficients(PICTURE &picture)
{
    size_t blocks = 0;
    for (size_t i = 0; i < picture.Count; i++) {
        COMPONENT &c = picture.Components[i];
        c.NonZero.assign(c.BlocksAcross * c.BlocksDown, 0);
        blocks += c.NonZero.size();
    }
    int16_t *next = static_cast<int16_t *>(std::calloc(blocks, 64 * sizeof(int16_t)));
    picture.Coefficients.reset(next);
    for (size_t i = 0; i < picture.Count && next; i++) {
        picture.Components[i].Coefficients = next;
        next += 64 * picture.Components[i].NonZero.size();
    }
    return next != nullptr;
}

static bool MakeComponents(PICTURE &picture)
{
    const JPG_HEADER &h = JPG_Header;
    const JPG_DECODER &d = JPG_Decoder;
    picture.Count = h.ComponentCount;
    const uint8_t full = h.Components[0].Sampling;
    // A single component of other factors has its blocks not in the order of its MCUs.
    picture.Direct = h.ScanMode == 1 && !d.Progressive && (picture.Count == 3 || full == 0x11) &&
                     FindComponents(picture).size() == picture.Count;
    for (size_t i = 0; i < picture.Count; i++) {
        COMPONENT &c = picture.Components[i];
        c.Plane = JPG_MakePlane(h.Components[i].Sampling, full, h.Width, h.Height);
        c.BlocksAcross = d.McusAcross * c.Plane.H;
        c.BlocksDown = d.McusDown * c.Plane.V;
        c.CodedAcross = (c.Plane.Width + 7) / 8;
        c.CodedDown = (c.Plane.Height + 7) / 8;
    }
    return picture.Direct || MakeCoefficients(picture);
}

// Greater numbers of a table are taken for this one. A sample is less than 7 x 2^15 times the
// greatest, coefficients having 16 bits, and so within an int before it is cut to 255. Encoders
// divide coefficients of at most 1024 by such numbers: pictures are what they were.
constexpr uint16_t JPG_MostQuantisation = 8192;
static_assert((int64_t{7} << 15) * JPG_MostQuantisation < INT32_MAX);

static void MakeScale(COMPONENT &c, size_t number)
{
    if (c.Scaled || number >= JPG_Header.Quantisation.size())
        return;
    const JPG_QUANTISATION &table = JPG_Header.Quantisation[number];
    for (size_t row = 0; row < 8; row++)
        for (size_t column = 0; column < 8; column++) {
            const size_t natural = 8 * row + column;
            const float wide = static_cast<float>(std::min(table.Wide[JPG_ZigZag2[natural]],
                                                           JPG_MostQuantisation)) *
                               JPG_ScaleFactor[row] * JPG_ScaleFactor[column];
            c.Scale[8 * column + row] = (table.Precision ? wide : table.Values[natural]) / 8;
        }
    c.Scaled = true;
}

static SCAN MakeScan(PICTURE &picture)
{
    const JPG_HEADER &h = JPG_Header;
    SCAN scan{};
    scan.Components = FindComponents(picture);
    for (size_t i = 0; i < scan.Components.size(); i++) {
        COMPONENT &c = *scan.Components[i];
        JPG_MakeCodes(h.DC[h.ScanComponents[i].Tables >> 4 & 3], false, c.DCCodes);
        JPG_MakeCodes(h.AC[h.ScanComponents[i].Tables & 3], true, c.ACCodes);
        MakeScale(c,
                  h.Components[static_cast<size_t>(&c - picture.Components.data())].Quantisation);
    }
    scan.Across = JPG_Decoder.McusAcross;
    scan.Down = JPG_Decoder.McusDown;
    if (scan.Components.size() == 1) {
        // A scan of one component has no MCUs beyond its samples. ITU-T T.81, A.2.2.
        scan.Across = scan.Components[0]->CodedAcross;
        scan.Down = scan.Components[0]->CodedDown;
    }
    scan.Interval = h.RestartInterval ? h.RestartInterval : scan.Across * scan.Down;
    return scan;
}

// Reads the bits of restart interval `number`; false when they were lost. The marker behind them
// tells which interval follows: a later one than the next, then those between are lost; an earlier
// one, then it is passed over with what follows it. Codes that nobody uses are damage.
static bool StartInterval(SCAN &scan, size_t number)
{
    if (scan.Ended || scan.Pending > number)
        return false;
    const std::span<const uint8_t> file = JPG_File;
    JPG_Position = JPG_TakeInterval(file, JPG_Position, scan.Bytes);
    scan.Bits = {};
    scan.Bits.In = scan.Bytes.data();
    scan.Bits.End = scan.Bytes.data() + scan.Bytes.size() - JPG_BitsSlack;
    scan.EndOfBandRun = 0;
    for (COMPONENT *c : scan.Components)
        c->DC = 0;
    for (; JPG_Position + 1 < file.size(); JPG_Position++) {
        const uint8_t marker = file[JPG_Position + 1];
        if (file[JPG_Position] != 0xFF || marker < 0xC0 || marker == 0xFF)
            continue;
        scan.Ended = marker < 0xD0 || marker > 0xD7;
        const size_t lost = (marker - number) & 7;  // intervals; 4 and more: it is an earlier one
        if (scan.Ended)
            return true;
        if (lost < 4) {
            JPG_Position += 2;
            scan.Pending = number + 1 + lost;
            return true;
        }
    }
    scan.Ended = true;
    return true;
}

static void FillGrey(SCAN &scan, size_t x, size_t end, size_t y)
{
    for (COMPONENT *c : scan.Components)
        for (size_t row = 0; row < 8 * c->Plane.V; row++)
            std::fill_n(c->Plane.Row(8 * c->Plane.V * y + row) + 8 * c->Plane.H * x,
                        8 * c->Plane.H * (end - x), uint8_t{128});
}

// Pixels of one row of MCUs, and those of the row above that waited for it.
static void MakePixels(PICTURE &picture, size_t y, uint8_t *pixels)
{
    std::array<JPG_PLANE *, 3> planes;
    for (size_t i = 0; i < picture.Count; i++)
        planes[i] = &picture.Components[i].Plane;
    const size_t step = 8 * planes[0]->V, height = JPG_Decoder.PaddedHeight;
    const size_t to = step * (y + 1) == height ? height : JPG_RowsReady(*planes[0], step * (y + 1));
    JPG_MakeRows(std::span(planes).first(picture.Count),
                 y == 0 ? 0 : JPG_RowsReady(*planes[0], step * y), to, pixels);
}

// Decodes the scan at JPG_Position, which is left before the marker behind it.
static void DecodeScan(PICTURE &picture, uint8_t *pixels)
{
    SCAN scan = MakeScan(picture);
    const DECODE decode = DecoderOf(picture, scan);
    if (!decode)
        return;
    size_t mcu = 0, next = 0;  // where the current interval ends
    bool good = false;
    for (size_t y = 0; y < scan.Down; y++) {
        for (size_t x = 0; x < scan.Across;) {
            if (mcu == next) {
                good = StartInterval(scan, mcu / scan.Interval);
                next += scan.Interval;
            }
            const size_t end = std::min(scan.Across, x + (next - mcu));
            const size_t reached = good ? decode(scan, x, end, y) : x;
            good = reached == end;
            if (picture.Direct && !good)
                FillGrey(scan, reached, end, y);
            mcu += end - x;
            x = end;
        }
        if (picture.Direct)
            MakePixels(picture, y, pixels);
    }
}

// Samples of one row of MCUs.
static void TransformRow(COMPONENT &c, size_t y)
{
    for (size_t v = c.Plane.V * y; v < c.Plane.V * (y + 1); v++)
        for (size_t x = 0; x < c.BlocksAcross; x++) {
            const uint64_t nonZero = c.NonZero[v * c.BlocksAcross + x] | 1;
            JPG_InverseDCT(c.BlockAt(x, v), c.Scale.data(),
                           static_cast<size_t>(std::bit_width(nonZero)), c.SamplesOf(x, v),
                           c.Plane.Stride);
        }
}

// No encoder makes so many; so a small file cannot ask for hours.
constexpr int JPG_MostScans = 1000;

static void DecodeScans(PICTURE &picture, uint8_t *pixels)
{
    JPG_Decoder.InScans = true;
    const JPG_DECODER decoder = JPG_Decoder;  // should a second frame header follow
    const JPG_HEADER header = JPG_Header;
    for (int scans = 0; JPG_Header.DataOffset != 0 && scans < JPG_MostScans; scans++) {
        DecodeScan(picture, pixels);
        if (picture.Direct)
            return;
        JPG_Load("*");
        JPG_Decoder = decoder;
        JPG_Header.Width = header.Width;
        JPG_Header.Height = header.Height;
        JPG_Header.ComponentCount = header.ComponentCount;
        JPG_Header.Components = header.Components;
    }
    for (size_t y = 0; y < decoder.McusDown; y++) {
        for (size_t i = 0; i < picture.Count; i++)
            TransformRow(picture.Components[i], y);
        MakePixels(picture, y, pixels);
    }
}

uint8_t *JPG_Decoding()
{
    const size_t bytes = size_t{JPG_Decoder.PaddedWidth} * JPG_Decoder.PaddedHeight * 4;
    if (!Decodable() || bytes > Picture_MaxBytes)
        return nullptr;
    std::unique_ptr<uint8_t, FREE> pixels(static_cast<uint8_t *>(std::malloc(bytes)));
    try {
        const auto picture = std::make_unique<PICTURE>();
        if (!pixels || !MakeComponents(*picture))
            return nullptr;
        DecodeScans(*picture, pixels.get());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    return pixels.release();
}
