// Runs of samples into R G B A pixels, as several decoders need them. `out` has room for 4 bytes a
// pixel; what is not said to be transparent gets alpha 255.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>

using PIXELS_PALETTE = std::array<std::array<uint8_t, 4>, 256>; // R G B A

/// Triples of R, G, B (or B, G, R) at `samples`, `count` of them.
template <bool BlueFirst>
inline void Pixels_FromTriples(const uint8_t *samples, size_t count, uint8_t *out)
{
    constexpr size_t red = BlueFirst ? 2 : 0, blue = BlueFirst ? 0 : 2;
    for (size_t i = 0; i < count; i++) {
        const std::array<uint8_t, 4> pixel = {samples[3 * i + red], samples[3 * i + 1],
                                              samples[3 * i + blue], 255};
        std::memcpy(out + 4 * i, pixel.data(), 4);
    }
}

/// One palette entry a pixel, its alpha included.
inline void Pixels_FromIndexes(std::span<const uint8_t> indexes, const PIXELS_PALETTE &palette,
                               uint8_t *out)
{
    for (const uint8_t index : indexes) {
        std::memcpy(out, palette[index].data(), 4);
        out += 4;
    }
}

/// One grey sample a pixel.
inline void Pixels_FromGreys(std::span<const uint8_t> greys, uint8_t *out)
{
    for (size_t i = 0; i < greys.size(); i++) {
        const std::array<uint8_t, 4> pixel = {greys[i], greys[i], greys[i], 255};
        std::memcpy(out + 4 * i, pixel.data(), 4);
    }
}

/// The eight pixels of a byte whose set bits are black and clear bits white, for either order.
using PIXELS_BILEVEL = std::array<std::array<uint8_t, 32>, 256>;
constexpr PIXELS_BILEVEL Pixels_MakeBilevel(bool highestFirst)
{
    PIXELS_BILEVEL table{};
    for (size_t byte = 0; byte < 256; byte++)
        for (size_t i = 0; i < 32; i++) {
            const size_t bit = highestFirst ? 7 - i / 4 : i / 4;
            table[byte][i] = i % 4 == 3 || !(byte >> bit & 1) ? 255 : 0;
        }
    return table;
}
