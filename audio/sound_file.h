// The ground under the sound decoders: the one reader of files and of sounds in memory, the tables
// of records, and the refilling of buffers.
//
// Every thread has its own tables and its own file in loading, so that any number of threads load
// and decode at once. A record belongs to all who hold it: the table of the thread that loaded it,
// and a track that plays, on whatever thread that is refilled. One thread at a time refills a
// record.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "extra/bytes.h"
#include "extra/reason.h"

#pragma GCC visibility push(default)

/// By which rules files are read. A decoder reads the switch when a load begins and keeps it with
/// the record; its header lists where the two differ.
enum AUDIO_RULES : uint8_t {
    AUDIO_RULES_FRAMEWORK = 0,  // the framework's own, oddities and all
    AUDIO_RULES_FORMAT = 1,     // each format's published ones
};
extern constinit thread_local uint8_t Audio_Rules;

struct SOUND_CLOSE {
    void operator()(FILE *file) const
    {
        std::fclose(file);
    }
};
/// A file, or a sound in memory, from which refills read on.
using SOUND_STREAM = std::unique_ptr<FILE, SOUND_CLOSE>;

/// Bytes of what was opened, a regular file or memory. Nothing, with a reason, for anything else,
/// and for 4 GiB and more, since positions have 32 bits.
std::optional<uint32_t> Sound_GetSize(const BYTES_OPEN &from);

/// A stream of its own over what was opened, which may be closed meanwhile; memory must outlive
/// the stream. Null, with a reason, where Sound_GetSize gives nothing.
SOUND_STREAM Sound_OpenStream(const BYTES_OPEN &from);

/// The same for a path, or for what is open under it; *size becomes 0 where that fails.
SOUND_STREAM Sound_OpenFile(const char *path, uint32_t *size);

/// A file during its load: a block of it, which moves to where it is read.
struct SOUND_FILE {
    const BYTES_OPEN *From = nullptr;  // null: none is being loaded
    uint32_t Size = 0;                 // bytes
    uint64_t Start = 0;                // of the block in the file
    size_t Count = 0;                  // bytes in the block
    uint32_t Chunks = 0;               // that were walked
    std::array<uint8_t, 1024> Block = {};
};

/// Moves the block so that it starts at `position`.
void Sound_MoveBlock(SOUND_FILE &file, uint64_t position);

/// The byte at `position`, which moves on by one. Past the end it is 0 and the position moves on
/// all the same.
inline uint8_t Sound_GetByte(SOUND_FILE &file, uint64_t &position)
{
    const uint64_t at = position++;
    if (at >= file.Size)
        return 0;
    if (at < file.Start || at - file.Start >= file.Count)
        Sound_MoveBlock(file, at);
    return at - file.Start < file.Count ? file.Block[at - file.Start] : uint8_t{0};
}

/// Numbers of `count` bytes (1 to 4) at `position`, under the rule of Sound_GetByte.
uint32_t Sound_GetBig(SOUND_FILE &file, uint64_t &position, int count);
uint32_t Sound_GetLittle(SOUND_FILE &file, uint64_t &position, int count);
/// The same without moving on.
uint32_t Sound_BigAt(SOUND_FILE &file, uint64_t position, int count);
uint32_t Sound_LittleAt(SOUND_FILE &file, uint64_t position, int count);

/// Reads `count` bytes at `position` as a text; what `text` cannot hold with its NUL is skipped.
void Sound_GetText(SOUND_FILE &file, uint64_t &position, uint32_t count, std::span<char> text);

/// A chunk's name as the big-endian number that it reads as.
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

/// Reads the chunk header at `position`, which moves on to the contents. A run of chunks of zeros
/// counts as its last one. Nothing at the end of the file, and after so many chunks or so many
/// zeros as only a damaged file has.
std::optional<SOUND_CHUNK> Sound_GetChunk(SOUND_FILE &file, uint64_t &position,
                                          uint32_t (*size)(SOUND_FILE &, uint64_t &, int));

/// Leaves the reason that a file ends before its sound does.
void Sound_CheckCut(const SOUND_FILE &file, uint64_t start, uint64_t promised);

/// The most records of a module.
constexpr size_t Sound_MaxRecords = 32;

/// A module's records in the order of loading, null where none is.
template <typename Header>
using SOUND_TABLE = std::array<std::shared_ptr<Header>, Sound_MaxRecords>;

/// Begins a load: has `file` read what is at `path`, or what is open under it, while load(what)
/// runs. Does nothing but leave a reason where that cannot be opened, when no slot is left in a
/// table of which `used` are, or without memory.
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

/// Has `read` fill a record with FileSize and Rules set and puts it into slot `number`, which moves
/// on; the table lets the record that was there go. Does nothing but leave a reason when all slots
/// are used or the file cannot be opened.
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

/// Empties the table; the number of the next slot stays.
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

/// What a refill is given: the file at the read position, the buffer, and the bytes of the file
/// that belong to the sound.
struct SOUND_REFILL {
    FILE *File;
    std::span<uint8_t> Buffer;
    /// Only whole samples and blocks, none lost, and an end where the file ends: for a buffer that
    /// takes whole frames, and whose Stored bytes are what is played.
    bool Gapless = false;
    uint64_t Available = UINT64_MAX;
};

/// What a refill gave.
struct SOUND_FILLED {
    uint32_t Length = 0;      // to be reported: mostly less than was stored, on purpose
    uint32_t Stored = 0;      // bytes of whole samples at the buffer's start
    bool Unfinished = false;  // it stopped searching before its end: call again
};

/// A module's decoding by record, for its decoding by number: length 0 without a record.
template <typename Header>
void Sound_Decoding(Header *record, SOUND_FILLED (*fill)(Header &, const SOUND_REFILL &),
                    FILE *file, uint8_t *buffer, uint32_t *length)
{
    *length = record ? fill(*record, {file, {buffer, *length}}).Length : 0;
}

/// How densely sound lies in a file: that many bytes give that many frames, wherever they start.
struct SOUND_GRAIN {
    uint64_t Bytes, Frames;
};

/// Puts `file` where `frame` of the sound between two positions begins, or the grain that it is in,
/// or at the end of the last whole one. Returns the frame there.
uint64_t Sound_Seek(FILE *file, uint64_t start, uint64_t end, SOUND_GRAIN grain, uint64_t frame);

/// Turns file samples into what a buffer holds, in place; whole samples only.
using SOUND_CONVERSION = void (*)(std::span<uint8_t> samples);
void Sound_Keep(std::span<uint8_t> samples);
void Sound_From8(std::span<uint8_t> samples);  // (128 - b) modulo 256: signed, and its sign turned
void Sound_TurnSign(std::span<uint8_t> samples);  // of 8 bits, from signed to unsigned or back
void Sound_Swap16(std::span<uint8_t> samples);    // these three: from big-endian
void Sound_Swap24(std::span<uint8_t> samples);
void Sound_Swap32(std::span<uint8_t> samples);

/// The nearest 16-bit value. Sound seldom needs it: the branch keeps it out of the chain from
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

/// The same less one byte and past the end of the file, where bytes are 0xFF for ever; unless it is
/// to be gapless.
SOUND_FILLED Sound_Endless(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert);

/// The same for G.711: a 16-bit little-endian sample a byte of the file, from AUDIO_ALAW or
/// AUDIO_ULAW; less one sample.
SOUND_FILLED Sound_G711(const SOUND_REFILL &refill, const std::array<int16_t, 256> &table);

/// What a codec that is not decoded gives: the buffer and its length as they are.
SOUND_FILLED Sound_Nothing(const SOUND_REFILL &refill);

#pragma GCC visibility pop
