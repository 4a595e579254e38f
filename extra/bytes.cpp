#include "extra/bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Without waiting for somebody to write into it, should it be a pipe.
static int Open(const char *path)
{
    return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

// Reads until `bytes` are full or the file ends or fails; returns how many were read.
static size_t Read(int file, std::span<uint8_t> bytes)
{
    size_t size = 0;
    ssize_t count = 1;
    while (size < bytes.size() && count > 0) {
        count = read(file, bytes.data() + size, bytes.size() - size);
        size += count > 0 ? static_cast<size_t>(count) : 0;
    }
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
        bytes.resize(Read(file, bytes));
    }
    close(file);
    return bytes;
}
