// Bits of a stream in memory, peeked without advancing: 64 bits at any bit position; bits in
// reverse order.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "extra/bytes.h"

/// The bits from position `bit` on, for streams that fill bytes from the highest bit; the first bit
/// is the result's highest. At least 57 bits are valid; those past the stream's end are 0.
inline uint64_t Bits_PeekHigh(std::span<const uint8_t> in, size_t bit)
{
    size_t byte = bit / 8;
    uint64_t bits = 0;
    if (byte + 8 <= in.size()) {
        std::memcpy(&bits, in.data() + byte, 8);
        if constexpr (std::endian::native == std::endian::little)
            bits = __builtin_bswap64(bits);
    } else {
        bits = uint64_t{Bytes_GetBig(in, byte, 4)} << 32;
        bits |= Bytes_GetBig(in, byte, 4);
    }
    return bits << bit % 8;
}

/// The same for streams that fill bytes from the lowest bit; the first bit is the result's lowest.
inline uint64_t Bits_PeekLow(std::span<const uint8_t> in, size_t bit)
{
    size_t byte = bit / 8;
    uint64_t bits = 0;
    if (byte + 8 <= in.size()) {
        std::memcpy(&bits, in.data() + byte, 8);
        if constexpr (std::endian::native == std::endian::big)
            bits = __builtin_bswap64(bits);
    } else {
        bits = Bytes_GetLittle(in, byte, 4);
        bits |= uint64_t{Bytes_GetLittle(in, byte, 4)} << 32;
    }
    return bits >> bit % 8;
}

/// Each byte with its bits in reverse order.
inline constexpr std::array<uint8_t, 256> Bits_Mirror = [] {
    std::array<uint8_t, 256> mirror{};
    for (size_t byte = 0; byte < mirror.size(); byte++)
        for (size_t bit = 0; bit < 8; bit++)
            mirror[byte] |= static_cast<uint8_t>((byte >> bit & 1) << (7 - bit));
    return mirror;
}();
