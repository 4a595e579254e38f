#include "picture/jpg_colour.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "extra/lanes.h"

namespace
{

// Position of a pixel's centre among the samples: the sample before it (-1: none) and the distance
// from that in units of 1 / (2 * full).
struct PLACE {
    ptrdiff_t Index;
    size_t Way;
};

}  // namespace

// Two bytes as a number with `first` first in memory.
static constexpr uint16_t Pair(uint32_t first, uint32_t second)
{
    return static_cast<uint16_t>(std::endian::native == std::endian::little ? first | second << 8
                                                                            : first << 8 | second);
}

static PLACE PlaceOf(size_t pixel, size_t factor, size_t full)
{
    const size_t unit = 2 * full;
    const size_t position = (2 * pixel + 1) * factor + unit - full;
    return {static_cast<ptrdiff_t>(position / unit) - 1, position % unit};
}

// Whether common decoders repeat samples: they interpolate only factors of 2.
static bool UsuallyRepeats(const JPG_PLANE &p)
{
    const bool whole = p.FullH % p.H == 0 && p.FullV % p.V == 0;
    const size_t across = p.FullH / p.H, down = p.FullV / p.V;
    return whole && (across > 2 || down > 2 || (across == 2 && p.Width <= 2));
}

JPG_PLANE JPG_MakePlane(uint8_t factors, uint8_t full, uint32_t width, uint32_t height,
                        JPG_STRETCH stretch)
{
    JPG_PLANE p{};
    p.H = factors >> 4;
    p.V = factors & 15;
    p.FullH = full >> 4;
    p.FullV = full & 15;
    p.Width = (width * p.H + p.FullH - 1) / p.FullH;
    p.Height = (height * p.V + p.FullV - 1) / p.FullV;
    const size_t mcus = (width + 8 * p.FullH - 1) / (8 * p.FullH), pixels = mcus * 8 * p.FullH;
    p.Stride = mcus * 8 * p.H;
    p.Rows = 2 * 8 * p.V;
    p.Repeats = stretch == JPG_STRETCH_USUAL && UsuallyRepeats(p);
    p.Samples.assign(p.Rows * p.Stride, 128);
    p.Blend.resize(p.Stride + 4);
    p.Stretched.resize(pixels / 2);
    if (p.H == p.FullH || 2 * p.H == p.FullH || 4 * p.H == p.FullH)
        return p;
    for (size_t x = 0; x < pixels; x++) {
        const PLACE place = PlaceOf(x, p.H, p.FullH);
        p.Places.push_back(static_cast<uint16_t>(place.Index + 1));
        p.Nearness.push_back(static_cast<uint16_t>((place.Way * 256 + p.FullH) / (2 * p.FullH)));
    }
    return p;
}

size_t JPG_RowsReady(const JPG_PLANE &first, size_t rows)
{
    return first.FullV == 1 ? rows : rows - 2;
}

static const uint8_t *RowWithin(JPG_PLANE &plane, ptrdiff_t y)
{
    const auto last = static_cast<ptrdiff_t>(plane.Height) - 1;
    return plane.Row(static_cast<size_t>(std::clamp<ptrdiff_t>(y, 0, last)));
}

// Interpolates between two rows with weights that sum to 64.
EXTRA_LANES static void BlendRows(const uint8_t *__restrict above, const uint8_t *__restrict below,
                                  uint16_t near, size_t count, uint16_t *__restrict blend)
{
    const auto far = static_cast<uint16_t>(64 - near);
    for (size_t i = 0; i < count; i++)
        blend[i] = static_cast<uint16_t>(above[i] * far + below[i] * near);
}

// Upsamples by 2: each result lies a quarter of the way from a sample to its neighbour. Reads
// blend[-1] and blend[count].
EXTRA_LANES static void Double(const uint16_t *__restrict blend, size_t count,
                               uint16_t *__restrict pairs)
{
    for (size_t i = 0; i < count; i++) {
        const auto three = static_cast<uint16_t>(blend[i] * 3 + 128);
        const auto left = static_cast<uint16_t>(three + blend[static_cast<ptrdiff_t>(i) - 1]);
        const auto right = static_cast<uint16_t>(three + blend[i + 1]);
        pairs[i] = Pair(left >> 8, right >> 8);
    }
}

// Upsamples by 4: results lie one and three eighths of the way to either neighbour.
EXTRA_LANES static void Quadruple(const uint16_t *__restrict blend, size_t count,
                                  uint16_t *__restrict pairs)
{
    for (size_t i = 0; i < count; i++) {
        const int before = blend[static_cast<ptrdiff_t>(i) - 1] >> 3, here = blend[i] >> 3;
        const int after = blend[i + 1] >> 3;
        const int first = (3 * before + 5 * here + 32) >> 6, second = (before + 7 * here + 32) >> 6;
        const int third = (7 * here + after + 32) >> 6, fourth = (5 * here + 3 * after + 32) >> 6;
        pairs[2 * i] = Pair(static_cast<uint32_t>(first), static_cast<uint32_t>(second));
        pairs[2 * i + 1] = Pair(static_cast<uint32_t>(third), static_cast<uint32_t>(fourth));
    }
}

// Keeps the number of samples; two per result.
EXTRA_LANES static void Round(const uint16_t *__restrict blend, size_t count,
                              uint16_t *__restrict pairs)
{
    for (size_t i = 0; i < count; i++) {
        const auto left = static_cast<uint16_t>(blend[2 * i] + 32);
        const auto right = static_cast<uint16_t>(blend[2 * i + 1] + 32);
        pairs[i] = Pair(left >> 6, right >> 6);
    }
}

// Writes each sample `Times` times.
template <size_t Times>
[[gnu::always_inline]] static inline void Repeat(const uint8_t *__restrict samples, size_t count,
                                                 uint8_t *__restrict row)
{
    for (size_t i = 0; i < count; i++)
        for (size_t k = 0; k < Times; k++)
            row[Times * i + k] = samples[i];
}

EXTRA_LANES static void RepeatSamples(const uint8_t *__restrict samples, size_t count, size_t times,
                                      uint8_t *__restrict row)
{
    switch (times) {
    case 1:
        return Repeat<1>(samples, count, row);
    case 2:
        return Repeat<2>(samples, count, row);
    case 3:
        return Repeat<3>(samples, count, row);
    default:
        return Repeat<4>(samples, count, row);
    }
}

// Row y of a plane, upsampled to pixels.
static const uint8_t *StretchRow(JPG_PLANE &p, size_t y)
{
    if (p.Repeats) {
        auto *row = reinterpret_cast<uint8_t *>(p.Stretched.data());
        RepeatSamples(p.Row(y * p.V / p.FullV), p.Stride, p.FullH / p.H, row);
        return row;
    }
    const PLACE place = PlaceOf(y, p.V, p.FullV);
    const uint8_t *above = RowWithin(p, place.Index), *below = RowWithin(p, place.Index + 1);
    if (p.H == p.FullH && place.Way == 0)
        return above;
    const auto near = static_cast<uint16_t>((place.Way * 64 + p.FullV) / (2 * p.FullV));
    const size_t count = p.Width;
    uint16_t *blend = p.Blend.data() + 1, *pairs = p.Stretched.data();
    BlendRows(above, below, near, count, blend);
    blend[-1] = blend[0];
    std::fill(blend + count, p.Blend.data() + p.Blend.size(), blend[count - 1]);
    auto *row = reinterpret_cast<uint8_t *>(pairs);
    if (p.H == p.FullH)
        Round(blend, p.Stretched.size(), pairs);
    else if (2 * p.H == p.FullH)
        Double(blend, p.Stretched.size(), pairs);
    else if (4 * p.H == p.FullH)
        Quadruple(blend, p.Stretched.size() / 2, pairs);
    else
        for (size_t x = 0; x < p.Places.size(); x++) {
            const uint16_t *at = p.Blend.data() + p.Places[x];
            const int near256 = p.Nearness[x];
            row[x] =
                static_cast<uint8_t>((at[0] * (256 - near256) + at[1] * near256 + (1 << 13)) >> 14);
        }
    return row;
}

static uint16_t ToByte(int16_t value)
{
    return static_cast<uint16_t>(std::min<int16_t>(std::max<int16_t>(value, 0), 255));
}

namespace
{

struct RGB {
    uint16_t R, G, B;
};

}  // namespace

// A number below 0.5 in units of 1/65536.
static constexpr int16_t Fraction(double value)
{
    return static_cast<int16_t>(value * 65536 + 0.5);
}

// Product of a value of -128 to 127 and a fraction, in units of 1/256, rounded down.
template <int16_t Fraction>
[[gnu::always_inline]] static inline int16_t Part(int16_t value)
{
    return static_cast<int16_t>((static_cast<int16_t>(value * 256) * Fraction) >> 16);
}

[[gnu::always_inline]] static inline int16_t RoundPart(int part)
{
    return static_cast<int16_t>(static_cast<int16_t>(part + 128) >> 8);
}

// JFIF 1.02: R = Y + 1.402 Cr, G = Y - 0.34414 Cb - 0.71414 Cr, B = Y + 1.772 Cb, in 16-bit
// arithmetic. The whole multiples of Cb and Cr are added apart, so that the fractional parts fit.
// Red and blue are rounded exactly, green in all but 1 of 500 cases.
[[gnu::always_inline]] static inline RGB FromYCbCr(uint8_t y, uint8_t cb, uint8_t cr)
{
    const auto b = static_cast<int16_t>(cb - 128), r = static_cast<int16_t>(cr - 128);
    const auto level = static_cast<int16_t>(y);
    const int16_t red = RoundPart(Part<Fraction(0.402)>(r));
    const int16_t green = RoundPart(Part<Fraction(1 - 0.71414)>(r) - Part<Fraction(0.34414)>(b));
    const int16_t blue = RoundPart(Part<Fraction(2 - 1.772)>(b));
    return {ToByte(static_cast<int16_t>(level + r + red)),
            ToByte(static_cast<int16_t>(level - r + green)),
            ToByte(static_cast<int16_t>(level + 2 * b - blue))};
}

// Rounded product of a colour and black, both inverted as Adobe stores them: the light that
// remains.
[[gnu::always_inline]] static inline uint16_t UnderBlack(uint32_t colour, uint32_t black)
{
    const uint32_t product = colour * black + 128;
    return static_cast<uint16_t>((product + (product >> 8)) >> 8);
}

[[gnu::always_inline]] static inline void PutPixel(RGB colour, uint16_t *pixel)
{
    pixel[0] = Pair(colour.R, colour.G);
    pixel[1] = Pair(colour.B, 255);
}

EXTRA_LANES static void ConvertYCbCr(const uint8_t *__restrict y, const uint8_t *__restrict cb,
                                     const uint8_t *__restrict cr, size_t width,
                                     uint16_t *__restrict pixels)
{
    for (size_t x = 0; x < width; x++)
        PutPixel(FromYCbCr(y[x], cb[x], cr[x]), pixels + 2 * x);
}

EXTRA_LANES static void ConvertGrey(const uint8_t *__restrict y, size_t width,
                                    uint16_t *__restrict pixels)
{
    for (size_t x = 0; x < width; x++)
        PutPixel({y[x], y[x], y[x]}, pixels + 2 * x);
}

EXTRA_LANES static void ConvertRGB(const uint8_t *__restrict r, const uint8_t *__restrict g,
                                   const uint8_t *__restrict b, size_t width,
                                   uint16_t *__restrict pixels)
{
    for (size_t x = 0; x < width; x++)
        PutPixel({r[x], g[x], b[x]}, pixels + 2 * x);
}

EXTRA_LANES static void ConvertCMYK(const uint8_t *__restrict c, const uint8_t *__restrict m,
                                    const uint8_t *__restrict y, const uint8_t *__restrict k,
                                    size_t width, uint16_t *__restrict pixels)
{
    for (size_t x = 0; x < width; x++)
        PutPixel({UnderBlack(c[x], k[x]), UnderBlack(m[x], k[x]), UnderBlack(y[x], k[x])},
                 pixels + 2 * x);
}

EXTRA_LANES static void ConvertYCCK(const uint8_t *__restrict y, const uint8_t *__restrict cb,
                                    const uint8_t *__restrict cr, const uint8_t *__restrict k,
                                    size_t width, uint16_t *__restrict pixels)
{
    for (size_t x = 0; x < width; x++) {
        const RGB ink = FromYCbCr(y[x], cb[x], cr[x]);
        PutPixel({UnderBlack(255u - ink.R, k[x]), UnderBlack(255u - ink.G, k[x]),
                  UnderBlack(255u - ink.B, k[x])},
                 pixels + 2 * x);
    }
}

static void Interleave(std::span<const uint8_t *const> samples, size_t width, uint8_t *out)
{
    for (size_t c = 0; c < samples.size(); c++)
        for (size_t x = 0; x < width; x++)
            out[x * samples.size() + c] = samples[c][x];
}

static bool IsFull(const JPG_PLANE &p)
{
    return p.H == p.FullH && p.V == p.FullV;
}

void JPG_MakeRows(std::span<JPG_PLANE *const> planes, JPG_COLOURS colours, size_t from, size_t to,
                  uint8_t *pixels)
{
    const size_t width = planes[0]->Stretched.size() * 2;
    const size_t rowBytes = width * JPG_PixelBytes(colours, planes.size());
    const size_t count = colours == JPG_COLOURS_GREY ? 1 : planes.size();
    std::array<const uint8_t *, 4> s;
    for (size_t y = from; y < to; y++) {
        for (size_t i = 0; i < count; i++)
            s[i] = i == 0 && IsFull(*planes[0]) ? planes[0]->Row(y) : StretchRow(*planes[i], y);
        uint8_t *row = pixels + y * rowBytes;
        auto *pairs = reinterpret_cast<uint16_t *>(row);
        switch (colours) {
        case JPG_COLOURS_YCBCR:
            ConvertYCbCr(s[0], s[1], s[2], width, pairs);
            break;
        case JPG_COLOURS_GREY:
            ConvertGrey(s[0], width, pairs);
            break;
        case JPG_COLOURS_RGB:
            ConvertRGB(s[0], s[1], s[2], width, pairs);
            break;
        case JPG_COLOURS_CMYK:
            ConvertCMYK(s[0], s[1], s[2], s[3], width, pairs);
            break;
        case JPG_COLOURS_YCCK:
            ConvertYCCK(s[0], s[1], s[2], s[3], width, pairs);
            break;
        default:
            Interleave(std::span(s).first(count), width, row);
        }
    }
}
