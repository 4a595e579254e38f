#include "extra/bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Without waiting for somebody to write into it, should it be a pipe.
static int Open(const char *path)
{
    return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

// Reads until `bytes` are full or the file ends or fails; returns how many were read. Nothing when
// it fails at once, as a directory does.
static std::optional<size_t> Read(int file, std::span<uint8_t> bytes)
{
    size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t count = read(file, bytes.data() + size, bytes.size() - size);
        if (count < 0 && size == 0)
            return std::nullopt;
        if (count <= 0)
            break;
        size += static_cast<size_t>(count);
    }
    return size;
}

std::optional<size_t> Bytes_LoadHead(const char *path, std::span<uint8_t> head)
{
    const int file = Open(path);
    if (file < 0)
        return std::nullopt;
    const std::optional<size_t> size = Read(file, head);
    close(file);
    return size;
}

BYTES_BUFFER Bytes_LoadFile(const char *path)
{
    BYTES_BUFFER bytes;
    const int file = Open(path);
    if (file < 0)
        return bytes;
    struct stat status;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
        static_cast<size_t>(status.st_size) <= Bytes_MaxFile) {
        bytes.resize(static_cast<size_t>(status.st_size));
        bytes.resize(Read(file, bytes).value_or(0));
    }
    close(file);
    return bytes;
}
