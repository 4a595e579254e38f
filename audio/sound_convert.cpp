// Conversions of audio/sound_file.h, which a program links with the decoders that use them.
#include "audio/sound_file.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

// The conversions are loops over whole samples that compilers vectorise. Baseline lanes keep up
// with reading the file; wider ones would need a run-time choice in each program.

void Sound_From8(std::span<uint8_t> samples)
{
    for (uint8_t &sample : samples)
        sample = static_cast<uint8_t>(128 - sample);
}

void Sound_TurnSign(std::span<uint8_t> samples)
{
    for (uint8_t &sample : samples)
        sample ^= 0x80;
}

void Sound_Swap16(std::span<uint8_t> samples)
{
    Sound_SwapAll16(samples);
}

void Sound_Swap24(std::span<uint8_t> samples)
{
    uint8_t *bytes = samples.data();
    const size_t count = samples.size() / 3;
    for (size_t i = 0; i < count; i++)
        std::swap(bytes[3 * i], bytes[3 * i + 2]);
}

void Sound_Swap32(std::span<uint8_t> samples)
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

static void ExpandG711(std::span<const uint8_t> codes, uint8_t *buffer,
                       const std::array<int16_t, 256> &table)
{
    for (const uint8_t code : codes) {
        uint16_t sample = static_cast<uint16_t>(table[code]);
        if constexpr (std::endian::native == std::endian::big)
            sample = static_cast<uint16_t>(sample << 8 | sample >> 8);
        std::memcpy(buffer, &sample, sizeof sample);
        buffer += sizeof sample;
    }
}

SOUND_FILLED Sound_G711(const SOUND_REFILL &refill, const std::array<int16_t, 256> &table)
{
    // An odd buffer ends in half a sample, which is lost.
    const uint64_t samples = std::min<uint64_t>((refill.Buffer.size() + 1) / 2, refill.Available);
    const uint64_t kept = refill.Buffer.size() / 2;
    std::array<uint8_t, 32768> codes;
    uint64_t done = 0;
    while (done < samples) {
        const size_t wanted = std::min<uint64_t>(codes.size(), samples - done);
        const size_t read = std::fread(codes.data(), 1, wanted, refill.File);
        const size_t fit = std::min<uint64_t>(read, kept - done);
        ExpandG711(std::span(codes).first(fit), refill.Buffer.data() + 2 * done, table);
        done += read;
        if (read < wanted)
            break;
    }
    const auto stored = static_cast<uint32_t>(2 * std::min(done, kept));
    return {static_cast<uint32_t>(done == 0 ? 0 : 2 * done - 2), stored};
}
