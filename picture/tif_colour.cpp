#include "picture/tif_colour.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "extra/lanes.h"
#include "picture/pixels.h"
#include "picture/tif_directory.h"
#include "picture/tif_kinds.h"

// Scales a sample of `bits` to 8 bits; palette indexes stay as they are.
static uint8_t To8Bits(uint32_t sample, unsigned bits, bool isIndex)
{
    const uint32_t greatest = (1u << bits) - 1;
    if (isIndex)
        return static_cast<uint8_t>(sample);
    if (bits <= 8)
        return static_cast<uint8_t>((sample * 255 + greatest / 2) / greatest);
    return static_cast<uint8_t>(sample >> (bits - 8));
}

void TIF_InitPaint(TIF_PAINT &paint, uint16_t photometric, const TIF_YCBCR &ycbcr)
{
    const unsigned bits = TIF_Header.BitsPerSample;
    paint.Photometric = photometric;
    if (bits < 8 && 8 % bits == 0)
        for (size_t byte = 0; byte < 256; byte++)
            for (size_t i = 0; i < 8 / bits; i++)
                paint.Digits[byte][i] = To8Bits(
                    static_cast<uint32_t>(byte >> (8 - bits * (i + 1)) & ((1u << bits) - 1)), bits,
                    photometric == TIF_Palette);
    if (photometric != TIF_YCbCr)
        return;
    const auto [red, green, blue] = ycbcr.Luma;
    const auto fixed = [](double value) {
        return static_cast<int32_t>(std::lround(std::clamp(value, -8.0, 8.0) * 65536));
    };
    const int32_t crToR = fixed(2 - 2 * red), crToG = fixed(-(2 - 2 * red) * red / green);
    const int32_t cbToB = fixed(2 - 2 * blue), cbToG = fixed(-(2 - 2 * blue) * blue / green);
    // Truncated to integers of their full range, as in other decoders.
    const auto scaled = [&ref = ycbcr.Reference](size_t code, size_t black, double range) {
        const double value = (static_cast<double>(code) - ref[black]) * range;
        return static_cast<int32_t>(
            std::clamp(value / (ref[black + 1] - ref[black]), -512.0, 511.0));
    };
    for (size_t i = 0; i < 256; i++) {
        const int32_t cb = scaled(i, 2, 127), cr = scaled(i, 4, 127);
        paint.Y[i] = scaled(i, 0, 255) * 65536;
        paint.CrToR[i] = cr * crToR;
        paint.CbToB[i] = cb * cbToB;
        paint.CrToG[i] = cr * crToG;
        paint.CbToG[i] = cb * cbToG;
    }
}

const uint8_t *TIF_Unpack(TIF_PAINT &paint, size_t plane, std::span<const uint8_t> row,
                          size_t count)
{
    const unsigned bits = TIF_Header.BitsPerSample;
    if (bits == 8)
        return row.data();
    std::vector<uint8_t> &samples = paint.Scratch[plane];
    samples.resize(count + 8);
    uint8_t *out = samples.data();
    if (bits == 16) {
        const uint8_t *high = row.data() + (TIF_Header.ByteOrder == 'M' ? 0 : 1);
        for (size_t i = 0; i < count; i++)
            out[i] = high[2 * i];
    } else if (bits < 8 && 8 % bits == 0) {
        for (size_t i = 0, byte = 0; i < count; i += 8 / bits, byte++)
            std::memcpy(out + i, paint.Digits[row[byte]].data(), 8);
    } else {
        uint32_t held = 0;
        unsigned there = 0;
        for (size_t i = 0, byte = 0; i < count; i++) {
            for (; there < bits; there += 8)
                held = held << 8 | row[byte++];
            there -= bits;
            out[i] =
                To8Bits(held >> there & ((1u << bits) - 1), bits, paint.Photometric == TIF_Palette);
        }
    }
    return out;
}

const uint8_t *TIF_UnpackUnits(TIF_PAINT &paint, std::span<const uint8_t> units, size_t line,
                               size_t count)
{
    const size_t across = TIF_Header.Subsampling[0], luma = across * TIF_Header.Subsampling[1];
    std::vector<uint8_t> &samples = paint.Scratch[0];
    samples.resize(3 * count);
    const uint8_t *unit = units.data();
    for (size_t i = 0; i < count; unit += luma + 2)
        for (size_t x = 0; x < across && i < count; x++, i++) {
            samples[3 * i] = unit[line * across + x];
            samples[3 * i + 1] = unit[luma];
            samples[3 * i + 2] = unit[luma + 1];
        }
    return samples.data();
}

// Calls paint(step) with common steps as compile-time constants.
template <typename Paint>
static void WithStep(size_t step, const Paint &paint)
{
    switch (step) {
    case 1:
        paint(std::integral_constant<size_t, 1>());
        break;
    case 3:
        paint(std::integral_constant<size_t, 3>());
        break;
    case 4:
        paint(std::integral_constant<size_t, 4>());
        break;
    default:
        paint(step);
    }
}

template <typename Step>
static void PaintIndexes(const uint8_t *__restrict from, Step step,
                         const std::array<uint8_t, 4> *__restrict palette, size_t count,
                         uint8_t *__restrict out)
{
    for (size_t i = 0; i < count; i++)
        std::memcpy(out + 4 * i, palette[from[i * step]].data(), 4);
}

static void PaintColours(const TIF_PAINT &paint, const TIF_ROW &in, size_t count, uint8_t *out)
{
    WithStep(in.Step, [&](auto step) {
        PaintIndexes(in.Samples[0], step, paint.Palette.data(), count, out);
    });
}

// Paints contiguous grey samples.
EXTRA_LANES static void PaintGrey(const uint8_t *in, uint32_t inversion, size_t count, uint8_t *out)
{
    constexpr uint32_t opaque = Pixels_Pack(0, 0, 0, 255), ones = Pixels_Pack(1, 1, 1, 0);
    for (size_t i = 0; i < count; i++)
        Pixels_Put(out + 4 * i, (in[i] ^ inversion) * ones | opaque);
}

static void PaintRGB(const TIF_ROW &in, size_t count, uint8_t *out)
{
    const uint8_t *r = in.Samples[0], *g = in.Samples[1], *b = in.Samples[2];
    WithStep(in.Step, [&](auto step) {
        for (size_t i = 0; i < count; i++) {
            out[4 * i] = r[i * step];
            out[4 * i + 1] = g[i * step];
            out[4 * i + 2] = b[i * step];
            out[4 * i + 3] = 255;
        }
    });
}

static void PaintCMYK(const TIF_ROW &in, size_t count, uint8_t *out)
{
    for (size_t i = 0; i < count; i++, out += 4) {
        const uint32_t light = 255u - in.Samples[3][i * in.Step];
        for (size_t c = 0; c < 3; c++)
            out[c] = static_cast<uint8_t>((255u - in.Samples[c][i * in.Step]) * light / 255);
        out[3] = 255;
    }
}

static void PaintYCbCr(const TIF_PAINT &paint, const TIF_ROW &in, size_t count, uint8_t *out)
{
    const auto put = [](uint8_t *to, int32_t value) {
        *to = static_cast<uint8_t>(std::clamp((value + 0x8000) >> 16, 0, 255));
    };
    for (size_t i = 0; i < count; i++, out += 4) {
        const size_t at = i * in.Step, cb = in.Samples[1][at], cr = in.Samples[2][at];
        const int32_t y = paint.Y[in.Samples[0][at]];
        put(out, y + paint.CrToR[cr]);
        put(out + 1, y + paint.CbToG[cb] + paint.CrToG[cr]);
        put(out + 2, y + paint.CbToB[cb]);
        out[3] = 255;
    }
}

static void PaintAlpha(const TIF_ROW &in, size_t sample, size_t count, uint8_t *out)
{
    WithStep(in.Step, [&, from = in.Samples[sample]](auto step) {
        for (size_t i = 0; i < count; i++)
            out[4 * i + 3] = from[i * step];
    });
}

// 1 / alpha in units of 1/2^24, rounded up; (255 colour + alpha / 2) is multiplied by it.
static constexpr std::array<uint32_t, 256> reciprocals = [] {
    std::array<uint32_t, 256> table{};
    for (uint32_t alpha = 1; alpha < 256; alpha++)
        table[alpha] = ((1u << 24) + alpha - 1) / alpha;
    return table;
}();

void TIF_DivideByAlpha(size_t count, uint8_t *out)
{
    for (size_t i = 0; i < 4 * count; i += 4) {
        const uint32_t alpha = out[i + 3];
        for (size_t c = 0; alpha != 0 && c < 3; c++) {
            const uint64_t scaled = out[i + c] * 255u + alpha / 2;
            out[i + c] =
                static_cast<uint8_t>(std::min<uint64_t>(scaled * reciprocals[alpha] >> 24, 255));
        }
    }
}

void TIF_PaintRow(const TIF_PAINT &paint, const TIF_ROW &in, size_t count, uint8_t *out)
{
    const TIF_HEADER &h = TIF_Header;
    size_t colourCount = 3;
    switch (paint.Photometric) {
    case TIF_RGB:
        if (h.Alpha != 0 && in.Step == 4) {
            if (in.Samples[0] != out)
                std::memcpy(out, in.Samples[0], 4 * count);
            return;
        }
        if (in.Step == 3)
            Pixels_FromTriples({in.Samples[0], 3 * count}, false, out);
        else
            PaintRGB(in, count, out);
        break;
    case TIF_CMYK:
        PaintCMYK(in, count, out);
        colourCount = 4;
        break;
    case TIF_YCbCr:
        PaintYCbCr(paint, in, count, out);
        break;
    default:
        if (paint.Photometric != TIF_Palette && in.Step == 1)
            PaintGrey(in.Samples[0], paint.Palette[0][0], count, out);
        else
            PaintColours(paint, in, count, out);
        colourCount = 1;
    }
    if (h.Alpha != 0)
        PaintAlpha(in, colourCount, count, out);
}
