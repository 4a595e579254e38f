// What the modules of plain sound files share: the table of their records, header fields read from
// wherever in the file a walk leads, and the refilling of buffers.
//
// Loads are done by one thread at a time. A refill touches nothing but its own file, buffer and
// record, so that one thread may refill while another loads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "audio/audio_module.h"

/// A file during its load: a block of it, which moves to where it is read.
struct SOUND_FILE {
    AUDIO_FILE File;     // null: none is open
    uint32_t Size = 0;   // bytes
    uint64_t Start = 0;  // of the block in the file
    size_t Count = 0;    // bytes in the block
    std::array<uint8_t, 1024> Block = {};
};

/// Opens a file by Audio_OpenFile and reads its first block. False, with nothing open, for what
/// that refuses.
bool Sound_Open(SOUND_FILE &file, const char *path);

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

/// Reads `count` bytes at `position` as a text; what `text` cannot hold with its NUL is passed
/// over.
void Sound_GetText(SOUND_FILE &file, uint64_t &position, uint32_t count, std::span<char> text);

/// A chunk's name as the big-endian number that it reads as.
constexpr uint32_t Sound_Id(std::string_view name)
{
    uint32_t id = 0;
    for (const char letter : name)
        id = id << 8 | static_cast<uint8_t>(letter);
    return id;
}

/// A module's records in the order of loading, null where none is.
template <typename Header>
using SOUND_TABLE = std::array<Header *, 32>;

/// Opens the file, has `read` fill a record with FileSize set and puts it into slot `number`, which
/// moves on; a record that was there goes. Does nothing when all slots are used or the file cannot
/// be opened.
template <typename Header>
void Sound_Load(SOUND_TABLE<Header> &table, uint8_t &number, SOUND_FILE &file, const char *path,
                void (*read)(Header &))
{
    if (number >= table.size() || !Sound_Open(file, path))
        return;
    auto record = std::make_unique<Header>();
    record->FileSize = file.Size;
    read(*record);
    file = {};
    delete std::exchange(table[number++], record.release());
}

/// Frees all records; the number of the next slot stays.
template <typename Header>
void Sound_Destroy(SOUND_TABLE<Header> &table)
{
    for (Header *&record : table)
        delete std::exchange(record, nullptr);
}

/// Record n, null when there is none.
template <typename Header>
Header *Sound_GetHeader(const SOUND_TABLE<Header> &table, uint8_t n)
{
    return n < table.size() ? table[n] : nullptr;
}

/// Turns file samples into what a buffer holds, in place; whole samples only.
using SOUND_CONVERSION = void (*)(std::span<uint8_t> samples);
void Sound_Keep(std::span<uint8_t> samples);
void Sound_From8(std::span<uint8_t> samples);   // (128 - b) modulo 256: signed, and its sign turned
void Sound_Swap16(std::span<uint8_t> samples);  // these three: from big-endian
void Sound_Swap24(std::span<uint8_t> samples);
void Sound_Swap32(std::span<uint8_t> samples);

/// What a module's decoding is given: the file at the read position, the buffer, and the bytes of
/// the file that belong to the sound.
struct SOUND_REFILL {
    FILE *File;
    std::span<uint8_t> Buffer;
    uint64_t Available = UINT64_MAX;
};

/// Fills the buffer with converted samples of `bytes` (1 to 4) bytes each. A sample that passes the
/// buffer's end is read whole and cut, one that is kept as it is passed over without a look at
/// whether the file has all of it; what the file lacks is 0xFF. Returns the bytes that were read.
uint64_t Sound_ReadSamples(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert);

/// `count` up to whole samples: with the one that has begun.
constexpr uint64_t Sound_Begun(uint64_t count, uint32_t bytes)
{
    return (count + bytes - 1) / bytes * bytes;
}

/// The length to report when `count` bytes were stored: `lost` fewer on purpose, and never more
/// than the buffer holds.
inline uint32_t Sound_Length(const SOUND_REFILL &refill, uint64_t count, uint32_t lost)
{
    const uint64_t kept = count > lost ? count - lost : 0;
    return static_cast<uint32_t>(kept < refill.Buffer.size() ? kept : refill.Buffer.size());
}

/// Sound_ReadSamples up to the end of the file. Returns the length to report: less one sample.
uint32_t Sound_Samples(const SOUND_REFILL &refill, uint32_t bytes, SOUND_CONVERSION convert);

/// The same for 16-bit big-endian samples, but less one byte, and only whole samples count.
uint32_t Sound_SwappedPairs(const SOUND_REFILL &refill);

/// The same for G.711: a 16-bit little-endian sample a byte of the file, from AUDIO_ALAW or
/// AUDIO_ULAW; less one sample.
uint32_t Sound_G711(const SOUND_REFILL &refill, const std::array<int16_t, 256> &table);
