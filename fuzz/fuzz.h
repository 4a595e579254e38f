// For fuzz targets: bytes as a file that the modules under test can open by name, and the
// sanitizer's settings.
#pragma once

#include <cstdint>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "extra/bytes.h"

/// Path of a file in memory that holds these bytes until the next call. Where modules are to read
/// without system calls, BYTES_OPEN is quicker.
inline std::string FuzzFile(const uint8_t *data, size_t size)
{
    static const int file = memfd_create("fuzz", MFD_CLOEXEC);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
        return {};
    return "/proc/self/fd/" + std::to_string(file);
}

/// AddressSanitizer keeps freed memory for so long; with its default of 256 MB, most of the time
/// would go into fresh pages.
extern "C" const char *__asan_default_options()
{
    return "quarantine_size_mb=2";
}
