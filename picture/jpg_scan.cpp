#include "picture/jpg_scan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <memory>

#include "extra/pages.h"
#include "extra/reason.h"
#include "picture/jpg_bits.h"
#include "picture/jpg_block.h"
#include "picture/jpg_colour.h"
#include "picture/jpg_markers.h"
#include "picture/pixels.h"

namespace
{

// Decoding tables of a component in a scan.
struct TABLES {
    JPG_CODES DC, AC;
    JPG_PAIRS Pairs;
    bool Paired;  // Pairs are made
};

struct COMPONENT {
    JPG_PLANE Plane;
    size_t BlocksAcross, BlocksDown;  // including those that pad the last MCUs
    size_t CodedAcross, CodedDown;    // in a scan of this component alone
    // All blocks, and per block a bit for each nonzero AC coefficient, in zigzag order. Only for
    // pictures of several scans.
    int16_t *Coefficients;
    std::vector<uint64_t> NonZero;
    std::array<float, 64> Scale;
    bool Scaled;           // Scale is set, by the table in force at its first scan
    uint8_t *Top;          // first samples of the current row of MCUs
    int16_t DC;            // of the previous block, to which the next difference is added
    const TABLES *Tables;  // the scan's

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
    std::array<COMPONENT, 4> Components;
    std::unique_ptr<int16_t, PICTURE_FREE> Coefficients;  // of all components, in one allocation
    size_t Count;                                         // of components
    JPG_COLOURS Colours;
    int Scans;        // started so far
    uint64_t Visits;  // blocks visited by all scans
    bool Direct;      // one sequential scan has everything: no coefficients are stored
};

// The scan being decoded.
struct SCAN {
    std::vector<COMPONENT *> Components;
    std::vector<std::unique_ptr<TABLES>> Tables;
    size_t Across, Down;  // MCUs of all its components, or one component's blocks
    size_t Interval;      // MCUs between restart markers
    JPG_BITS Bits;
    std::vector<uint8_t> Bytes;  // of the current interval; Bits points into them
    size_t Pending;              // restart interval that starts at JPG_Position
    bool Ended;                  // the scan's data are followed by another marker or the file's end
    uint32_t EndOfBandRun;
    bool GoesOn;  // decodes past invalid codes, and completes an MCU whose bits ran out
    bool Lost;    // the rest of this restart interval cannot be decoded

    bool Interleaved() const
    {
        return Components.size() > 1;
    }
    // Gives up the interval in MCU x of a row. Returns the first MCU that got nothing of it.
    size_t Leave(size_t x)
    {
        Lost = true;
        return x + GoesOn;
    }
};

}  // namespace

// Place of each zigzag coefficient in a block. Indexes from 64 on catch runs that leave the block.
static const auto JPG_Places = [] {
    std::array<uint8_t, 80> order;
    order.fill(64);
    for (size_t i = 0; i < 64; i++)
        order[i] = static_cast<uint8_t>(JPG_PlaceOf(JPG_ZigZag[i] / 8, JPG_ZigZag[i] % 8));
    return order;
}();

// Calls block(bits, component, x, y) for each block of the MCUs x..end - 1 of row y. Returns the
// first MCU that could not be decoded because of damage or the end of the bits, or `end`. If GoesOn
// is set, the MCU in which the bits ran out counts as decoded, its missing bits being zeros.
template <typename Block>
static size_t EachBlock(SCAN &scan, size_t x, size_t end, size_t y, Block block)
{
    JPG_BITS bits = scan.Bits;  // a copy, kept in registers
    const bool interleaved = scan.Interleaved();
    for (; x < end; x++)
        for (COMPONENT *c : scan.Components) {
            const size_t across = interleaved ? c->Plane.H : 1, down = interleaved ? c->Plane.V : 1;
            for (size_t v = 0; v < down; v++)
                for (size_t h = 0; h < across; h++) {
                    block(bits, *c, x * across + h, y * down + v);
                    if (bits.Overrun()) [[unlikely]] {
                        scan.Lost = true;
                        if (!scan.GoesOn)
                            return x;
                        bits.MarkDamage();
                        end = x + 1;
                    }
                }
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
    c.DC = static_cast<int16_t>(c.DC + JPG_ValueOf(JPG_NextEntry(bits, c.Tables->DC)));
    return c.DC;
}

// Ends a block whose run left it. If GoesOn is set the value goes to the last coefficient; else
// this is damage.
[[gnu::always_inline]] static inline size_t LeaveBlock(JPG_BITS &bits, const COMPONENT &c,
                                                       int16_t *block)
{
    if (c.Tables->AC.GoesOn)
        block[JPG_Places[63]] = block[64];
    else
        bits.MarkDamage();
    return 64;
}

// Decodes a whole block; `block` has room for one more coefficient. Returns the zigzag index after
// the last coefficient that may be nonzero. With Paired, `block` is all zeros at first, and pairs
// are used, if the component has them, where the first one of a pair cannot be the block's last.
template <bool Paired>
[[gnu::always_inline]] static inline size_t DecodeBlock(JPG_BITS &bits, COMPONENT &c,
                                                        int16_t *block)
{
    const TABLES &tables = *c.Tables;
    const size_t pairsEnd = Paired && tables.Paired ? 64 - 16 : 0;
    block[0] = NextDC(bits, c);
    size_t k = 1;
    while (k < 64) {
        if (k < pairsEnd) {
            bits.Refill();  // enough for five; counted, since a test of Left mispredicts
            for (int n = 0; n < 5 && k < pairsEnd; n++) {
                const uint64_t pair = tables.Pairs[bits.Buffer >> (64 - JPG_LookBits)];
                if (pair == 0)
                    break;
                bits.Drop(static_cast<uint8_t>(pair));
                block[JPG_Places[k + (pair >> 8 & 255)]] = static_cast<int16_t>(pair >> 32);
                block[JPG_Places[k + (pair >> 16 & 255)]] = static_cast<int16_t>(pair >> 48);
                k += pair >> 24 & 255;
            }
            if (k >= 64)
                break;
        }
        if (bits.Left < 32)
            bits.Refill();
        const int32_t entry = JPG_NextEntry(bits, tables.AC);
        if (IsEnd(entry))
            break;
        k += JPG_ZerosOf(entry);
        block[JPG_Places[k]] = static_cast<int16_t>(JPG_ValueOf(entry));
        k++;
    }
    if (k >= JPG_PairEnd)
        return k - JPG_PairEnd;
    if (k > 64) [[unlikely]]
        return LeaveBlock(bits, c, block);
    return k;
}

// Zeros a block, 16 bytes a store: compilers prefer a slower string instruction.
[[gnu::always_inline]] static inline void Clear(std::array<int16_t, 72> &block)
{
    using LANES [[gnu::vector_size(16), gnu::may_alias]] = int16_t;
    auto *const lanes = reinterpret_cast<LANES *>(block.data());
    lanes[0] = lanes[1] = lanes[2] = lanes[3] = LANES{};
    lanes[4] = lanes[5] = lanes[6] = lanes[7] = LANES{};
}

// Each of the following functions decodes the MCUs x..end - 1 of row y by one scan mode, and
// returns what EachBlock returns.

// The caller fills blocks that could not be decoded with grey.
static size_t DecodeDirect(SCAN &scan, size_t x, size_t end, size_t y)
{
    for (COMPONENT *c : scan.Components)
        c->Top = c->SamplesOf(0, c->Plane.V * y);
    return EachBlock(scan, x, end, y, [y](JPG_BITS &bits, COMPONENT &c, size_t bx, size_t by) {
        alignas(16) std::array<int16_t, 72> block;
        Clear(block);
        JPG_BITS local = bits;  // only inlined functions see it: it stays in registers
        const size_t last = DecodeBlock<true>(local, c, block.data());
        bits = local;
        const size_t row = by - c.Plane.V * y;
        JPG_InverseDCT(block.data(), c.Scale.data(), last, c.Top + 8 * (row * c.Plane.Stride + bx),
                       c.Plane.Stride);
    });
}

// Zeros of this scan do not overwrite an earlier scan of the same component.
static size_t DecodeSequential(SCAN &scan, size_t x, size_t end, size_t y)
{
    return EachBlock(scan, x, end, y, [](JPG_BITS &bits, COMPONENT &c, size_t bx, size_t by) {
        int16_t *kept = c.BlockAt(bx, by);
        std::array<int16_t, 65> block;
        std::copy_n(kept, 64, block.begin());
        const size_t last = DecodeBlock<false>(bits, c, block.data());
        if (bits.Overrun() && !c.Tables->AC.GoesOn)
            return;
        std::copy_n(block.begin(), 64, kept);
        c.NonZero[by * c.BlocksAcross + bx] |= (uint64_t{2} << (last - 1)) - 2;
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

// Number of blocks that an end-of-band symbol ends, this one included. ITU-T T.81, table G.1.
[[gnu::always_inline]] static inline uint32_t TakeRun(JPG_BITS &bits, int32_t entry)
{
    const auto size = static_cast<uint32_t>(JPG_ValueOf(entry)) >> 4;
    return (1u << size) + bits.Take(size);
}

// First scan of a band: the coefficients' high bits. ITU-T T.81, G.1.2.2.
static size_t DecodeACFirst(SCAN &scan, size_t x, size_t end, size_t y)
{
    COMPONENT &c = *scan.Components[0];
    const JPG_CODES &codes = c.Tables->AC;
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
            const int32_t entry = JPG_NextEntry(bits, codes);
            if (IsEnd(entry)) {
                run = TakeRun(bits, entry) - 1;
                break;
            }
            k += JPG_ZerosOf(entry);
            if (k > last)
                k = scan.GoesOn ? std::min<size_t>(k, 63) : 64;
            if (JPG_ValueOf(entry) != 0 && k < 64) {
                block[JPG_Places[k]] = static_cast<int16_t>(JPG_ValueOf(entry) * scale);
                set |= uint64_t{1} << k;
            }
            k++;
        }
        c.NonZero[y * c.BlocksAcross + x] |= set;
        if (bits.Overrun() || k > 64)
            return scan.Leave(x);
        x++;
    }
    scan.Bits = bits;
    scan.EndOfBandRun = run;
    return end;
}

// Reads a correction bit for each coefficient in `which`: if set, the magnitude grows by `bit`. No
// branch depends on it.
[[gnu::always_inline]] static inline void Correct(JPG_BITS &bits, int16_t *block, uint64_t which,
                                                  int bit)
{
    for (; which != 0; which &= which - 1) {
        if (bits.Left < 32)
            bits.Refill();
        int16_t &value = block[JPG_Places[static_cast<size_t>(std::countr_zero(which))]];
        const int sign = value < 0 ? -1 : 0, change = (bit ^ sign) - sign;
        value = static_cast<int16_t>(value + (change & -static_cast<int>(bits.Take(1))));
    }
}

// A mask of the bits below bit `k`.
static uint64_t Below(size_t k)
{
    return k > 63 ? ~uint64_t{0} : (uint64_t{1} << k) - 1;
}

// Position of the zero coefficient that follows `zeros` others in `free`, a mask of zero
// coefficients; 64 if it has too few.
static size_t FindZero(uint64_t free, uint32_t zeros)
{
    for (; zeros > 0 && free != 0; zeros--)
        free &= free - 1;
    return static_cast<size_t>(std::countr_zero(free));
}

// AC refinement. ITU-T T.81, G.1.2.3. Earlier scans sent the band's coefficients without their
// lowest bits; this scan adds the bit Al to each, in one of two ways. A coefficient that is already
// nonzero gets a plain correction bit. A coefficient that is still zero may become +-2^Al: that is
// sent as a Huffman symbol with a sign bit, preceded by a run of zeros that counts only the
// coefficients still zero. The correction bits of the nonzero coefficients that the run passes
// follow the symbol and its sign, in zigzag order. A run of 16 zeros is a symbol without a new
// coefficient. An end-of-band symbol says that no coefficient becomes nonzero in the rest of this
// block and in as many more as it counts; only correction bits follow for them.
//
// NonZero records which coefficients are nonzero, so a run is resolved by bit operations: `left` is
// the part of the band not yet visited, and FindZero gives the place k of the new coefficient.
static size_t DecodeACRefine(SCAN &scan, size_t x, size_t end, size_t y)
{
    COMPONENT &c = *scan.Components[0];
    const JPG_CODES &codes = c.Tables->AC;
    const uint64_t band = Below(JPG_Header.Se + size_t{1}) & ~Below(JPG_Header.Ss);
    const int bit = 1 << JPG_Header.Al;
    JPG_BITS bits = scan.Bits;
    uint32_t run = scan.EndOfBandRun;
    for (; x < end; x++) {
        int16_t *block = c.BlockAt(x, y);
        uint64_t &nonZero = c.NonZero[y * c.BlocksAcross + x];
        uint64_t left = band;  // coefficients of this block still to visit
        while (left != 0 && run == 0) {
            if (bits.Left < 32)
                bits.Refill();
            const int32_t entry = JPG_NextEntry(bits, codes);
            if (IsEnd(entry)) {
                run = TakeRun(bits, entry);
                break;
            }
            // Correct the coefficients before the new one.
            const size_t k = FindZero(left & ~nonZero, JPG_ZerosOf(entry));
            Correct(bits, block, left & nonZero & Below(k), bit);
            left &= ~Below(k + 1);
            if (JPG_ValueOf(entry) != 0 && (k < 64 || scan.GoesOn)) {
                const size_t place = std::min<size_t>(k, 63);
                block[JPG_Places[place]] =
                    static_cast<int16_t>(JPG_ValueOf(entry) < 0 ? -bit : bit);
                nonZero |= uint64_t{1} << place;
            }
        }
        if (run > 0) {
            Correct(bits, block, left & nonZero, bit);
            run--;
        }
        if (bits.Overrun())
            return scan.Leave(x);
    }
    scan.Bits = bits;
    scan.EndOfBandRun = run;
    return end;
}

using JPG_DECODE = size_t (*)(SCAN &scan, size_t x, size_t end, size_t y);

// Whether the scan's coefficients and bits exist. ITU-T T.81, B.2.3.
static bool HasValidBand()
{
    const JPG_HEADER &h = JPG_Header;
    return h.Ss <= h.Se && h.Se <= 63 && h.Al <= 13;
}

// The function that decodes the current scan; null if its header is invalid.
static JPG_DECODE DecoderOf(const PICTURE &picture, const SCAN &scan)
{
    constexpr std::array<JPG_DECODE, 6> decoders = {
        nullptr, DecodeSequential, DecodeDCFirst, DecodeDCRefine, DecodeACFirst, DecodeACRefine};
    const JPG_HEADER &h = JPG_Header;
    if (scan.Components.empty() || !HasValidBand())
        return nullptr;
    if (h.ScanMode >= 4 && scan.Interleaved())
        return nullptr;
    return picture.Direct ? DecodeDirect : decoders[h.ScanMode];
}

// Name of an unsupported frame header's process.
static const char *ProcessOf(uint8_t marker)
{
    switch (marker) {
    case 0:
        return "no frame header";
    case 0xC1:
        return "extended sequential coding";
    case 0xC3:
        return "lossless coding";
    case 0xC9:
    case 0xCA:
    case 0xCB:
        return "arithmetic coding";
    }
    return "hierarchical coding";
}

// Whether every component's sampling factors are 1 to 4 and at most those of the MCU.
static bool FactorsFit()
{
    const JPG_HEADER &h = JPG_Header;
    const JPG_DECODER &d = JPG_Decoder;
    return std::all_of(h.Components.begin(), h.Components.begin() + h.ComponentCount,
                       [&d](const JPG_COMPONENT &c) {
                           const unsigned horizontal = c.Sampling >> 4, vertical = c.Sampling & 15;
                           return horizontal >= 1 && horizontal <= std::min<unsigned>(d.H, 4) &&
                                  vertical >= 1 && vertical <= std::min<unsigned>(d.V, 4);
                       });
}

// Maximum pixels of an Exif thumbnail, which normally has 160 x 120.
constexpr uint32_t JPG_MaxThumbnail = 1 << 22;

// Maximum pixels of this picture; limited only for thumbnails and parts of other files.
static uint64_t MaxPixels()
{
    return JPG_Decoder.Embedded ? JPG_MaxThumbnail
           : JPG_Decoder.Stream ? JPG_Decoder.MaxPixels
                                : UINT64_MAX;
}

// Whether the picture is rejected; sets the reason.
static bool IsRefused(JPG_COLOURS colours)
{
    const JPG_HEADER &h = JPG_Header;
    const JPG_DECODER &d = JPG_Decoder;
    if (h.Width == 0)
        Reason_Set("%s", ProcessOf(d.Refused));
    else if (h.DataOffset == 0)
        Reason_Set("no scan");
    else if (h.Precision != 8)
        Reason_Set("%d bits a sample", h.Precision);
    else if (colours == JPG_COLOURS_NONE || h.ComponentCount < 1 || h.ComponentCount > 4)
        Reason_Set("%d components", h.ComponentCount);
    else if (h.Height == 0)
        Reason_Set("a side of 0 pixels");
    else if (!FactorsFit())
        Reason_Set("sampling factors that make no sense");
    else if (d.PaddedWidth > 65535 || d.PaddedHeight > 65535)
        Reason_Set("a padded side of more than 65535 pixels");
    else if (uint64_t{h.Width} * h.Height > MaxPixels())
        Reason_Set("a %s of %d x %d pixels", d.Embedded ? "thumbnail" : "part", h.Width, h.Height);
    else
        return false;
    return true;
}

// Bytes per block: its coefficients and their mask of nonzero ones.
constexpr uint64_t JPG_BlockMemory = 64 * sizeof(int16_t) + sizeof(uint64_t);

// Blocks of all components in an MCU.
static uint64_t BlocksOfMcu()
{
    const JPG_HEADER &h = JPG_Header;
    uint64_t blocks = 0;
    for (size_t i = 0; i < h.ComponentCount; i++)
        blocks += (h.Components[i].Sampling >> 4) * (h.Components[i].Sampling & 15u);
    return blocks;
}

static uint64_t AllBlocks()
{
    return BlocksOfMcu() * JPG_Decoder.McusAcross * JPG_Decoder.McusDown;
}

// Bytes of the file from the picture's start.
static uint64_t OwnBytes()
{
    const size_t size = JPG_Header.FileSize, start = JPG_Decoder.Start;
    return size - std::min(size, start);
}

// Blocks that one byte may stand for. A scan has at least a bit for each block, and
// Picture_Believes allows eight times as much. Pictures of up to JPG_FreePixels are decoded
// whatever the file's size, since a small damaged file may still show something.
constexpr uint64_t JPG_BlocksPerByte = 12, JPG_FreePixels = 1 << 23;

// Whether the file can hold the picture. A part of another file also needs memory for a copy of the
// samples.
static bool IsBelievable(const PICTURE &picture)
{
    const JPG_DECODER &d = JPG_Decoder;
    const uint64_t perByte = JPG_BlocksPerByte * 64 * d.H * d.V / BlocksOfMcu() / Picture_MinShare;
    const uint64_t pixels = uint64_t{d.PaddedWidth} * d.PaddedHeight;
    const uint64_t coefficients = picture.Direct ? 0 : AllBlocks() * JPG_BlockMemory;
    return Picture_Believes(
        {d.PaddedWidth, d.PaddedHeight,
         pixels <= JPG_FreePixels ? JPG_FreePixels : OwnBytes() * std::max<uint64_t>(perByte, 1),
         JPG_File.size(), d.Beside + coefficients + (d.Stream ? pixels * picture.Count : 0)});
}

// Several components may have the same id. Framework: a scan always gets the first of them. Format:
// the first that the scan does not have yet.
static bool IsFree(const COMPONENT &component, const std::vector<COMPONENT *> &found)
{
    return !JPG_ByFormat() || std::find(found.begin(), found.end(), &component) == found.end();
}

// The components that the current scan header names; empty if it names an unknown one.
static std::vector<COMPONENT *> FindComponents(PICTURE &picture)
{
    const JPG_HEADER &h = JPG_Header;
    std::vector<COMPONENT *> found;
    for (size_t i = 0; i < h.ScanComponentCount && h.ScanComponentCount <= picture.Count; i++)
        for (size_t k = 0; k < picture.Count; k++)
            if (h.Components[k].Id == h.ScanComponents[i].Id &&
                IsFree(picture.Components[k], found)) {
                found.push_back(&picture.Components[k]);
                break;
            }
    if (found.size() != h.ScanComponentCount)
        return {};
    return found;
}

// Allocates zeroed coefficients for all components; false if memory runs out.
static bool MakeCoefficients(PICTURE &picture)
{
    size_t blocks = 0;
    for (size_t i = 0; i < picture.Count; i++) {
        COMPONENT &c = picture.Components[i];
        c.NonZero.assign(c.BlocksAcross * c.BlocksDown, 0);
        blocks += c.NonZero.size();
    }
    constexpr size_t size = 64 * sizeof(int16_t);
    auto *next = static_cast<int16_t *>(Pages_Advise(std::calloc(blocks, size), blocks * size));
    picture.Coefficients.reset(next);
    for (size_t i = 0; i < picture.Count && next; i++) {
        picture.Components[i].Coefficients = next;
        next += 64 * picture.Components[i].NonZero.size();
    }
    return next != nullptr;
}

static uint8_t FullFactors()
{
    return static_cast<uint8_t>(JPG_Decoder.H << 4 | JPG_Decoder.V);
}

// Whether one sequential scan has everything. A single component with factors above 1 is excluded,
// since its blocks are not in the order of its MCUs.
static bool IsDirect(PICTURE &picture)
{
    return HasValidBand() && JPG_Header.ScanMode == 1 && !JPG_Decoder.Progressive &&
           (picture.Count > 1 || FullFactors() == 0x11) &&
           FindComponents(picture).size() == picture.Count;
}

static bool MakeComponents(PICTURE &picture)
{
    const JPG_HEADER &h = JPG_Header;
    const JPG_DECODER &d = JPG_Decoder;
    const uint8_t full = FullFactors();
    for (size_t i = 0; i < picture.Count; i++) {
        COMPONENT &c = picture.Components[i];
        c.Plane = JPG_MakePlane(h.Components[i].Sampling, full, h.Width, h.Height,
                                JPG_ByFormat() ? JPG_STRETCH_USUAL : JPG_STRETCH_LINEAR);
        c.BlocksAcross = d.McusAcross * c.Plane.H;
        c.BlocksDown = d.McusDown * c.Plane.V;
        c.CodedAcross = (c.Plane.Width + 7) / 8;
        c.CodedDown = (c.Plane.Height + 7) / 8;
    }
    return picture.Direct || MakeCoefficients(picture);
}

// Larger quantisation values are clamped to this. Coefficients have 16 bits, so a sample is less
// than 7 x 2^15 times the largest value, and fits an int before it is clamped to 255. Valid
// pictures are unaffected: encoders divide coefficients of at most 1024 by such values.
constexpr uint16_t JPG_MaxQuantisation = 8192;
static_assert((int64_t{7} << 15) * JPG_MaxQuantisation < INT32_MAX);

static void MakeScale(COMPONENT &c, size_t number)
{
    if (c.Scaled || number >= JPG_Header.Quantisation.size())
        return;
    const JPG_QUANTISATION &table = JPG_Header.Quantisation[number];
    for (size_t row = 0; row < 8; row++)
        for (size_t column = 0; column < 8; column++) {
            const size_t natural = 8 * row + column;
            const float wide = static_cast<float>(std::min(table.Wide[JPG_ZigZag2[natural]],
                                                           JPG_MaxQuantisation)) *
                               JPG_ScaleFactor[row] * JPG_ScaleFactor[column];
            c.Scale[8 * column + row] =
                (table.Precision ? wide : table.Values[natural]) / JPG_ScaleUnit;
        }
    c.Scaled = true;
}

// Bytes of a picture from which on pairs gain more time than making them takes.
constexpr uint64_t JPG_MinPairsBytes = 1 << 14;

static SCAN MakeScan(PICTURE &picture)
{
    const JPG_HEADER &h = JPG_Header;
    SCAN scan{};
    scan.GoesOn = JPG_ByFormat();
    scan.Components = FindComponents(picture);
    for (size_t i = 0; i < scan.Components.size(); i++) {
        COMPONENT &c = *scan.Components[i];
        const uint8_t tables = h.ScanComponents[i].Tables;
        if (i > 0 && tables == h.ScanComponents[i - 1].Tables) {  // as two colours usually are
            c.Tables = scan.Components[i - 1]->Tables;
        } else {
            scan.Tables.push_back(std::make_unique_for_overwrite<TABLES>());
            TABLES &made = *scan.Tables.back();
            JPG_MakeCodes(h.DC[tables >> 4 & 3], false, scan.GoesOn, made.DC);
            JPG_MakeCodes(h.AC[tables & 3], true, scan.GoesOn, made.AC);
            made.Paired = picture.Direct && OwnBytes() >= JPG_MinPairsBytes;
            if (made.Paired)
                JPG_MakePairs(made.AC, made.Pairs);
            c.Tables = &made;
        }
        MakeScale(c,
                  h.Components[static_cast<size_t>(&c - picture.Components.data())].Quantisation);
    }
    scan.Across = JPG_Decoder.McusAcross;
    scan.Down = JPG_Decoder.McusDown;
    if (scan.Components.size() == 1) {
        // A scan of one component has no MCUs beyond the component's samples. ITU-T T.81, A.2.2.
        scan.Across = scan.Components[0]->CodedAcross;
        scan.Down = scan.Components[0]->CodedDown;
    }
    scan.Interval = h.RestartInterval ? h.RestartInterval : scan.Across * scan.Down;
    return scan;
}

// Reads the bits of restart interval `number`; false if the interval is lost. The RSTn marker after
// them says which interval comes next: if it is up to 3 ahead, those between are lost; else it is
// stale and skipped with the data after it. Meaningless markers are skipped.
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
    scan.Lost = false;
    for (COMPONENT *c : scan.Components)
        c->DC = 0;
    for (; JPG_Position + 1 < file.size(); JPG_Position++) {
        const uint8_t marker = file[JPG_Position + 1];
        if (file[JPG_Position] != 0xFF || marker < 0xC0 || marker == 0xFF)
            continue;
        scan.Ended = marker < 0xD0 || marker > 0xD7;
        const size_t lost = (marker - number) & 7;  // intervals; 4 or more: the marker is stale
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

// Makes the pixels of one row of MCUs, and those of the row above that had to wait for it.
static void MakePixels(PICTURE &picture, size_t y, uint8_t *pixels)
{
    std::array<JPG_PLANE *, 4> planes;
    for (size_t i = 0; i < picture.Count; i++)
        planes[i] = &picture.Components[i].Plane;
    const size_t step = 8 * size_t{JPG_Decoder.V}, height = JPG_Decoder.PaddedHeight;
    const size_t to = step * (y + 1) == height ? height : JPG_RowsReady(*planes[0], step * (y + 1));
    JPG_MakeRows(std::span(planes).first(picture.Count), picture.Colours,
                 y == 0 ? 0 : JPG_RowsReady(*planes[0], step * y), to, pixels);
}

// Sets the reason why MCU row y of a scan is incomplete.
static void NoteLoss(const PICTURE &picture, const SCAN &scan, size_t y)
{
    const JPG_HEADER &h = JPG_Header;
    const size_t rows = std::min<size_t>(h.Height, y * JPG_Decoder.PaddedHeight / scan.Down);
    const char *what = JPG_Position + 1 >= JPG_File.size() ? "cut" : "damaged";
    if (picture.Direct)
        Reason_Set("%s after %zu of %d rows", what, rows, h.Height);
    else
        Reason_Set("%s in scan %d after %zu of %d rows", what, picture.Scans, rows, h.Height);
}

// Decodes the scan at JPG_Position and stops before the marker after it. If the data run out it
// ends at once, unless rows of pixels are still to be made.
static void DecodeScan(PICTURE &picture, uint8_t *pixels)
{
    SCAN scan = MakeScan(picture);
    const JPG_DECODE decode = DecoderOf(picture, scan);
    if (!decode) {
        if (JPG_Position + 1 < JPG_File.size())  // else it is cut, which is noted after the scans
            Reason_Set("scan %d has a header that makes no sense", picture.Scans);
        return;
    }
    size_t mcu = 0, next = 0;  // next: MCU at which the current interval ends
    bool good = false;
    for (size_t y = 0; y < scan.Down; y++) {
        for (size_t x = 0; x < scan.Across;) {
            if (mcu == next) {
                good = StartInterval(scan, mcu / scan.Interval);
                next += scan.Interval;
            }
            const size_t end = std::min(scan.Across, x + (next - mcu));
            const size_t reached = good ? decode(scan, x, end, y) : x;
            picture.Visits += (reached - x + 1) * scan.Components.size();
            good = good && !scan.Lost;
            if (!good) {
                NoteLoss(picture, scan, y);
                if (picture.Direct)
                    FillGrey(scan, reached, end, y);
                else if (scan.Ended)
                    return;
            }
            mcu += end - x;
            x = end;
        }
        if (picture.Direct)
            MakePixels(picture, y, pixels);
    }
}

// Makes the samples of one row of MCUs.
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

// Limits on the number of scans and of block visits, above what encoders produce, so that a small
// file cannot cost hours.
constexpr int JPG_MaxScans = 1000;
constexpr uint64_t JPG_VisitsPerByte = 64, JPG_VisitsPerBlock = 32;

// Whether the next scan is within these limits.
static bool IsBounded(const PICTURE &picture, uint64_t blocks)
{
    if (picture.Scans >= JPG_MaxScans)
        Reason_Set("more than %d scans", JPG_MaxScans);
    else if (picture.Visits > OwnBytes() * JPG_VisitsPerByte + blocks * JPG_VisitsPerBlock)
        Reason_Set("scan %d and on: more work than its bytes are worth", picture.Scans + 1);
    else
        return true;
    return false;
}

// Sets the reason for scans that are missing altogether.
static void NoteMissingScans(const PICTURE &picture)
{
    for (size_t i = 0; i < picture.Count; i++)
        if (!picture.Components[i].Scaled)
            Reason_Set("no scan of component %zu", i + 1);
    if (JPG_Decoder.Progressive && !JPG_Decoder.Ended)
        Reason_Set("cut after scan %d", picture.Scans);
}

static void DecodeAllScans(PICTURE &picture, uint8_t *pixels)
{
    JPG_Decoder.InScans = true;
    const JPG_DECODER decoder = JPG_Decoder;  // restored in case a second frame header follows
    const JPG_HEADER header = JPG_Header;
    const uint64_t blocks = AllBlocks();
    while (JPG_Header.DataOffset != 0 && IsBounded(picture, blocks)) {
        picture.Scans++;
        DecodeScan(picture, pixels);
        if (picture.Direct)
            return;
        JPG_WalkMarkers();
        const bool ended = JPG_Decoder.Ended;
        JPG_Decoder = decoder;
        JPG_Decoder.Ended = ended;
        JPG_Header.Width = header.Width;
        JPG_Header.Height = header.Height;
        JPG_Header.ComponentCount = header.ComponentCount;
        JPG_Header.Components = header.Components;
    }
    NoteMissingScans(picture);
    for (size_t y = 0; y < decoder.McusDown; y++) {
        for (size_t i = 0; i < picture.Count; i++)
            TransformRow(picture.Components[i], y);
        MakePixels(picture, y, pixels);
    }
}

uint8_t *JPG_DecodeScans(JPG_COLOURS colours)
{
    if (IsRefused(colours))
        return nullptr;
    const auto picture = std::make_unique<PICTURE>();
    picture->Colours = colours;
    picture->Count = JPG_Header.ComponentCount;
    picture->Direct = IsDirect(*picture);
    if (!IsBelievable(*picture))
        return nullptr;
    const size_t pixelBytes = JPG_PixelBytes(colours, JPG_Header.ComponentCount);
    const size_t bytes = size_t{JPG_Decoder.PaddedWidth} * JPG_Decoder.PaddedHeight * pixelBytes;
    PICTURE_PIXELS pixels(static_cast<uint8_t *>(Pages_Advise(std::malloc(bytes), bytes)));
    if (!pixels || !MakeComponents(*picture)) {
        Reason_Set("out of memory");
        return nullptr;
    }
    DecodeAllScans(*picture, pixels.get());
    return pixels.release();
}
