#include "audio/sound_file.h"

#include "extra/lanes.h"

#include <algorithm>
#include <cstring>

#include <unistd.h>

bool Sound_Open(SOUND_FILE &file, const char *path)
{
    file = {};
    file.File = Audio_OpenFile(path, &file.Size);
    if (!file.File)
        return false;
    Sound_MoveBlock(file, 0);
    return true;
}

void Sound_MoveBlock(SOUND_FILE &file, uint64_t position)
{
    const ssize_t count = pread(fileno(file.File.get()), file.Block.data(), file.Block.size(),
                                static_cast<off_t>(position));
    file.Start = position;
    file.Count = count < 0 ? 0 : static_cast<size_t>(count);
}

uint32_t Sound_GetBig(SOUND_FILE &file, uint64_t &position, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
        value = value << 8 | Sound_GetByte(file, position);
    return value;
}

uint32_t Sound_GetLittle(SOUND_FILE &file, uint64_t &position, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
        value |= static_cast<uint32_t>(Sound_GetByte(file, position)) << (8 * i);
    return value;
}

uint32_t Sound_BigAt(SOUND_FILE &file, uint64_t position, int count)
{
    return Sound_GetBig(file, position, count);
}

uint32_t Sound_LittleAt(SOUND_FILE &file, uint64_t position, int count)
{
    return Sound_GetLittle(file, position, count);
}

void Sound_GetText(SOUND_FILE &file, uint64_t &position, uint32_t count, std::span<char> text)
{
    const uint64_t end = position + count;
    const size_t kept = std::min<size_t>(count, text.size() - 1);
    for (char &letter : text.first(kept))
        letter = static_cast<char>(Sound_GetByte(file, position));
    text[kept] = 0;
    position = end;
}

// The conversions are loops over whole samples that compilers run many bytes at a time.

void Sound_Keep(std::span<uint8_t>) {}

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

// Reads what there is, at most `available` bytes, and makes the rest 0xFF.
static uint64_t ReadPadded(FILE *file, std::span<uint8_t> bytes, uint64_t available)
{
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(bytes.size(), available));
    const size_t read = std::fread(bytes.data(), 1, wanted, file);
    std::ranges::fill(bytes.subspan(read), uint8_t{0xFF});
    return read;
}

// Completes the sample whose first bytes are at the buffer's end, by at most `available` bytes.
// Kept as it is it needs none of them, and passing over them is cheaper than a second read.
static uint64_t EndSample(const SOUND_REFILL &refill, uint32_t bytes, std::span<uint8_t> begun,
                          uint64_t available, SOUND_CONVERSION convert)
{
    const size_t missing = bytes - begun.size();
    if (convert == Sound_Keep) {
        const uint64_t passed = std::min<uint64_t>(missing, available);
        fseeko(refill.File, static_cast<off_t>(passed), SEEK_CUR);
        return passed;
    }
    std::array<uint8_t, 4> sample;
    const std::span<uint8_t> whole = std::span(sample).first(bytes);
    std::ranges::copy(begun, whole.begin());
    const uint64_t read = ReadPadded(refill.File, whole.last(missing), available);
    convert(whole);
    std::ranges::copy(whole.first(begun.size()), begun.begin());
    return read;
}

uint64_t Sound_ReadSamples(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert)
{
    const size_t size = refill.Buffer.size() / bytes * bytes;
    const uint64_t read = ReadPadded(refill.File, refill.Buffer, refill.Available);
    convert(refill.Buffer.first(size));
    if (size == refill.Buffer.size())
        return read;
    const uint64_t available = read < refill.Buffer.size() ? 0 : refill.Available - read;
    return read + EndSample(refill, bytes, refill.Buffer.subspan(size), available, convert);
}

uint32_t Sound_Samples(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert)
{
    const uint64_t read = Sound_ReadSamples(refill, bytes, convert);
    return Sound_Length(refill, Sound_Begun(read, bytes), bytes);
}

uint32_t Sound_SwappedPairs(const SOUND_REFILL &refill)
{
    const uint64_t read = Sound_ReadSamples(refill, 2, Sound_Swap16);
    return Sound_Length(refill, read & ~uint64_t{1}, 1);
}

static void ExpandG711(std::span<const uint8_t> codes, uint8_t *buffer,
                       const std::array<int16_t, 256> &table)
{
    for (const uint8_t code : codes) {
        const uint16_t sample = static_cast<uint16_t>(table[code]);
        *buffer++ = static_cast<uint8_t>(sample);
        *buffer++ = static_cast<uint8_t>(sample >> 8);
    }
}

uint32_t Sound_G711(const SOUND_REFILL &refill, const std::array<int16_t, 256> &table)
{
    // An odd buffer begins a last sample, which is lost.
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
    return Sound_Length(refill, 2 * done, 2);
}
