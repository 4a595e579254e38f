// For fuzz targets: bytes as a file that the modules under test can open by name.
#pragma once

#include <cstdint>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

/// Path of a file in memory that holds these bytes until the next call.
inline std::string FuzzFile(const uint8_t *data, size_t size)
{
    static const int file = memfd_create("fuzz", MFD_CLOEXEC);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
        return {};
    return "/proc/self/fd/" + std::to_string(file);
}
