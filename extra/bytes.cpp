#include "extra/bytes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "extra/reason.h"

// Without waiting for somebody to write into it, should it be a pipe.
static int Open(const char *path)
{
    int file;
    do
        file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    while (file < 0 && errno == EINTR);
    return file;
}

static constinit thread_local const BYTES_OPEN *opened = nullptr;

BYTES_OPEN::BYTES_OPEN(const char *path)
    : Path(path), Before(opened), File(Open(path)), Error(File < 0 ? errno : 0), IsMemory(false)
{
    opened = this;
}

BYTES_OPEN::BYTES_OPEN(std::span<const uint8_t> memory)
    : Path(""), Before(opened), File(-1), Error(0), Memory(memory), IsMemory(true)
{
    opened = this;
}

BYTES_OPEN::~BYTES_OPEN()
{
    opened = Before;
    if (File >= 0)
        close(File);
}

// Reads from the file's start until `bytes` are full or it ends; returns how many were read.
// Nothing, with a reason, when a read fails, as a directory's does.
static std::optional<size_t> Read(const BYTES_OPEN &from, std::span<uint8_t> bytes)
{
    if (from.IsMemory) {
        const size_t count = std::min(bytes.size(), from.Memory.size());
        std::copy_n(from.Memory.begin(), count, bytes.begin());
        return count;
    }
    size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t count =
            pread(from.File, bytes.data() + size, bytes.size() - size, static_cast<off_t>(size));
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

// Bytes of what was opened. Nothing, with a reason, where that has no size of its own or too many.
static std::optional<size_t> SizeOf(const BYTES_OPEN &from)
{
    if (from.IsMemory)
        return from.Memory.size();
    struct stat status;
    if (fstat(from.File, &status) != 0) {
        Reason_Set("cannot be read: %s", std::strerror(errno));
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        Reason_Set(S_ISDIR(status.st_mode) ? "a directory" : "not a regular file");
        return std::nullopt;
    }
    if (static_cast<uint64_t>(status.st_size) > Bytes_MaxFile) {
        Reason_Set("more than %zu MiB", Bytes_MaxFile >> 20);
        return std::nullopt;
    }
    return static_cast<size_t>(status.st_size);
}

// Calls read(source) with what is open under this path, or opens it for the call. Gives an empty
// result, with a reason, where it cannot be opened.
template <typename Reader>
static auto WithFile(const char *path, const Reader &read)
    -> decltype(read(std::declval<const BYTES_OPEN &>()))
{
    if (!opened || std::strcmp(opened->Path, path) != 0) {
        const BYTES_OPEN file(path);
        return WithFile(path, read);
    }
    if (opened->Error != 0) {
        Reason_Set("cannot be opened: %s", std::strerror(opened->Error));
        return {};
    }
    return read(*opened);
}

std::optional<size_t> Bytes_LoadHead(const char *path, std::span<uint8_t> head)
{
    return WithFile(path, [head](const BYTES_OPEN &from) { return Read(from, head); });
}

BYTES_BUFFER Bytes_LoadFile(const char *path)
{
    return WithFile(path, [](const BYTES_OPEN &from) {
        BYTES_BUFFER bytes;
        if (const auto size = SizeOf(from)) {
            bytes.resize(*size);
            bytes.resize(Read(from, bytes).value_or(0));
        }
        return bytes;
    });
}
