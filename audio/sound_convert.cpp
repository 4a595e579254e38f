// Conversions of audio/sound_file.h, which a program links with the decoders that use them.
#include "audio/sound_file.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "extra/lanes.h"

// The conversions are loops over whole samples that compilers run many bytes at a time.

EXTRA_LANES static void From8(std::span<uint8_t> samples)
{
    for (uint8_t &sample : samples)
        sample = static_cast<uint8_t>(128 - sample);
}

void Sound_From8(std::span<uint8_t> samples)
{
    From8(samples);
}

EXTRA_LANES static void Swap16(std::span<uint8_t> samples)
{
    uint8_t *bytes = samples.data();
    const size_t count = samples.size() / 2;
    for (size_t i = 0; i < count; i++) {
        uint16_t sample;
        std::memcpy(&sample, bytes + 2 * i, sizeof sample);
        sample = static_cast<uint16_t>(sample << 8 | sample >> 8);
        std::memcpy(bytes + 2 * i, &sample, sizeof sample);
    }
}

void Sound_Swap16(std::span<uint8_t> samples)
{
    Swap16(samples);
}

void Sound_Swap24(std::span<uint8_t> samples)
{
    uint8_t *bytes = samples.data();
    const size_t count = samples.size() / 3;
    for (size_t i = 0; i < count; i++)
        std::swap(bytes[3 * i], bytes[3 * i + 2]);
}

EXTRA_LANES static void Swap32(std::span<uint8_t> samples)
{
    uint8_t *bytes = samples.data();
    const size_t count = samples.size() / 4;
    for (size_t i = 0; i < count; i++) {
        uint32_t sample;
        std::memcpy(&sample, bytes + 4 * i, sizeof sample);
        sample = sample << 24 | (sample & 0xFF00) << 8 | (sample >> 8 & 0xFF00) | sample >> 24;
        std::memcpy(bytes + 4 * i, &sample, sizeof sample);
    }
}

void Sound_Swap32(std::span<uint8_t> samples)
{
    Swap32(samples);
}
