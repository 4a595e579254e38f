#include "picture/pixels.h"

#include <algorithm>
#include <cstdlib>

#include "extra/pages.h"
#include "extra/reason.h"

constinit thread_local uint8_t Picture_Rules = PICTURE_RULES_FRAMEWORK;
size_t Picture_MaxBytes = size_t{512} << 20;

// Bytes of a picture; 0, with a reason, for invalid sizes.
static size_t PixelBytes(uint64_t width, uint64_t height)
{
    if (width == 0 || height == 0) {
        Reason_Set("a side of 0 pixels");
        return 0;
    }
    if (height > Picture_MaxBytes / 4 / width) {
        Reason_Set("%llu x %llu pixels are more than %zu MiB",
                   static_cast<unsigned long long>(width), static_cast<unsigned long long>(height),
                   Picture_MaxBytes >> 20);
        return 0;
    }
    return static_cast<size_t>(width * height * 4);
}

bool Picture_Believes(const PICTURE_CLAIM &claim)
{
    const uint64_t bytes = PixelBytes(claim.Width, claim.Height);
    if (bytes == 0)
        return false;
    const bool fills = bytes / 4 / Picture_MinShare <= claim.Held;
    const uint64_t memory = bytes + claim.Beside;
    const uint64_t earned = memory - std::min(memory, Picture_FreeMemory);
    if (fills && earned / Picture_MemoryPerByte <= claim.FileBytes)
        return true;
    Reason_Set(fills ? "%llu bytes are not worth the memory of %llu x %llu pixels"
                     : "%llu bytes cannot hold %llu x %llu pixels",
               static_cast<unsigned long long>(claim.FileBytes),
               static_cast<unsigned long long>(claim.Width),
               static_cast<unsigned long long>(claim.Height));
    return false;
}

static uint8_t *Allocated(void *pixels, size_t bytes)
{
    if (!pixels)
        Reason_Set("out of memory");
    return static_cast<uint8_t *>(Pages_Advise(pixels, bytes));
}

uint8_t *Picture_NewPixels(uint32_t width, uint32_t height)
{
    const size_t bytes = PixelBytes(width, height);
    return bytes != 0 ? Allocated(std::calloc(bytes, 1), bytes) : nullptr;
}

uint8_t *Picture_NewUnsetPixels(uint32_t width, uint32_t height)
{
    const size_t bytes = PixelBytes(width, height);
    return bytes != 0 ? Allocated(std::malloc(bytes), bytes) : nullptr;
}
