#include "picture/pixels.h"

#include <cstdlib>

#include "extra/reason.h"

constinit thread_local uint8_t Picture_Rules = PICTURE_RULES_FRAMEWORK;
size_t Picture_MaxBytes = size_t{1} << 30;

// Bytes of a picture; 0, with a reason, for one that cannot be.
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

bool Picture_Believes(uint64_t width, uint64_t height, uint64_t fileBytes, uint64_t pixelsPerByte)
{
    const size_t bytes = PixelBytes(width, height);
    if (bytes == 0)
        return false;
    if (bytes / 4 / Picture_MinShare / pixelsPerByte > fileBytes) {
        Reason_Set("%llu bytes cannot hold %llu x %llu pixels",
                   static_cast<unsigned long long>(fileBytes),
                   static_cast<unsigned long long>(width), static_cast<unsigned long long>(height));
        return false;
    }
    return true;
}

static uint8_t *Allocated(void *pixels)
{
    if (!pixels)
        Reason_Set("out of memory");
    return static_cast<uint8_t *>(pixels);
}

uint8_t *Picture_NewPixels(uint32_t width, uint32_t height)
{
    const size_t bytes = PixelBytes(width, height);
    return bytes != 0 ? Allocated(std::calloc(bytes, 1)) : nullptr;
}

uint8_t *Picture_NewUnsetPixels(uint32_t width, uint32_t height)
{
    const size_t bytes = PixelBytes(width, height);
    return bytes != 0 ? Allocated(std::malloc(bytes)) : nullptr;
}
