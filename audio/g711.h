// G.711 speech coding: A-law and mu-law bytes as linear samples. ITU-T G.711 (11/88).
#pragma once

#include <array>
#include <cstdint>

/// The linear value of an A-law byte: 13 bits, left-justified in 16. Even bits come inverted.
constexpr int16_t Audio_ExpandAlaw(uint8_t byte)
{
    const int code = byte ^ 0x55;
    const int segment = code >> 4 & 7;
    const int step = (code & 15) << 4;
    const int magnitude = segment == 0 ? step + 8 : (step + 0x108) << (segment - 1);
    return static_cast<int16_t>((code & 0x80) != 0 ? magnitude : -magnitude);
}

/// The linear value of a mu-law byte: 14 bits, left-justified in 16. All bits come inverted.
constexpr int16_t Audio_ExpandUlaw(uint8_t byte)
{
    const int code = byte ^ 0xFF;
    const int magnitude = (((code & 15) << 3) + 0x84) << (code >> 4 & 7);
    return static_cast<int16_t>((code & 0x80) != 0 ? 0x84 - magnitude : magnitude - 0x84);
}

template <typename Expand>
constexpr std::array<int16_t, 256> Audio_G711Table(Expand expand)
{
    std::array<int16_t, 256> table{};
    for (unsigned byte = 0; byte < 256; byte++)
        table[byte] = expand(static_cast<uint8_t>(byte));
    return table;
}

inline constexpr std::array<int16_t, 256> AUDIO_ALAW = Audio_G711Table(Audio_ExpandAlaw);
inline constexpr std::array<int16_t, 256> AUDIO_ULAW = Audio_G711Table(Audio_ExpandUlaw);

/// The linear value of a byte, from the tables.
constexpr int16_t Audio_Alaw(uint8_t byte)
{
    return AUDIO_ALAW[byte];
}
constexpr int16_t Audio_Ulaw(uint8_t byte)
{
    return AUDIO_ULAW[byte];
}

// The standard's tables 1a to 2b: the ends of a segment, and the values around zero.
static_assert(Audio_Alaw(0xAA) == 4032 * 8 && Audio_Alaw(0x2A) == -4032 * 8);
static_assert(Audio_Alaw(0xA5) == 2112 * 8 && Audio_Alaw(0xD5) == 8 && Audio_Alaw(0x55) == -8);
static_assert(Audio_Ulaw(0x80) == 8031 * 4 && Audio_Ulaw(0x00) == -8031 * 4);
static_assert(Audio_Ulaw(0x8F) == 4191 * 4 && Audio_Ulaw(0xFF) == 0 && Audio_Ulaw(0x7F) == 0);
