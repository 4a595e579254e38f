#include "audio/mp3_layer3.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "audio/mp3_huffman.h"

namespace
{

// Sets of scale factor bands. A short-block band counts as one band per window.
enum MP3_SHAPE : uint8_t { MP3_LONG = 0, MP3_SHORTS = 1, MP3_MIXED = 2 };

struct MP3_BANDS {
    size_t Count;
    size_t Long;                     // how many of them, from the first, are long-block bands
    std::array<uint8_t, 39> Width;   // in lines
    std::array<uint16_t, 40> Start;  // first line; past the last band, 576
};

}  // namespace

// ISO/IEC 11172-3, table 3-B.8, and 13818-3, annex B; by rate.
constexpr std::array<std::array<uint8_t, 22>, 9> MP3_LongWidths = {{
    {4, 4, 4, 4, 4, 4, 6, 6, 8, 8, 10, 12, 16, 20, 24, 28, 34, 42, 50, 54, 76, 158},
    {4, 4, 4, 4, 4, 4, 6, 6, 6, 8, 10, 12, 16, 18, 22, 28, 34, 40, 46, 54, 54, 192},
    {4, 4, 4, 4, 4, 4, 6, 6, 8, 10, 12, 16, 20, 24, 30, 38, 46, 56, 68, 84, 102, 26},
    {6, 6, 6, 6, 6, 6, 8, 10, 12, 14, 16, 20, 24, 28, 32, 38, 46, 52, 60, 68, 58, 54},
    {6, 6, 6, 6, 6, 6, 8, 10, 12, 14, 16, 18, 22, 26, 32, 38, 46, 54, 62, 70, 76, 36},
    {6, 6, 6, 6, 6, 6, 8, 10, 12, 14, 16, 20, 24, 28, 32, 38, 46, 52, 60, 68, 58, 54},
    {6, 6, 6, 6, 6, 6, 8, 10, 12, 14, 16, 20, 24, 28, 32, 38, 46, 52, 60, 68, 58, 54},
    {6, 6, 6, 6, 6, 6, 8, 10, 12, 14, 16, 20, 24, 28, 32, 38, 46, 52, 60, 68, 58, 54},
    {12, 12, 12, 12, 12, 12, 16, 20, 24, 28, 32, 40, 48, 56, 64, 76, 90, 2, 2, 2, 2, 2},
}};
constexpr std::array<std::array<uint8_t, 13>, 9> MP3_ShortWidths = {{
    {4, 4, 4, 4, 6, 8, 10, 12, 14, 18, 22, 30, 56},
    {4, 4, 4, 4, 6, 6, 10, 12, 14, 16, 20, 26, 66},
    {4, 4, 4, 4, 6, 8, 12, 16, 20, 26, 34, 42, 12},
    {4, 4, 4, 6, 6, 8, 10, 14, 18, 26, 32, 42, 18},
    {4, 4, 4, 6, 8, 10, 12, 14, 18, 24, 32, 44, 12},
    {4, 4, 4, 6, 8, 10, 12, 14, 18, 24, 30, 40, 18},
    {4, 4, 4, 6, 8, 10, 12, 14, 18, 24, 30, 40, 18},
    {4, 4, 4, 6, 8, 10, 12, 14, 18, 24, 30, 40, 18},
    {8, 8, 8, 12, 16, 20, 24, 28, 36, 2, 2, 2, 26},
}};

// The bands by rate and block shape. The long part of mixed blocks ends where short band 3 starts.
constexpr auto MP3_Bands = [] {
    std::array<std::array<MP3_BANDS, 3>, 9> table{};
    for (size_t rate = 0; rate < table.size(); rate++)
        for (const size_t shape : {MP3_LONG, MP3_SHORTS, MP3_MIXED}) {
            MP3_BANDS &bands = table[rate][shape];
            const auto add = [&bands](uint8_t width) {
                bands.Width[bands.Count] = width;
                bands.Start[bands.Count + 1] =
                    static_cast<uint16_t>(bands.Start[bands.Count] + width);
                bands.Count++;
            };
            bands.Long = shape == MP3_LONG         ? 22
                         : shape == MP3_SHORTS     ? 0
                         : rate < MP3_FirstLowRate ? 8
                                                   : 6;
            for (size_t b = 0; b < bands.Long; b++)
                add(MP3_LongWidths[rate][b]);
            for (size_t b = shape == MP3_MIXED ? 3 : 0; shape != MP3_LONG && b < 13; b++)
                for (int window = 0; window < 3; window++)
                    add(MP3_ShortWidths[rate][b]);
        }
    return table;
}();

static consteval bool BandsFillTheGranule()
{
    for (const auto &shapes : MP3_Bands)
        for (const MP3_BANDS &bands : shapes)
            if (bands.Start[bands.Count] != MP3_Lines)
                return false;
    return true;
}
static_assert(BandsFillTheGranule());

// ISO/IEC 11172-3, table 3-B.6.
constexpr std::array<uint8_t, 22> MP3_PreTab = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

namespace
{

// Scale factors come in four groups of bands, each with its own bit width.
struct MP3_SCALE_GROUPS {
    std::array<uint8_t, 4> Count;  // of bands
    std::array<uint8_t, 4> Bits;
};

}  // namespace

// ISO/IEC 11172-3, 2.4.2.7: the bits of the first two and of the last two groups, by
// scalefac_compress.
constexpr std::array<uint8_t, 16> MP3_ScaleBits1 = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
constexpr std::array<uint8_t, 16> MP3_ScaleBits2 = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};

// Bands of each group by block shape. The last band, or the last three, have no scale factor.
constexpr std::array<std::array<uint8_t, 4>, 3> MP3_ScaleGroups = {
    {{6, 5, 5, 5}, {18, 0, 18, 0}, {17, 0, 18, 0}}};

// ISO/IEC 13818-3, 2.4.3.2: the same for low rates, by the row that scalefac_compress selects;
// rows 3 to 5 are for the right channel with intensity stereo.
constexpr std::array<std::array<std::array<uint8_t, 4>, 3>, 6> MP3_LowScaleGroups = {{
    {{{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}}},
    {{{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}}},
    {{{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}},
    {{{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}}},
    {{{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}}},
    {{{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}}},
}};

namespace
{

// n^(4/3) = Mantissa * 2^(Exponent - 31). The mantissa is normalised to 31 bits (except for n = 0).
struct MP3_POWER {
    int32_t Mantissa, Exponent;
};

}  // namespace

constexpr size_t MP3_MaxValue = 15 + 8191;  // the largest value of a line: 13 bits after a 15
static std::array<MP3_POWER, MP3_MaxValue + 1> MP3_Powers;

// Small values with sign, times 2^(k/4) and with 21 fractional bits: by k, and by value + 64.
constexpr int MP3_SmallValues = 64, MP3_SmallBits = 21;
static std::array<std::array<int32_t, 2 * MP3_SmallValues>, 4> MP3_SmallPowers;

// 2^(k/4), 30 fractional bits.
constexpr std::array<int32_t, 4> MP3_QuarterPowers = {
    1 << 30, MP3_Constant(MP3_Root(MP3_Root(2.0)), 30), MP3_Constant(MP3_Root(2.0), 30),
    MP3_Constant(MP3_Root(MP3_Root(8.0)), 30)};

namespace
{

// Side information of one channel's granule.
struct MP3_GRANULE {
    uint16_t Bits;  // of scale factors and spectrum, "part2_3_length"
    uint8_t GlobalGain;
    uint16_t ScaleCompress;
    MP3_BLOCK Block;
    bool Mixed;
    MP3_SHAPE Shape;
    std::array<uint8_t, 3> WindowGain;  // of short blocks
    bool PreTab;
    uint8_t ScaleStep;  // exponent of a scale factor's step, in quarters of a factor of 2
    MP3_REGIONS Regions;
};

struct MP3_SIDE_INFO {
    size_t MainDataBegin;
    std::array<std::array<bool, 4>, 2> Share;  // scfsi, by channel and group
    std::array<std::array<MP3_GRANULE, 2>, 2> Granules;
};

// One channel's granule while it is decoded. The scale factors stay for the next granule.
struct MP3_CHANNEL {
    const MP3_GRANULE *Granule;
    const MP3_BANDS *Bands;
    std::array<uint8_t, 39> Scale;    // factor by band
    std::array<uint8_t, 39> Illegal;  // the scale factor that marks a band as not intensity coded
    MP3_QUANTISED Quantised;
    size_t Used;  // lines up to the last nonzero one
    bool Whole;   // no bits were missing
    std::array<MP3_FIXED, MP3_Lines> Lines;
};

}  // namespace

// Lines at which the pairs' code tables change.
static void SetRegions(MP3_BITS &bits, MP3_GRANULE &granule, size_t bigValues,
                       const MP3_FORMAT &format, bool switched)
{
    const MP3_BANDS &bands = MP3_Bands[format.Rate][MP3_LONG];
    size_t first, second;
    if (switched) {
        first = granule.Block == MP3_SHORT ? MP3_Bands[format.Rate][MP3_SHORTS].Start[9]
                                           : bands.Start[8];
        second = MP3_Lines;
    } else {
        const size_t count0 = MP3_GetBits(bits, 4), count1 = MP3_GetBits(bits, 3);
        first = bands.Start[count0 + 1];
        second = bands.Start[std::min(count0 + count1 + 2, bands.Count)];
    }
    for (size_t i = 0; i < 3; i++) {
        const size_t end = i == 0 ? first : i == 1 ? second : MP3_Lines;
        granule.Regions.End[i] = static_cast<uint16_t>(std::min(end, 2 * bigValues));
    }
}

// Reads the side information. ISO/IEC 11172-3 and 13818-3, 2.4.1.7. False if it is invalid.
static bool ReadGranule(MP3_BITS &bits, const MP3_FORMAT &format, bool intensityRight,
                        MP3_GRANULE &granule)
{
    const bool low = format.Rate >= MP3_FirstLowRate;
    granule = {};
    granule.Bits = static_cast<uint16_t>(MP3_GetBits(bits, 12));
    const size_t bigValues = MP3_GetBits(bits, 9);
    granule.GlobalGain = static_cast<uint8_t>(MP3_GetBits(bits, 8));
    granule.ScaleCompress = static_cast<uint16_t>(MP3_GetBits(bits, low ? 9 : 4));
    const bool switched = MP3_GetBits1(bits) != 0;
    if (switched) {
        granule.Block = static_cast<MP3_BLOCK>(MP3_GetBits(bits, 2));
        granule.Mixed = MP3_GetBits1(bits) != 0;
    }
    for (size_t i = 0; i < (switched ? 2 : 3); i++)
        granule.Regions.Table[i] = static_cast<uint8_t>(MP3_GetBits(bits, 5));
    for (size_t i = 0; switched && i < 3; i++)
        granule.WindowGain[i] = static_cast<uint8_t>(MP3_GetBits(bits, 3));
    SetRegions(bits, granule, bigValues, format, switched);
    granule.Shape = granule.Block != MP3_SHORT ? MP3_LONG : granule.Mixed ? MP3_MIXED : MP3_SHORTS;
    granule.PreTab =
        low ? granule.ScaleCompress >= 500 && !intensityRight : MP3_GetBits1(bits) != 0;
    granule.ScaleStep = MP3_GetBits1(bits) != 0 ? 4 : 2;
    granule.Regions.QuadTable = static_cast<uint8_t>(MP3_GetBits1(bits));
    return bigValues <= MP3_Lines / 2 && !(switched && granule.Block == MP3_NORMAL);
}

static bool ReadSideInfo(MP3_BITS &bits, const MP3_FORMAT &format, MP3_SIDE_INFO &side)
{
    const bool low = format.Rate >= MP3_FirstLowRate, mono = format.Channels == 1;
    side.MainDataBegin = MP3_GetBits(bits, low ? 8 : 9);
    MP3_GetBits(bits, low ? (mono ? 1 : 2) : (mono ? 5 : 3));  // private bits
    for (size_t channel = 0; !low && channel < format.Channels; channel++)
        for (bool &share : side.Share[channel])
            share = MP3_GetBits1(bits) != 0;
    bool possible = true;
    for (size_t granule = 0; granule < (low ? 1 : 2); granule++)
        for (size_t channel = 0; channel < format.Channels; channel++)
            possible &= ReadGranule(bits, format, channel == 1 && format.Intensity,
                                    side.Granules[granule][channel]);
    return possible && bits.Index <= bits.Size;
}

// Scale factors of the low rates. ISO/IEC 13818-3, 2.4.3.2.
static MP3_SCALE_GROUPS LowScaleGroups(const MP3_GRANULE &granule, bool intensityRight)
{
    const auto groups = [&granule](size_t row, const std::array<int, 4> &bits) {
        MP3_SCALE_GROUPS result{MP3_LowScaleGroups[row][granule.Shape], {}};
        std::copy(bits.begin(), bits.end(), result.Bits.begin());
        return result;
    };
    int c = granule.ScaleCompress;
    if (!intensityRight) {
        if (c < 400)
            return groups(0, {(c >> 4) / 5, (c >> 4) % 5, c % 16 >> 2, c % 4});
        c -= 400;
        if (c < 100)
            return groups(1, {(c >> 2) / 5, (c >> 2) % 5, c % 4, 0});
        c -= 100;
        return groups(2, {c / 3, c % 3, 0, 0});
    }
    c >>= 1;
    if (c < 180)
        return groups(3, {c / 36, c % 36 / 6, c % 6, 0});
    c -= 180;
    if (c < 64)
        return groups(4, {c >> 4, c % 16 >> 2, c % 4, 0});
    c -= 64;
    return groups(5, {c / 3, c % 3, 0, 0});
}

// Reads the scale factors at `bit` of `data`, except for the groups shared with the last granule.
static void ReadScaleFactors(const uint8_t *data, size_t &bit, const MP3_SCALE_GROUPS &groups,
                             const std::array<bool, 4> &share, bool low, MP3_CHANNEL &channel)
{
    size_t band = 0;
    for (size_t group = 0; group < 4; group++) {
        const size_t end = band + groups.Count[group];
        const unsigned bits = groups.Bits[group];
        for (; band < end; band++) {
            channel.Illegal[band] = static_cast<uint8_t>(!low        ? 7
                                                         : bits != 0 ? (1 << bits) - 1
                                                                     : 255);
            if (share[group])
                continue;
            channel.Scale[band] =
                bits == 0 ? uint8_t{0} : static_cast<uint8_t>(MP3_Peek(data, bit) >> (64 - bits));
            bit += bits;
        }
    }
    std::fill(channel.Scale.begin() + static_cast<ptrdiff_t>(band), channel.Scale.end(),
              uint8_t{0});
}

// Reads a granule's scale factors and spectrum from `bit` to `end` of `data`.
static void ReadMainData(const uint8_t *data, size_t bit, size_t end, const MP3_FORMAT &format,
                         bool right, const std::array<bool, 4> &share, MP3_CHANNEL &channel)
{
    const MP3_GRANULE &granule = *channel.Granule;
    const bool low = format.Rate >= MP3_FirstLowRate;
    MP3_SCALE_GROUPS groups;
    if (low) {
        groups = LowScaleGroups(granule, right && format.Intensity);
    } else {
        const uint8_t first = MP3_ScaleBits1[granule.ScaleCompress];
        const uint8_t second = MP3_ScaleBits2[granule.ScaleCompress];
        groups = {MP3_ScaleGroups[granule.Shape], {first, first, second, second}};
    }
    ReadScaleFactors(data, bit, groups, share, low, channel);
    channel.Used =
        MP3_ReadSpectrum(data, bit, end, granule.Regions, channel.Quantised, channel.Whole);
}

// Sign(value) * |value|^(4/3) * 2^(exponent + fraction/4).
static int32_t Requantised(int value, size_t fraction, int exponent)
{
    const MP3_POWER &power = MP3_Powers[static_cast<size_t>(std::abs(value))];
    const int64_t product = int64_t{power.Mantissa} * MP3_QuarterPowers[fraction];
    const int down = std::clamp(31 + 30 - MP3_FixedBits - exponent - power.Exponent, 31, 63);
    const auto line = static_cast<int32_t>((product + (int64_t{1} << (down - 1))) >> down);
    return value < 0 ? -line : line;
}

// Values times 2^(quarters/4), after their power. `units`: they are all -1, 0 or 1.
static void RequantiseBand(std::span<const int16_t> values, int quarters, bool units,
                           MP3_FIXED *lines)
{
    const auto fraction = static_cast<size_t>(quarters & 3);
    const int exponent = quarters >> 2, shift = MP3_SmallBits - MP3_FixedBits - exponent;
    const int32_t *small = MP3_SmallPowers[fraction].data() + MP3_SmallValues;
    const int down = std::clamp(shift, 1, 31);
    const int32_t half = 1 << (down - 1);
    const auto line = [&](int value) {
        const bool isSmall = shift > 0 && value >= -MP3_SmallValues && value < MP3_SmallValues;
        return static_cast<MP3_FIXED>(isSmall ? (small[value] + half) >> down
                                              : Requantised(value, fraction, exponent));
    };
    if (units) {
        const MP3_FIXED plus = line(1), minus = line(-1);
        for (size_t i = 0; i < values.size(); i++)
            lines[i] = (values[i] > 0 ? plus : 0) | (values[i] < 0 ? minus : 0);
        return;
    }
    for (size_t i = 0; i < values.size(); i++)
        lines[i] = line(values[i]);
}

// Requantisation, ISO/IEC 11172-3, 2.4.3.4.7. With `sides` the lines are already divided by the
// square root of 2, so that mid/side decoding needs only sums and differences.
static void Requantise(MP3_CHANNEL &channel, bool sides)
{
    const MP3_GRANULE &granule = *channel.Granule;
    const MP3_BANDS &bands = *channel.Bands;
    for (size_t band = 0; band < bands.Count && bands.Start[band] < channel.Used; band++) {
        int quarters = granule.GlobalGain - 210 - (sides ? 2 : 0);
        int scale = channel.Scale[band];
        if (band >= bands.Long)
            quarters -= 8 * granule.WindowGain[(band - bands.Long) % 3];
        else if (granule.PreTab)
            scale += MP3_PreTab[band];
        quarters -= granule.ScaleStep * scale;
        const size_t first = bands.Start[band];
        const size_t count = std::min<size_t>(bands.Width[band], channel.Used - first);
        RequantiseBand(std::span(channel.Quantised).subspan(first, count), quarters,
                       first >= granule.Regions.End[2], channel.Lines.data() + first);
    }
    std::fill(channel.Lines.begin() + static_cast<ptrdiff_t>(channel.Used), channel.Lines.end(), 0);
}

namespace
{

// Factors of the left and the right channel, 30 fractional bits.
struct MP3_PANNING {
    int32_t Left, Right;
};

}  // namespace

// Intensity stereo of MPEG-1: ISO/IEC 11172-3, 2.4.3.4.9.3.
constexpr auto MP3_Pannings = [] {
    std::array<MP3_PANNING, 7> table{};
    for (size_t i = 0; i < table.size(); i++) {
        const double angle = MP3_Pi / 12 * static_cast<double>(i);
        const double sine = MP3_Sine(angle), cosine = MP3_Cosine(angle);
        table[i] = {MP3_Constant(sine / (sine + cosine), 30),
                    MP3_Constant(cosine / (sine + cosine), 30)};
    }
    return table;
}();

// Intensity stereo of the low rates: ISO/IEC 13818-3, 2.4.3.2.
static MP3_PANNING LowPanning(int position, bool coarse)
{
    const int quarters = (position + 1) / 2 * (coarse ? -2 : -1);
    const int32_t factor = MP3_QuarterPowers[static_cast<size_t>(quarters & 3)] >> -(quarters >> 2);
    return position % 2 != 0 ? MP3_PANNING{factor, 1 << 30} : MP3_PANNING{1 << 30, factor};
}

static MP3_FIXED Pan(MP3_FIXED line, int32_t factor)
{
    return static_cast<MP3_FIXED>((int64_t{static_cast<int32_t>(line)} * factor + (1 << 29)) >> 30);
}

// Whether each band lies above the last one in which the right channel is nonzero, for short bands
// within their window. In mixed blocks the long bands are below all short ones.
static std::array<bool, 39> FindIntensityBands(const MP3_CHANNEL &right)
{
    const MP3_BANDS &bands = *right.Bands;
    std::array<size_t, 4> above{};  // for the long bands, and for each window
    for (size_t band = 0; band < bands.Count && bands.Start[band] < right.Used; band++) {
        const auto first = right.Quantised.begin() + bands.Start[band];
        if (std::all_of(first, first + bands.Width[band], [](int value) { return value == 0; }))
            continue;
        if (band >= bands.Long)
            above[1 + (band - bands.Long) % 3] = band + 1;
        above[0] = band + 1;
    }
    std::array<bool, 39> intensity{};
    for (size_t band = 0; band < bands.Count; band++)
        intensity[band] = band >= above[band < bands.Long ? 0 : 1 + (band - bands.Long) % 3];
    return intensity;
}

// The two channels from mid and side, which are already divided by the square root of 2.
static void SplitSides(MP3_CHANNEL &left, MP3_CHANNEL &right, size_t first, size_t last)
{
    for (size_t i = first; i < last; i++) {
        const MP3_FIXED mid = left.Lines[i], side = right.Lines[i];
        left.Lines[i] = mid + side;
        right.Lines[i] = mid - side;
    }
}

// Joint stereo: ISO/IEC 11172-3, 2.4.3.4.9, and 13818-3, 2.4.3.2.
static void IntensityStereo(MP3_CHANNEL &left, MP3_CHANNEL &right, const MP3_FORMAT &format)
{
    const MP3_BANDS &bands = *right.Bands;
    const std::array<bool, 39> intensity = FindIntensityBands(right);
    const size_t windows = right.Granule->Shape == MP3_LONG ? 1 : 3;
    for (size_t band = 0; band < bands.Count; band++) {
        const bool last = band + windows >= bands.Count;  // uses the position of the band before it
        const size_t from = last ? band - windows : band;
        const uint8_t position = right.Scale[from];
        if (!intensity[band] || position >= right.Illegal[from]) {
            if (format.Sides)
                SplitSides(left, right, bands.Start[band], bands.Start[band + 1]);
            continue;
        }
        MP3_PANNING panning = format.Rate < MP3_FirstLowRate
                                  ? MP3_Pannings[position]
                                  : LowPanning(position, right.Granule->ScaleCompress % 2 != 0);
        if (format.Sides)
            for (int32_t *factor : {&panning.Left, &panning.Right})
                *factor = static_cast<int32_t>(int64_t{*factor} * MP3_QuarterPowers[2] >> 30);
        for (size_t i = bands.Start[band]; i < bands.Start[band + 1]; i++) {
            right.Lines[i] = Pan(left.Lines[i], panning.Right);
            left.Lines[i] = Pan(left.Lines[i], panning.Left);
        }
    }
}

static void JointStereo(MP3_CHANNEL &left, MP3_CHANNEL &right, const MP3_FORMAT &format)
{
    if (format.Intensity)
        IntensityStereo(left, right, format);
    else if (format.Sides)
        SplitSides(left, right, 0, std::max(left.Used, right.Used));
    if (format.Intensity || format.Sides)
        left.Used = right.Used = std::max(left.Used, right.Used);
}

// Distributes the lines to subbands. Short blocks store each band window after window; their lines
// are interleaved. Returns the number of subbands up to the last nonzero one.
static size_t Arrange(const MP3_CHANNEL &channel, MP3_SPECTRUM &spectrum)
{
    const MP3_BANDS &bands = *channel.Bands;
    size_t used = std::min<size_t>(channel.Used, bands.Start[bands.Long]);
    MP3_Arrange(channel.Lines, spectrum);
    for (size_t band = bands.Long; bands.Start[band] < channel.Used; band += 3) {
        const size_t start = bands.Start[band], width = bands.Width[band];
        used = start + 3 * width;
        for (size_t i = 0; i < 3 * width; i++) {
            const size_t to = start + i % width * 3 + i / width;
            spectrum[to % MP3_Slots][to / MP3_Slots] = channel.Lines[start + i];
        }
    }
    return (used + MP3_Slots - 1) / MP3_Slots;
}

// Appends the frame's main data to the bit reservoir.
//
// A frame's bytes are fixed by its bit rate, but its granules may need more or fewer. So an encoder
// stores main data ahead of time: a frame's side information comes with the frame, its main data
// begin main_data_begin bytes (up to 511) before the frame's own and may end before the frame does;
// the rest belongs to the frames after it. Headers and side information in between do not count.
// Main therefore holds the main data of earlier frames (ReservoirSize bytes), then this frame's,
// and MainIndex starts main_data_begin bytes before the boundary. After a seek or a lost frame the
// reservoir is short, MainIndex is negative, and the granules that would begin there are silent.
static void GatherMainData(MP3_LAYER3 &layer3)
{
    const uint8_t *data = layer3.Bits.Start + std::min(layer3.Bits.Index, layer3.Bits.Size) / 8;
    const auto begin = layer3.Main.begin() + static_cast<ptrdiff_t>(layer3.ReservoirSize);
    const auto end = std::copy(data, layer3.Bits.End, begin);
    layer3.MainSize = static_cast<size_t>(end - layer3.Main.begin());
    std::fill_n(end, MP3_Spare, uint8_t{0});
}

// Returns true, to initialise a static variable.
static bool BuildTables()
{
    for (size_t n = 1; n < MP3_Powers.size(); n++) {
        const double value = static_cast<double>(n);
        int exponent;
        const double mantissa = std::frexp(value * std::cbrt(value), &exponent);
        MP3_Powers[n] = {MP3_Constant(std::min(mantissa, 1 - 0x1p-31), 31), exponent};
    }
    for (size_t k = 0; k < MP3_SmallPowers.size(); k++)
        for (int n = -MP3_SmallValues; n < MP3_SmallValues; n++)
            MP3_SmallPowers[k][static_cast<size_t>(n + MP3_SmallValues)] = MP3_Constant(
                n * std::cbrt(std::abs(n)) * std::exp2(static_cast<double>(k) / 4), MP3_SmallBits);
    return true;
}

void MP3_BuildTables()
{
    [[maybe_unused]] static const bool built =
        BuildTables();  // the first thread builds, others wait
}

// The total bits of a frame's granules.
static ptrdiff_t CountBits(const MP3_SIDE_INFO &side)
{
    ptrdiff_t bits = 0;
    for (const auto &granules : side.Granules)
        for (const MP3_GRANULE &granule : granules)
            bits += granule.Bits;
    return bits;
}

// Whether bits are missing, or the lines have more energy than any encoder makes. Noise far beyond
// full scale has an energy of 6, the bound is 16.
static bool IsDamaged(const MP3_CHANNEL &channel)
{
    constexpr int bits = 16;  // full scale here, so that no sum overflows
    constexpr int64_t bound = int64_t{16} << 2 * bits;
    int64_t energy = 0;
    for (size_t i = 0; i < channel.Used; i++) {
        const int32_t line = static_cast<int32_t>(channel.Lines[i]) >> (MP3_FixedBits - bits);
        energy += int64_t{line} * line;
    }
    return channel.Used != 0 && (!channel.Whole || energy > bound);
}

int MP3_DecodeGranules(MP3_LAYER3 &layer3, const MP3_FORMAT &format)
{
    MP3_SIDE_INFO side{};
    const bool possible = ReadSideInfo(layer3.Bits, format, side);
    if (!possible && !format.Careful)
        return -1;
    GatherMainData(layer3);
    const auto size = static_cast<ptrdiff_t>(8 * layer3.MainSize);
    layer3.MainIndex = 8 * (static_cast<ptrdiff_t>(layer3.ReservoirSize) -
                            static_cast<ptrdiff_t>(side.MainDataBegin));
    bool spoiled = format.Careful &&
                   (!possible || format.Damaged || layer3.MainIndex + CountBits(side) > size);
    const bool silent = spoiled || (format.Careful && layer3.MainIndex < 0);
    if (silent)
        side.Granules = {};

    std::array<MP3_CHANNEL, 2> channels{};
    const size_t granules = format.Rate < MP3_FirstLowRate ? 2 : 1;
    for (size_t g = 0; g < granules; g++) {
        for (size_t c = 0; c < format.Channels; c++) {
            MP3_CHANNEL &channel = channels[c];
            channel.Granule = &side.Granules[g][c];
            channel.Bands = &MP3_Bands[format.Rate][channel.Granule->Shape];
            const bool shares = g == 1 && channel.Granule->Shape == MP3_LONG;
            const ptrdiff_t begin = layer3.MainIndex, end = begin + channel.Granule->Bits;
            if (begin >= 0 && begin < size && !silent)
                ReadMainData(layer3.Main.data(), static_cast<size_t>(begin),
                             static_cast<size_t>(std::min(end, size)), format, c == 1,
                             shares ? side.Share[c] : std::array<bool, 4>{}, channel);
            else
                channel.Used = 0;
            Requantise(channel, format.Sides);
            layer3.MainIndex = end;
        }
        if (format.Careful && (IsDamaged(channels[0]) || IsDamaged(channels[1])))
            for (MP3_CHANNEL &channel : channels) {
                spoiled = true;
                channel.Used = 0;
                channel.Lines = {};
            }
        if (format.Channels == 2)
            JointStereo(channels[0], channels[1], format);
        for (size_t c = 0; c < format.Channels; c++) {
            MP3_SPECTRUM spectrum;
            const size_t used = Arrange(channels[c], spectrum);
            MP3_Hybrid(layer3.Filter[c], spectrum, used, channels[c].Granule->Block,
                       channels[c].Granule->Mixed, g);
        }
    }
    if (spoiled)
        layer3.MainSize = 0;
    return static_cast<int>(granules * MP3_Slots);
}

void MP3_KeepReservoir(MP3_LAYER3 &layer3, bool failed)
{
    const ptrdiff_t index = std::max<ptrdiff_t>(0, layer3.MainIndex + 7) / 8;
    const auto read = static_cast<size_t>(index);
    std::span<const uint8_t> left(layer3.Bits.Start, layer3.Bits.End);
    if (!failed && read <= layer3.MainSize)
        left = std::span(layer3.Main).subspan(read, layer3.MainSize - read);
    layer3.ReservoirSize = std::min(left.size(), MP3_MaxReservoir);
    left = left.last(layer3.ReservoirSize);
    std::copy(left.begin(), left.end(), layer3.Main.begin());
}

void MP3_KeepMainData(MP3_LAYER3 &layer3)
{
    layer3.ReservoirSize = std::min(layer3.MainSize, MP3_MaxReservoir);
    const auto end = layer3.Main.begin() + static_cast<ptrdiff_t>(layer3.MainSize);
    std::copy(end - static_cast<ptrdiff_t>(layer3.ReservoirSize), end, layer3.Main.begin());
}
