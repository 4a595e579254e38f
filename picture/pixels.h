// The floor of the decoders: the rules they read by, the bounds of what they believe, buffers of
// pixels, and runs of samples into R G B A pixels. `out` has room for 4 bytes a pixel; what is not
// said to be transparent gets alpha 255.
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

/// By which rules files are read. A decoder reads the switch when a load begins; its header lists
/// where the two differ.
enum PICTURE_RULES : uint8_t {
    PICTURE_RULES_FRAMEWORK = 0,  // the framework's own, oddities and all
    PICTURE_RULES_FORMAT = 1,     // each format's published ones
};
extern constinit thread_local uint8_t Picture_Rules;

/// Bytes that one pixel buffer may have; larger pictures are null pictures. To be lowered or raised
/// before other threads load.
extern size_t Picture_MaxBytes;

/// A file that can hold less than one part in this many of its pixels is rejected; one that holds
/// more is decoded as truncated.
constexpr size_t Picture_MinShare = 8;

/// What decoding a file may take of memory: so many bytes, and so many more for each of the file's.
constexpr uint64_t Picture_FreeMemory = 48 << 20, Picture_MemoryPerByte = 4096;

/// What a file says of its picture.
struct PICTURE_CLAIM {
    uint64_t Width, Height;  // pixels
    uint64_t Held;           // pixels that its data can stand for at the compression's best
    uint64_t FileBytes;
    uint64_t Beside = 0;  // bytes that decoding takes beside four a pixel
};

/// Whether that is to be believed: neither side is 0, the pixels fit into Picture_MaxBytes, the
/// data hold at least one part in Picture_MinShare of them, and the file is worth the memory. Sets
/// the reason if not.
bool Picture_Believes(const PICTURE_CLAIM &claim);

/// A zeroed buffer of width x height RGBA pixels from calloc, the caller's. Null, with a reason,
/// when a side is 0, when it would pass Picture_MaxBytes, or without memory.
uint8_t *Picture_NewPixels(uint32_t width, uint32_t height);

/// The same without clearing, for decoders that set every pixel whatever the file.
uint8_t *Picture_NewUnsetPixels(uint32_t width, uint32_t height);

/// Owner of a buffer that may not get to the caller.
struct PICTURE_FREE {
    void operator()(void *buffer) const
    {
        std::free(buffer);
    }
};
using PICTURE_PIXELS = std::unique_ptr<uint8_t, PICTURE_FREE>;

using PIXELS_PALETTE = std::array<std::array<uint8_t, 4>, 256>;  // R G B A

/// A pixel as the word whose bytes lie in memory in this order.
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

/// As many triples of R, G, B (or B, G, R) as there are whole ones.
void Pixels_FromTriples(std::span<const uint8_t> samples, bool blueFirst, uint8_t *out);

/// One palette entry a pixel, its alpha included.
inline void Pixels_FromIndexes(std::span<const uint8_t> indexes, const PIXELS_PALETTE &palette,
                               uint8_t *out)
{
    for (size_t i = 0; i < indexes.size(); i++)
        std::memcpy(out + 4 * i, palette[indexes[i]].data(), 4);
}

/// One grey sample a pixel.
inline void Pixels_FromGreys(std::span<const uint8_t> greys, uint8_t *out)
{
    for (size_t i = 0; i < greys.size(); i++)
        Pixels_Put(out + 4 * i, Pixels_Pack(greys[i], greys[i], greys[i], 255));
}

/// A byte's bits as eight bytes of 0 or 1, the highest bit first in memory.
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

#pragma GCC visibility pop
