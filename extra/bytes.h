// The only file access of the decoders: whole files, and numbers read from them with a position
// that may run past the end. Every decoder reads through these, so no file can make it read out of
// bounds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "extra/reason.h"

#pragma GCC visibility push(default)

/// Allocator whose resize() leaves new bytes uninitialised, so a buffer that will be overwritten is
/// not cleared first.
struct BYTES_ALLOCATOR : std::allocator<uint8_t> {
    template <class>
    struct rebind {
        using other = BYTES_ALLOCATOR;
    };
    uint8_t *allocate(size_t count);  // in huge pages, if it is large
    void construct(uint8_t *) {}
    void construct(uint8_t *byte, uint8_t value)
    {
        *byte = value;
    }
};

/// A file's bytes, or those of its expanded image. Assigning BYTES_BUFFER() frees the memory;
/// assigning {} keeps it.
using BYTES_BUFFER = std::vector<uint8_t, BYTES_ALLOCATOR>;

/// The largest file that Bytes_LoadFile takes, in bytes.
constexpr size_t Bytes_MaxFile = size_t{1} << 30;

/// The whole file at `path`. Empty, with a reason (extra/reason.h), if it cannot be opened or read
/// to its end, if it is not a regular file (a pipe, a directory), or if it is larger than
/// Bytes_MaxFile.
BYTES_BUFFER Bytes_LoadFile(const char *path);

/// Calls load(), which fills `file`. If memory runs out `file` is emptied, with a reason: a partial
/// image is not decoded.
template <typename Load>
void Bytes_Guard(BYTES_BUFFER &file, const Load &load)
{
    const bool whole = Reason_Guard([&load] {
        load();
        return true;
    });
    if (!whole)
        file = BYTES_BUFFER();
}

/// While it lives, loads of this path on this thread read one open file: what was detected is what
/// is decoded. If constructed from bytes, loads of its path (by default one that names no file)
/// read those bytes, which must outlive it.
struct BYTES_OPEN {
    explicit BYTES_OPEN(const char *path);
    explicit BYTES_OPEN(std::span<const uint8_t> memory, const char *path = "");
    ~BYTES_OPEN();
    BYTES_OPEN(const BYTES_OPEN &) = delete;
    BYTES_OPEN &operator=(const BYTES_OPEN &) = delete;

    const char *Path;
    const BYTES_OPEN *Before;
    int File;   // below 0: opening failed, or the source is memory
    int Error;  // errno of a failed open
    std::span<const uint8_t> Memory;
    bool IsMemory;
};

/// The source open under this path on this thread, or null.
const BYTES_OPEN *Bytes_FindOpen(const char *path);

/// Size of the opened file in bytes. Nothing, with a reason, if it could not be opened or is not a
/// regular file (a pipe, a directory).
std::optional<uint64_t> Bytes_GetSize(const BYTES_OPEN &from);

/// Reads from `position` until `bytes` is full or the file ends; returns the number of bytes read.
/// Nothing, with a reason, if a read fails.
std::optional<size_t> Bytes_ReadAt(const BYTES_OPEN &from, uint64_t position,
                                   std::span<uint8_t> bytes);

/// Fills `head` with the file's first bytes and returns their number, less for a short file.
/// Nothing, with a reason, if the file cannot be opened or read.
std::optional<size_t> Bytes_LoadHead(const char *path, std::span<uint8_t> head);

/// The byte at `position`, which advances by one. Past the end it is 0 and the position still
/// advances: position > file.size() afterwards means "cut short".
inline uint8_t Bytes_GetByte(std::span<const uint8_t> file, size_t &position)
{
    const size_t at = position++;
    return at < file.size() ? file[at] : uint8_t{0};
}

/// Big-endian number of `count` bytes (1 to 4) at `position`, under the rule of Bytes_GetByte.
inline uint32_t Bytes_GetBig(std::span<const uint8_t> file, size_t &position, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
        value = value << 8 | Bytes_GetByte(file, position);
    return value;
}

/// Little-endian number of `count` bytes (1 to 4) at `position`, under the rule of Bytes_GetByte.
inline uint32_t Bytes_GetLittle(std::span<const uint8_t> file, size_t &position, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
        value |= static_cast<uint32_t>(Bytes_GetByte(file, position)) << (8 * i);
    return value;
}

/// The part of `file` that starts at `position`, at most `count` bytes; empty past the end.
inline std::span<const uint8_t> Bytes_GetSpan(std::span<const uint8_t> file, size_t position,
                                              size_t count = SIZE_MAX)
{
    if (position >= file.size())
        return {};
    const size_t left = file.size() - position;
    return file.subspan(position, count < left ? count : left);
}

#pragma GCC visibility pop
