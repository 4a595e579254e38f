#include "picture/jpg_colour.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "extra/lanes.h"

// A row of a plane at full size. Between two samples' centres it goes in a straight line; before
// the first and behind the last it stays.
struct STRETCH {
    const JPG_PLANE &Plane;
    size_t H, V; // sampling factors of full size
    size_t Width;
    std::vector<uint16_t> Blend;  // two rows, mixed by their nearness; one sample more at each side
    std::vector<uint32_t> Places; // of each pixel in Blend
    std::vector<uint16_t> Nearness; // to the sample behind that, of 256
    std::vector<uint8_t> Row;
};

// Where the centre of a pixel lies among samples: the sample before it and the way to the next one
// in parts of 2 * full.
struct PLACE {
    ptrdiff_t Index;
    size_t Way;
};

static PLACE PlaceOf(size_t pixel, size_t factor, size_t full)
{
    const auto position = static_cast<ptrdiff_t>((2 * pixel + 1) * factor) -
                          static_cast<ptrdiff_t>(full) + static_cast<ptrdiff_t>(2 * full);
    const auto unit = static_cast<ptrdiff_t>(2 * full);
    return {position / unit - 1, static_cast<size_t>(position % unit)};
}

static STRETCH MakeStretch(const JPG_PLANE &plane, const JPG_PLANE &full, size_t width)
{
    STRETCH s{plane, full.H, full.V, width, {}, {}, {}, std::vector<uint8_t>(width + 2)};
    s.Blend.resize(width + 4);
    if (full.H == plane.H || full.H == 2 * plane.H)
        return s;
    for (size_t x = 0; x < width; x++) {
        const PLACE place = PlaceOf(x, plane.H, full.H);
        s.Places.push_back(static_cast<uint32_t>(place.Index + 1));
        s.Nearness.push_back(static_cast<uint16_t>(place.Way * 256 / (2 * full.H)));
    }
    return s;
}

static const uint8_t *RowOf(const JPG_PLANE &plane, ptrdiff_t y)
{
    const auto last = static_cast<ptrdiff_t>(plane.Height) - 1;
    return plane.Samples.data() +
           static_cast<size_t>(std::clamp<ptrdiff_t>(y, 0, last)) * plane.Stride;
}

// Mixes the two rows that pixel row y lies between, by weights that add up to 64.
EXTRA_LANES static void BlendRows(STRETCH &s, size_t y)
{
    const PLACE place = PlaceOf(y, s.Plane.V, s.V);
    const uint8_t *above = RowOf(s.Plane, place.Index), *below = RowOf(s.Plane, place.Index + 1);
    const auto near = static_cast<uint16_t>(place.Way * 64 / (2 * s.V));
    const auto far = static_cast<uint16_t>(64 - near);
    uint16_t *__restrict blend = s.Blend.data() + 1;
    const size_t count = std::min(s.Plane.Width, s.Width);
    if (near == 0)
        for (size_t i = 0; i < count; i++)
            blend[i] = static_cast<uint16_t>(above[i] * 64);
    else
        for (size_t i = 0; i < count; i++)
            blend[i] = static_cast<uint16_t>(above[i] * far + below[i] * near);
    blend[-1] = blend[0];
    std::fill(blend + count, s.Blend.data() + s.Blend.size(), blend[count - 1]);
}

EXTRA_LANES static const uint8_t *StretchRow(STRETCH &s, size_t y)
{
    if (s.V == s.Plane.V && s.H == s.Plane.H)
        return RowOf(s.Plane, static_cast<ptrdiff_t>(y));
    BlendRows(s, y);
    const uint16_t *__restrict blend = s.Blend.data();
    uint8_t *__restrict row = s.Row.data();
    if (s.H == s.Plane.H) {
        for (size_t x = 0; x < s.Width; x++)
            row[x] = static_cast<uint8_t>((blend[x + 1] + 32) >> 6);
    } else if (s.H == 2 * s.Plane.H) {
        // A quarter of the way from each sample to its neighbours.
        for (size_t i = 0; i < (s.Width + 1) / 2; i++) {
            const auto three = static_cast<uint16_t>(blend[i + 1] * 3 + 128);
            const auto left = static_cast<uint16_t>(three + blend[i]);
            const auto right = static_cast<uint16_t>(three + blend[i + 2]);
            const auto pair = static_cast<uint16_t>(left >> 8 | (right & 0xFF00));
            std::memcpy(row + 2 * i, &pair, 2);
        }
    } else {
        for (size_t x = 0; x < s.Width; x++) {
            const unsigned near = s.Nearness[x], at = s.Places[x];
            row[x] = static_cast<uint8_t>(
                (blend[at] * (256 - near) + blend[at + 1] * near + (1 << 13)) >> 14);
        }
    }
    return row;
}

// JFIF 1.02: R = Y + 1.402 Cr, G = Y - 0.344136 Cb - 0.714136 Cr, B = Y + 1.772 Cb, in 16-bit
// arithmetic: the fractions in parts of 256, less whole parts where they would not fit.
EXTRA_LANES static void ConvertRow(const uint8_t *__restrict y, const uint8_t *__restrict cb,
                                   const uint8_t *__restrict cr, size_t width,
                                   uint8_t *__restrict pixels)
{
    const auto byte = [](int16_t value) {
        return static_cast<uint16_t>(std::min<int16_t>(std::max<int16_t>(value, 0), 255));
    };
    for (size_t x = 0; x < width; x++) {
        const auto b = static_cast<int16_t>(cb[x] - 128), r = static_cast<int16_t>(cr[x] - 128);
        const auto level = static_cast<int16_t>(y[x]);
        const auto partRed = static_cast<int16_t>(static_cast<int16_t>(103 * r + 128) >> 8);
        const auto partGreen =
            static_cast<int16_t>(static_cast<int16_t>(73 * r - 88 * b + 128) >> 8);
        const auto partBlue = static_cast<int16_t>(static_cast<int16_t>(58 * b + 127) >> 8);
        const uint16_t red = byte(static_cast<int16_t>(level + r + partRed));
        const uint16_t green = byte(static_cast<int16_t>(level - r + partGreen));
        const uint16_t blue = byte(static_cast<int16_t>(level + 2 * b - partBlue));
        // Whole words, so that the loop runs in lanes.
        const auto low = static_cast<uint16_t>(red | green << 8);
        const auto high = static_cast<uint16_t>(blue | 255 << 8);
        const uint32_t word = low | uint32_t{high} << 16;
        std::memcpy(pixels + 4 * x, &word, 4);
    }
}

void JPG_ToPixels(std::span<const JPG_PLANE> planes, size_t width, size_t height, uint8_t *pixels)
{
    const JPG_PLANE &full = planes[0];
    const std::vector<uint8_t> neutral(width, 128);
    std::vector<STRETCH> chroma;
    for (const JPG_PLANE &plane : planes.subspan(1))
        chroma.push_back(MakeStretch(plane, full, width));
    for (size_t y = 0; y < height; y++) {
        const uint8_t *level = full.Samples.data() + y * full.Stride;
        uint8_t *row = pixels + 4 * y * width;
        if (chroma.empty()) {
            ConvertRow(level, neutral.data(), neutral.data(), width, row);
            continue;
        }
        const uint8_t *cb = StretchRow(chroma[0], y), *cr = StretchRow(chroma[1], y);
        ConvertRow(level, cb, cr, width, row);
    }
}
