#include "audio/sound_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

constinit thread_local uint8_t Audio_Rules = AUDIO_RULES_FRAMEWORK;

std::optional<uint32_t> Sound_GetSize(const BYTES_OPEN &from)
{
    const std::optional<uint64_t> size = Bytes_GetSize(from);
    if (!size)
        return std::nullopt;
    if (*size > UINT32_MAX) {
        Reason_Set("4 GiB or more");
        return std::nullopt;
    }
    return static_cast<uint32_t>(*size);
}

// A stream over memory; where the system has no such thing, over a temporary file.
static FILE *OpenMemory(std::span<const uint8_t> bytes)
{
#if _POSIX_C_SOURCE >= 200809L
    if (!bytes.empty())
        return fmemopen(const_cast<uint8_t *>(bytes.data()), bytes.size(), "rb");
#endif
    FILE *file = std::tmpfile();
    if (file && std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
        std::fclose(file);
        return nullptr;
    }
    return file;
}

#ifdef _WIN32
// Opened again: block reads move the position that all descriptors of an open file share.
static FILE *OpenAgain(const BYTES_OPEN &from)
{
    return std::fopen(from.Path, "rb");
}
#else
static FILE *OpenAgain(const BYTES_OPEN &from)
{
    const int descriptor = fcntl(from.File, F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0)
        return nullptr;
#ifdef O_NOATIME
    // Do not update access times; refused for other users' files, harmlessly.
    fcntl(descriptor, F_SETFL, O_NOATIME);
#endif
    FILE *file = fdopen(descriptor, "rb");
    if (!file)
        close(descriptor);
    return file;
}
#endif

SOUND_STREAM Sound_OpenStream(const BYTES_OPEN &from)
{
    if (!Sound_GetSize(from))
        return nullptr;
    SOUND_STREAM stream(from.IsMemory ? OpenMemory(from.Memory) : OpenAgain(from));
    if (!stream)
        Reason_Set("cannot be read: %s", std::strerror(errno));
    else if (!from.IsMemory)
        std::rewind(stream.get());  // descriptors of one open file share their position
    return stream;
}

SOUND_STREAM Sound_OpenFile(const char *path, uint32_t *size)
{
    const BYTES_OPEN *from = Bytes_FindOpen(path);
    if (!from) {
        const BYTES_OPEN opened(path);
        return Sound_OpenFile(path, size);
    }
    *size = Sound_GetSize(*from).value_or(0);
    return Sound_OpenStream(*from);
}

void Sound_WithFile(const char *path, SOUND_FILE &file, uint8_t used, SOUND_LOAD load, void *what)
{
    const BYTES_OPEN *from = Bytes_FindOpen(path);
    if (!from) {
        const BYTES_OPEN opened(path);
        return Sound_WithFile(path, file, used, load, what);
    }
    Reason_Clear();
    if (used >= Sound_MaxRecords)
        return Reason_Set("%zu sounds of its format are loaded already", Sound_MaxRecords);
    const std::optional<uint32_t> size = Sound_GetSize(*from);
    if (!size)
        return;
    file = {.From = from, .Size = *size};
    Reason_Guard([=] { load(what); });
    file.From = nullptr;
}

void Sound_MoveBlock(SOUND_FILE &file, uint64_t position)
{
    file.Start = position;
    file.Count = file.From ? Bytes_ReadAt(*file.From, position, file.Block).value_or(0) : 0;
}

uint32_t Sound_GetBig(SOUND_FILE &file, uint64_t &position, int count)
{
    std::array<uint8_t, 4> bytes;
    for (int i = 0; i < count; i++)
        bytes[static_cast<size_t>(i)] = Sound_GetByte(file, position);
    size_t at = 0;
    return Bytes_GetBig(bytes, at, count);
}

uint32_t Sound_GetLittle(SOUND_FILE &file, uint64_t &position, int count)
{
    const uint32_t big = Sound_GetBig(file, position, count);
    const std::array<uint8_t, 4> bytes = {
        static_cast<uint8_t>(big >> 24), static_cast<uint8_t>(big >> 16),
        static_cast<uint8_t>(big >> 8), static_cast<uint8_t>(big)};
    size_t at = static_cast<size_t>(4 - count);
    return Bytes_GetLittle(bytes, at, count);
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

constexpr uint32_t Sound_MaxChunks = 16384;             // visited by one walk
constexpr uint64_t Sound_MaxZeros = uint64_t{4} << 20;  // bytes of zeros that are skipped

// The first byte at or after `position` that may be nonzero: past a hole of a sparse file.
static uint64_t SkipHole(const BYTES_OPEN &from, uint64_t position)
{
#ifdef SEEK_DATA
    if (!from.IsMemory) {
        const off_t data = lseek(from.File, static_cast<off_t>(position), SEEK_DATA);
        if (data >= 0)
            return static_cast<uint64_t>(data);
        return errno == ENXIO ? UINT64_MAX : position;
    }
#endif
    return position;
}

// The last of the consecutive zero chunks that start at `position`.
static uint64_t SkipZeroChunks(const SOUND_FILE &file, uint64_t position)
{
    std::array<uint8_t, 32768> block;
    uint64_t left = Sound_MaxZeros;
    for (uint64_t at = position; left != 0;) {
        at = SkipHole(*file.From, at);
        if (at >= file.Size)
            break;
        const auto bytes =
            std::span(block).first(Bytes_ReadAt(*file.From, at, std::span(block)).value_or(0));
        const auto other = std::ranges::find_if(bytes, [](uint8_t byte) { return byte != 0; });
        at += static_cast<uint64_t>(other - bytes.begin());
        if (other != bytes.end())
            return position + (at - position) / 8 * 8;
        if (bytes.empty())
            break;
        left -= std::min<uint64_t>(left, bytes.size());
    }
    return file.Size;
}

std::optional<SOUND_CHUNK> Sound_GetChunk(SOUND_FILE &file, uint64_t &position,
                                          uint32_t (*size)(SOUND_FILE &, uint64_t &, int))
{
    if (position >= file.Size || file.Chunks++ == Sound_MaxChunks)
        return std::nullopt;
    const uint32_t id = Sound_GetBig(file, position, 4);
    const SOUND_CHUNK chunk = {id, size(file, position, 4)};
    if (chunk.Id == 0 && chunk.Size == 0)
        position = SkipZeroChunks(file, position);
    return chunk;
}

void Sound_CheckCut(const SOUND_FILE &file, uint64_t start, uint64_t promised)
{
    const uint64_t there = start < file.Size ? file.Size - start : 0;
    if (promised > there)
        Reason_Set("cut after %llu of %llu bytes of sound", static_cast<unsigned long long>(there),
                   static_cast<unsigned long long>(promised));
}

void Sound_Keep(std::span<uint8_t>) {}

// Reads at most `available` bytes and fills the rest with 0xFF.
static uint64_t ReadPadded(FILE *file, std::span<uint8_t> bytes, uint64_t available)
{
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(bytes.size(), available));
    const size_t read = std::fread(bytes.data(), 1, wanted, file);
    std::ranges::fill(bytes.subspan(read), uint8_t{0xFF});
    return read;
}

// Completes the sample whose first bytes end the buffer, from at most `available` bytes. A sample
// that is kept truncated needs none of them, and skipping is cheaper than a second read.
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

// Fills the buffer with converted samples. Returns the number of bytes read.
static uint64_t ReadSamples(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert)
{
    const size_t size = refill.Buffer.size() / bytes * bytes;
    const uint64_t read = ReadPadded(refill.File, refill.Buffer, refill.Available);
    convert(refill.Buffer.first(size));
    if (size == refill.Buffer.size())
        return read;
    const uint64_t available = read < refill.Buffer.size() ? 0 : refill.Available - read;
    return read + EndSample(refill, bytes, refill.Buffer.subspan(size), available, convert);
}

// The result of a refill: `lost` bytes fewer than `count` are reported, at most what the buffer
// holds; of the `read` bytes, whole samples of `bytes` bytes are stored.
static SOUND_FILLED Filled(const SOUND_REFILL &refill, uint64_t count, uint32_t lost, uint64_t read,
                           uint32_t bytes)
{
    const uint64_t kept = count > lost ? count - lost : 0, size = refill.Buffer.size();
    const uint64_t stored = std::min(read, size);
    return {static_cast<uint32_t>(std::min(kept, size)),
            static_cast<uint32_t>(stored - stored % bytes)};
}

SOUND_FILLED Sound_Samples(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert)
{
    const uint64_t read = ReadSamples(refill, bytes, convert);
    const uint64_t begun = (read + bytes - 1) / bytes * bytes;  // to the sample's end
    return Filled(refill, begun, bytes, read, bytes);
}

SOUND_FILLED Sound_Pairs(const SOUND_REFILL &refill, SOUND_CONVERSION convert)
{
    const uint64_t read = ReadSamples(refill, 2, convert);
    return Filled(refill, read & ~uint64_t{1}, 1, read, 2);
}

SOUND_FILLED Sound_Endless(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert)
{
    if (refill.Gapless)
        return Sound_Samples(refill, bytes, convert);
    const uint64_t read = ReadSamples(refill, bytes, convert);
    const uint64_t all = (refill.Buffer.size() + bytes - 1) / bytes * bytes;
    return Filled(refill, all, 1, read, bytes);
}

SOUND_FILLED Sound_Nothing(const SOUND_REFILL &refill)
{
    return {static_cast<uint32_t>(refill.Buffer.size()), 0};
}

uint64_t Sound_Seek(FILE *file, uint64_t start, uint64_t end, SOUND_GRAIN grain, uint64_t frame)
{
    if (grain.Bytes == 0 || grain.Frames == 0)
        return 0;
    const uint64_t grains =
        std::min(frame / grain.Frames, (end - std::min(start, end)) / grain.Bytes);
    fseeko(file, static_cast<off_t>(start + grains * grain.Bytes), SEEK_SET);
    return grains * grain.Frames;
}
