// What all sound decoders share: the reader of files and of sounds in memory, the tables of
// records, and the refilling of buffers.
//
// Every thread has its own tables and its own file being loaded, so any number of threads load and
// decode at once. A record has shared ownership: by the table of the thread that loaded it and by a
// track, on whichever thread that is refilled. Only one thread at a time may refill a record.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "extra/bytes.h"
#include "extra/reason.h"

#pragma GCC visibility push(default)

/// The rules that files are read by. A decoder reads the switch when a load begins and keeps it in
/// the record; its header lists where the two differ.
enum AUDIO_RULES : uint8_t {
    AUDIO_RULES_FRAMEWORK = 0,  // the framework's own, with its oddities
    AUDIO_RULES_FORMAT = 1,     // each format's published ones
};
extern constinit thread_local uint8_t Audio_Rules;

struct SOUND_CLOSE {
    void operator()(FILE *file) const
    {
        std::fclose(file);
    }
};
/// A file, or a sound in memory, that refills read from.
using SOUND_STREAM = std::unique_ptr<FILE, SOUND_CLOSE>;

/// Size in bytes of what was opened, a regular file or memory. Nothing, with a reason, for anything
/// else and from 4 GiB on, since positions have 32 bits.
std::optional<uint32_t> Sound_GetSize(const BYTES_OPEN &from);

/// An independent stream over what was opened, which may be closed meanwhile; memory must outlive
/// the stream. Null, with a reason, if Sound_GetSize gives nothing.
SOUND_STREAM Sound_OpenStream(const BYTES_OPEN &from);

/// The same for a path, or for what is open under it; *size becomes 0 on failure.
SOUND_STREAM Sound_OpenFile(const char *path, uint32_t *size);

/// A file being loaded: one block of it, which moves to where it is read.
struct SOUND_FILE {
    const BYTES_OPEN *From = nullptr;  // null: no file is being loaded
    uint32_t Size = 0;                 // bytes
    uint64_t Start = 0;                // of the block in the file
    size_t Count = 0;                  // bytes in the block
    uint32_t Chunks = 0;               // visited so far
    std::array<uint8_t, 1024> Block = {};
};

/// Moves the block to start at `position`.
void Sound_MoveBlock(SOUND_FILE &file, uint64_t position);

/// The byte at `position`, which advances by one. Past the end the byte is 0 and the position still
/// advances.
inline uint8_t Sound_GetByte(SOUND_FILE &file, uint64_t &position)
{
    const uint64_t at = position++;
    if (at >= file.Size)
        return 0;
    if (at < file.Start || at - file.Start >= file.Count)
        Sound_MoveBlock(file, at);
    return at - file.Start < file.Count ? file.Block[at - file.Start] : uint8_t{0};
}

/// Numbers of `count` bytes (1 to 4) at `position`, read as by Sound_GetByte.
uint32_t Sound_GetBig(SOUND_FILE &file, uint64_t &position, int count);
uint32_t Sound_GetLittle(SOUND_FILE &file, uint64_t &position, int count);
/// The same without advancing.
uint32_t Sound_BigAt(SOUND_FILE &file, uint64_t position, int count);
uint32_t Sound_LittleAt(SOUND_FILE &file, uint64_t position, int count);

/// Reads `count` bytes at `position` as a text; what does not fit into `text` with its NUL is
/// skipped.
void Sound_GetText(SOUND_FILE &file, uint64_t &position, uint32_t count, std::span<char> text);

/// A chunk's name as a big-endian number.
constexpr uint32_t Sound_Id(std::string_view name)
{
    uint32_t id = 0;
    for (const char letter : name)
        id = id << 8 | static_cast<uint8_t>(letter);
    return id;
}

/// The header of a chunk, as RIFF and EA IFF 85 have it.
struct SOUND_CHUNK {
    uint32_t Id, Size;
};

/// Reads the chunk header at `position`, which advances to the contents. A run of zero chunks
/// counts as one, its last. Nothing at the end of the file, or after as many chunks or zeros as
/// only a damaged file has.
std::optional<SOUND_CHUNK> Sound_GetChunk(SOUND_FILE &file, uint64_t &position,
                                          uint32_t (*size)(SOUND_FILE &, uint64_t &, int));

/// Leaves the reason that the file ends before its sound.
void Sound_CheckCut(const SOUND_FILE &file, uint64_t start, uint64_t promised);

/// The most records of one module.
constexpr size_t Sound_MaxRecords = 32;

/// A module's records in load order, null for an empty slot.
template <typename Header>
using SOUND_TABLE = std::array<std::shared_ptr<Header>, Sound_MaxRecords>;

/// Runs load(what) with `file` reading what is at `path`, or what is open under it. Does nothing
/// but leave a reason if that cannot be opened, all `used` slots of a table are taken, or memory is
/// short.
using SOUND_LOAD = void (*)(void *what);
void Sound_WithFile(const char *path, SOUND_FILE &file, uint8_t used, SOUND_LOAD load, void *what);

/// What a load fills, and how.
template <typename Header>
struct SOUND_SLOT {
    SOUND_TABLE<Header> &Table;
    uint8_t &Number;
    SOUND_FILE &File;
    void (*Read)(Header &record);
};

/// Has `read` fill a record with FileSize and Rules set and stores it in slot `number`, which is
/// incremented; the table releases the record that was there. Does nothing but leave a reason if
/// all slots are used or the file cannot be opened.
template <typename Header>
void Sound_Load(SOUND_SLOT<Header> slot, const char *path)
{
    const SOUND_LOAD load = [](void *what) {
        auto &[table, number, file, read] = *static_cast<SOUND_SLOT<Header> *>(what);
        auto record = std::make_shared<Header>();
        record->FileSize = file.Size;
        record->Rules = Audio_Rules;
        read(*record);
        table[number++] = std::move(record);
    };
    Sound_WithFile(path, slot.File, slot.Number, load, &slot);
}

/// Empties the table; the next slot's number stays.
template <typename Header>
void Sound_Destroy(SOUND_TABLE<Header> &table)
{
    table.fill(nullptr);
}

/// Record n, null if no such record exists.
template <typename Header>
Header *Sound_GetHeader(const SOUND_TABLE<Header> &table, uint8_t n)
{
    return n < table.size() ? table[n].get() : nullptr;
}

/// A refill's input: the file at the read position, the buffer, and how many of the file's bytes
/// belong to the sound.
struct SOUND_REFILL {
    FILE *File;
    std::span<uint8_t> Buffer;
    /// Only whole samples and blocks, none lost, ending where the file ends: for a buffer of whole
    /// frames whose Stored bytes are what is played.
    bool Gapless = false;
    uint64_t Available = UINT64_MAX;
};

/// A refill's result.
struct SOUND_FILLED {
    uint32_t Length = 0;      // reported: mostly less than was stored, on purpose
    uint32_t Stored = 0;      // bytes of whole samples at the buffer's start
    bool Unfinished = false;  // the search was interrupted: call again
};

/// A module's decoding by number, from its decoding by record: length 0 without a record.
template <typename Header>
void Sound_Decoding(Header *record, SOUND_FILLED (*fill)(Header &, const SOUND_REFILL &),
                    FILE *file, uint8_t *buffer, uint32_t *length)
{
    *length = record ? fill(*record, {file, {buffer, *length}}).Length : 0;
}

/// The unit that a file stores sound in: Bytes bytes hold Frames frames.
struct SOUND_GRAIN {
    uint64_t Bytes, Frames;
};

/// Moves `file` to where `frame` begins between two positions, or to the start of the grain that
/// holds it, or to the end of the last whole grain. Returns the frame it is at.
uint64_t Sound_Seek(FILE *file, uint64_t start, uint64_t end, SOUND_GRAIN grain, uint64_t frame);

/// Convert file samples to what a buffer holds, in place; whole samples only.
using SOUND_CONVERSION = void (*)(std::span<uint8_t> samples);
void Sound_Keep(std::span<uint8_t> samples);
void Sound_From8(std::span<uint8_t> samples);     // (128 - b) modulo 256: signed and negated
void Sound_TurnSign(std::span<uint8_t> samples);  // of 8 bits, from signed to unsigned or back
void Sound_Swap16(std::span<uint8_t> samples);    // these three: from big-endian
void Sound_Swap24(std::span<uint8_t> samples);
void Sound_Swap32(std::span<uint8_t> samples);

/// Sound_Swap16 with AVX2 where there is. Apart, since the check for AVX2 is 6 KB of code, which
/// programs for WAV files alone save.
void Sound_SwapWide16(std::span<uint8_t> samples);

/// The loop of both.
inline void Sound_SwapAll16(std::span<uint8_t> samples)
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

/// Clamps to 16 bits. Sound seldom needs it: the branch keeps it out of the dependency chain from
/// sample to sample.
constexpr int32_t Sound_Clamp16(int32_t sample)
{
    if (static_cast<uint32_t>(sample) + 32768 > 65535) [[unlikely]]
        return sample < 0 ? -32768 : 32767;
    return sample;
}

/// Fills the buffer with converted samples of `bytes` (1 to 4) bytes each up to the end of the
/// file. A sample that crosses the buffer's end is read whole and truncated (with Sound_Keep its
/// tail is skipped unread); missing bytes are 0xFF. The length is less one sample.
SOUND_FILLED Sound_Samples(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert);

/// The same for samples of 2 bytes, but less one byte, and only whole samples count.
SOUND_FILLED Sound_Pairs(const SOUND_REFILL &refill, SOUND_CONVERSION convert);

/// The same less one byte, continuing past the end of the file with bytes 0xFF without end, unless
/// the refill is to be gapless.
SOUND_FILLED Sound_Endless(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert);

/// The same for G.711: each byte becomes a 16-bit little-endian sample from AUDIO_ALAW or
/// AUDIO_ULAW; less one sample.
SOUND_FILLED Sound_G711(const SOUND_REFILL &refill, const std::array<int16_t, 256> &table);

/// The result for a codec that is not decoded: buffer and length unchanged.
SOUND_FILLED Sound_Nothing(const SOUND_REFILL &refill);

#pragma GCC visibility pop
