#include "picture/jpg_colour.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "extra/lanes.h"

// Pixels and pairs of samples are put together as numbers.
static_assert(std::endian::native == std::endian::little);

// Where the centre of a pixel lies among samples: the sample before it, -1 for none, and the way
// to the next one in parts of 2 * full.
struct PLACE {
    ptrdiff_t Index;
    size_t Way;
};

static PLACE PlaceOf(size_t pixel, size_t factor, size_t full)
{
    const size_t unit = 2 * full;
    const size_t position = (2 * pixel + 1) * factor - full + unit;
    return {static_cast<ptrdiff_t>(position / unit) - 1, position % unit};
}

JPG_PLANE JPG_MakePlane(uint8_t factors, uint8_t full, uint32_t width, uint32_t height)
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

// Mixes two rows by weights that add up to 64.
EXTRA_LANES static void BlendRows(const uint8_t *__restrict above, const uint8_t *__restrict below,
                                  uint16_t near, size_t count, uint16_t *__restrict blend)
{
    const auto far = static_cast<uint16_t>(64 - near);
    for (size_t i = 0; i < count; i++)
        blend[i] = static_cast<uint16_t>(above[i] * far + below[i] * near);
}

// Twice as many samples, each a quarter of the way from one that there is to a neighbour. blend[-1]
// and blend[count] count too.
EXTRA_LANES static void Double(const uint16_t *__restrict blend, size_t count,
                               uint16_t *__restrict pairs)
{
    for (size_t i = 0; i < count; i++) {
        const auto three = static_cast<uint16_t>(blend[i] * 3 + 128);
        const auto left = static_cast<uint16_t>(three + blend[static_cast<ptrdiff_t>(i) - 1]);
        const auto right = static_cast<uint16_t>(three + blend[i + 1]);
        pairs[i] = static_cast<uint16_t>(left >> 8 | (right & 0xFF00));
    }
}

// Four times as many samples: an eighth and three eighths of the way to either neighbour.
EXTRA_LANES static void Quadruple(const uint16_t *__restrict blend, size_t count,
                                  uint16_t *__restrict pairs)
{
    for (size_t i = 0; i < count; i++) {
        const int before = blend[static_cast<ptrdiff_t>(i) - 1] >> 3, here = blend[i] >> 3;
        const int behind = blend[i + 1] >> 3;
        const int first = (3 * before + 5 * here + 32) >> 6, second = (before + 7 * here + 32) >> 6;
        const int third = (7 * here + behind + 32) >> 6, fourth = (5 * here + 3 * behind + 32) >> 6;
        pairs[2 * i] = static_cast<uint16_t>(first | second << 8);
        pairs[2 * i + 1] = static_cast<uint16_t>(third | fourth << 8);
    }
}

// As many samples, two to a number.
EXTRA_LANES static void Pair(const uint16_t *__restrict blend, size_t count,
                             uint16_t *__restrict pairs)
{
    for (size_t i = 0; i < count; i++) {
        const auto left = static_cast<uint16_t>(blend[2 * i] + 32);
        const auto right = static_cast<uint16_t>(blend[2 * i + 1] + 32);
        pairs[i] = static_cast<uint16_t>(left >> 6 | (right >> 6) << 8);
    }
}

// Pixel row y of a plane at full size.
static const uint8_t *StretchRow(JPG_PLANE &p, size_t y)
{
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
        Pair(blend, p.Stretched.size(), pairs);
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

// JFIF 1.02: R = Y + 1.402 Cr, G = Y - 0.344136 Cb - 0.714136 Cr, B = Y + 1.772 Cb, in 16-bit
// arithmetic: the fractions in parts of 256, less whole parts where they would not fit.
EXTRA_LANES static void ConvertRow(const uint8_t *__restrict y, const uint8_t *__restrict cb,
                                   const uint8_t *__restrict cr, size_t width,
                                   uint16_t *__restrict pixels)
{
    for (size_t x = 0; x < width; x++) {
        const auto b = static_cast<int16_t>(cb[x] - 128), r = static_cast<int16_t>(cr[x] - 128);
        const auto level = static_cast<int16_t>(y[x]);
        const auto partRed = static_cast<int16_t>(static_cast<int16_t>(103 * r + 128) >> 8);
        const auto partGreen =
            static_cast<int16_t>(static_cast<int16_t>(73 * r - 88 * b + 128) >> 8);
        const auto partBlue = static_cast<int16_t>(static_cast<int16_t>(58 * b + 127) >> 8);
        const uint16_t red = ToByte(static_cast<int16_t>(level + r + partRed));
        const uint16_t green = ToByte(static_cast<int16_t>(level - r + partGreen));
        const uint16_t blue = ToByte(static_cast<int16_t>(level + 2 * b - partBlue));
        pixels[2 * x] = static_cast<uint16_t>(red | green << 8);
        pixels[2 * x + 1] = static_cast<uint16_t>(blue | 0xFF00);
    }
}

EXTRA_LANES static void ConvertGrey(const uint8_t *__restrict y, size_t width,
                                    uint16_t *__restrict pixels)
{
    for (size_t x = 0; x < width; x++) {
        pixels[2 * x] = static_cast<uint16_t>(y[x] | y[x] << 8);
        pixels[2 * x + 1] = static_cast<uint16_t>(y[x] | 0xFF00);
    }
}

void JPG_MakeRows(std::span<JPG_PLANE *const> planes, size_t from, size_t to, uint8_t *pixels)
{
    const size_t width = planes[0]->Stride;
    for (size_t y = from; y < to; y++) {
        auto *row = reinterpret_cast<uint16_t *>(pixels + 4 * y * width);
        const uint8_t *level = planes[0]->Row(y);
        if (planes.size() == 1)
            ConvertGrey(level, width, row);
        else
            ConvertRow(level, StretchRow(*planes[1], y), StretchRow(*planes[2], y), width, row);
    }
}
