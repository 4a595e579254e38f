#include "extra/bytes.h"

#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Without waiting for somebody to write into it, should it be a pipe.
static int Open(const char *path)
{
    return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

static thread_local const BYTES_OPEN *opened;

BYTES_OPEN::BYTES_OPEN(const char *path) : Path(path), Before(opened), File(Open(path))
{
    opened = this;
}

BYTES_OPEN::~BYTES_OPEN()
{
    opened = Before;
    if (File >= 0)
        close(File);
}

// Reads from the file's start until `bytes` are full or it ends or fails; returns how many were
// read. Nothing when it fails at once, as a directory does.
static std::optional<size_t> Read(int file, std::span<uint8_t> bytes)
{
    size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t count =
            pread(file, bytes.data() + size, bytes.size() - size, static_cast<off_t>(size));
        if (count < 0 && size == 0)
            return std::nullopt;
        if (count <= 0)
            break;
        size += static_cast<size_t>(count);
    }
    return size;
}

// Calls read(file) with the open file of this path, or opens it for the call.
template <class READ>
static auto WithFile(const char *path, const READ &read)
{
    if (opened && std::strcmp(opened->Path, path) == 0)
        return read(opened->File);
    const BYTES_OPEN file(path);
    return read(file.File);
}

std::optional<size_t> Bytes_LoadHead(const char *path, std::span<uint8_t> head)
{
    return WithFile(path, [head](int file) { return Read(file, head); });
}

BYTES_BUFFER Bytes_LoadFile(const char *path)
{
    return WithFile(path, [](int file) {
        BYTES_BUFFER bytes;
        struct stat status;
        if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
            static_cast<size_t>(status.st_size) <= Bytes_MaxFile) {
            bytes.resize(static_cast<size_t>(status.st_size));
            bytes.resize(Read(file, bytes).value_or(0));
        }
        return bytes;
    });
}
