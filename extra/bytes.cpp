#include "extra/bytes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "extra/pages.h"
#include "extra/reason.h"

#ifdef _WIN32
constexpr int Bytes_OpenFlags = O_RDONLY | O_BINARY | O_NOINHERIT;
static int pread(int file, void *bytes, size_t count, off_t position)
{
    constexpr size_t most = size_t{1} << 30;
    if (lseek(file, position, SEEK_SET) < 0)
        return -1;
    return read(file, bytes, static_cast<unsigned>(std::min(count, most)));
}
#else
// O_NONBLOCK: opening a pipe must not wait for a writer.
constexpr int Bytes_OpenFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
#endif

uint8_t *BYTES_ALLOCATOR::allocate(size_t count)
{
    uint8_t *const block = std::allocator<uint8_t>::allocate(count);
    Pages_Advise(block, count);
    return block;
}

static int Open(const char *path)
{
    int file;
    do
        file = open(path, Bytes_OpenFlags);
    while (file < 0 && errno == EINTR);
    return file;
}

static constinit thread_local const BYTES_OPEN *opened = nullptr;

BYTES_OPEN::BYTES_OPEN(const char *path)
    : Path(path), Before(opened), File(Open(path)), Error(File < 0 ? errno : 0), IsMemory(false)
{
    opened = this;
}

BYTES_OPEN::BYTES_OPEN(std::span<const uint8_t> memory, const char *path)
    : Path(path), Before(opened), File(-1), Error(0), Memory(memory), IsMemory(true)
{
    opened = this;
}

BYTES_OPEN::~BYTES_OPEN()
{
    opened = Before;
    if (File >= 0)
        close(File);
}

const BYTES_OPEN *Bytes_FindOpen(const char *path)
{
    return opened && std::strcmp(opened->Path, path) == 0 ? opened : nullptr;
}

std::optional<size_t> Bytes_ReadAt(const BYTES_OPEN &from, uint64_t position,
                                   std::span<uint8_t> bytes)
{
    if (from.IsMemory) {
        const size_t start = std::min<uint64_t>(position, from.Memory.size());
        const size_t count = std::min(bytes.size(), from.Memory.size() - start);
        if (count != 0)
            std::memcpy(bytes.data(), from.Memory.data() + start, count);
        return count;
    }
    size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t count = pread(from.File, bytes.data() + size, bytes.size() - size,
                                    static_cast<off_t>(position + size));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            Reason_Set("cannot be read: %s", std::strerror(errno));
            return std::nullopt;
        }
        if (count == 0)
            break;
        size += static_cast<size_t>(count);
    }
    return size;
}

std::optional<uint64_t> Bytes_GetSize(const BYTES_OPEN &from)
{
    if (from.IsMemory)
        return from.Memory.size();
    if (from.Error != 0) {
        Reason_Set("cannot be opened: %s", std::strerror(from.Error));
        return std::nullopt;
    }
    struct stat status;
    if (fstat(from.File, &status) != 0) {
        Reason_Set("cannot be read: %s", std::strerror(errno));
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        Reason_Set(S_ISDIR(status.st_mode) ? "a directory" : "not a regular file");
        return std::nullopt;
    }
    return static_cast<uint64_t>(status.st_size);
}

// Calls read(source) with the file already open under this path, or opens it for the call. Gives an
// empty result, with a reason, if it cannot be opened.
template <typename Reader>
static auto WithFile(const char *path, const Reader &read)
    -> decltype(read(std::declval<const BYTES_OPEN &>()))
{
    const BYTES_OPEN *from = Bytes_FindOpen(path);
    if (!from) {
        const BYTES_OPEN file(path);
        return WithFile(path, read);
    }
    if (from->Error != 0) {
        Reason_Set("cannot be opened: %s", std::strerror(from->Error));
        return {};
    }
    return read(*from);
}

std::optional<size_t> Bytes_LoadHead(const char *path, std::span<uint8_t> head)
{
    return WithFile(path, [head](const BYTES_OPEN &from) { return Bytes_ReadAt(from, 0, head); });
}

BYTES_BUFFER Bytes_LoadFile(const char *path)
{
    return WithFile(path, [](const BYTES_OPEN &from) {
        BYTES_BUFFER bytes;
        const auto size = Bytes_GetSize(from);
        if (size && *size > Bytes_MaxFile && !from.IsMemory)
            Reason_Set("more than %zu MiB", Bytes_MaxFile >> 20);
        else if (size) {
            bytes = BYTES_BUFFER(*size);
            const size_t read = Bytes_ReadAt(from, 0, bytes).value_or(0);
            bytes.erase(bytes.begin() + static_cast<ptrdiff_t>(read), bytes.end());
        }
        return bytes;
    });
}
