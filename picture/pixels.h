// Shared base of the decoders: the rules they read by, the limits of what they accept, pixel
// buffers, and conversion of runs of samples to R G B A pixels. `out` has room for 4 bytes a pixel;
// alpha is 255 unless stated otherwise.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#pragma GCC visibility push(default)

/// The rules by which files are read. A decoder reads the switch at the start of a load; its header
/// lists the differences.
enum PICTURE_RULES : uint8_t {
    PICTURE_RULES_FRAMEWORK = 0,  // the framework's own, with all oddities
    PICTURE_RULES_FORMAT = 1,     // each format's published rules
};
extern constinit thread_local uint8_t Picture_Rules;

/// Maximum size of a pixel buffer in bytes; larger pictures are rejected. Change it only
/// before other threads load.
extern size_t Picture_MaxBytes;

/// A file that can hold less than one part in this many of its pixels is rejected; one that holds
/// more is decoded as truncated.
constexpr size_t Picture_MinShare = 8;

/// Memory that decoding a file may take: a fixed amount, plus so many bytes for each byte of the
/// file.
constexpr uint64_t Picture_FreeMemory = 48 << 20, Picture_MemoryPerByte = 4096;

/// What a file claims about its picture.
struct PICTURE_CLAIM {
    uint64_t Width, Height;  // pixels
    uint64_t Held;           // pixels that its data can hold at the compression's best ratio
    uint64_t FileBytes;
    uint64_t Beside = 0;  // memory for decoding in addition to the pixels, bytes
};

/// Whether the claim is acceptable: neither side is 0, the pixels fit into Picture_MaxBytes, the
/// data can hold at least one part in Picture_MinShare of them, and the memory is in proportion to
/// the file. Sets the reason if not.
bool Picture_Believes(const PICTURE_CLAIM &claim);

/// A zeroed buffer of width x height RGBA pixels from calloc, owned by the caller. Null, with a
/// reason, if a side is 0, if it would exceed Picture_MaxBytes, or if memory runs out.
uint8_t *Picture_NewPixels(uint32_t width, uint32_t height);

/// The same, uninitialised, for decoders that always set every pixel.
uint8_t *Picture_NewUnsetPixels(uint32_t width, uint32_t height);

/// Owner of a malloc'ed buffer.
struct PICTURE_FREE {
    void operator()(void *buffer) const
    {
        std::free(buffer);
    }
};
using PICTURE_PIXELS = std::unique_ptr<uint8_t, PICTURE_FREE>;

using PIXELS_PALETTE = std::array<std::array<uint8_t, 4>, 256>;  // R G B A

/// A pixel as a word that has these bytes in memory, in this order.
constexpr uint32_t Pixels_Pack(uint32_t r, uint32_t g, uint32_t b, uint32_t a)
{
    return std::endian::native == std::endian::little ? r | g << 8 | b << 16 | a << 24
                                                      : r << 24 | g << 16 | b << 8 | a;
}

inline void Pixels_Put(uint8_t *out, uint32_t pixel)
{
    std::memcpy(out, &pixel, 4);
}

inline uint32_t Pixels_Get(const uint8_t *bytes)
{
    uint32_t pixel;
    std::memcpy(&pixel, bytes, 4);
    return pixel;
}

/// The pixel with red and blue exchanged.
constexpr uint32_t Pixels_SwapRedBlue(uint32_t pixel)
{
    constexpr uint32_t kept = Pixels_Pack(0, 255, 0, 255);
    return (pixel & kept) | std::rotl(pixel & ~kept, 16);
}

/// Converts all whole triples of R, G, B (or B, G, R).
void Pixels_FromTriples(std::span<const uint8_t> samples, bool blueFirst, uint8_t *out);

/// Writes the pixels that pixel(i) gives, each from its own place of `out` at most. Four at once: a
/// store might change what later ones are made of, so that compilers cannot join them.
template <typename Pixel>
inline void Pixels_Make(size_t count, uint8_t *out, const Pixel &pixel)
{
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const std::array<uint32_t, 4> four = {pixel(i), pixel(i + 1), pixel(i + 2), pixel(i + 3)};
        std::memcpy(out + 4 * i, four.data(), 16);
    }
    for (; i < count; i++)
        Pixels_Put(out + 4 * i, pixel(i));
}

/// Converts palette indexes; alpha is the palette's.
inline void Pixels_FromIndexes(std::span<const uint8_t> indexes, const PIXELS_PALETTE &palette,
                               uint8_t *out)
{
    Pixels_Make(indexes.size(), out,
                [&](size_t i) { return Pixels_Get(palette[indexes[i]].data()); });
}

/// Converts grey samples.
inline void Pixels_FromGreys(std::span<const uint8_t> greys, uint8_t *out)
{
    for (size_t i = 0; i < greys.size(); i++)
        Pixels_Put(out + 4 * i, Pixels_Pack(greys[i], greys[i], greys[i], 255));
}

/// The bits of each byte as eight bytes of 0 or 1, the highest bit first in memory.
inline constexpr std::array<uint64_t, 256> Pixels_Spread = [] {
    std::array<uint64_t, 256> spread{};
    for (size_t byte = 0; byte < spread.size(); byte++) {
        std::array<uint8_t, 8> bits{};
        for (size_t i = 0; i < bits.size(); i++)
            bits[i] = byte >> (7 - i) & 1;
        spread[byte] = std::bit_cast<uint64_t>(bits);
    }
    return spread;
}();
static_assert(Pixels_Spread[0x80] + Pixels_Spread[0x01] == Pixels_Spread[0x81]);

/// The eight pixels of each byte, set bits black and clear bits white, for either bit order.
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

#pragma GCC visibility pop
