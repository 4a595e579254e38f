#include "extra/bytes.h"

#include <cstdio>
#include <memory>

#include <sys/stat.h>

std::vector<uint8_t> Bytes_LoadFile(const char *path)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path, "rb"), std::fclose);
    struct stat status;
    if (!file || fstat(fileno(file.get()), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<size_t>(status.st_size) > Bytes_MaxFile)
        return {};
    std::vector<uint8_t> bytes(static_cast<size_t>(status.st_size));
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    return bytes;
}
