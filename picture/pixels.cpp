#include "picture/pixels.h"

#include <cstdlib>

#include "extra/lanes.h"
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

// Four triples at a time by one shuffle of sixteen bytes, as long as there are as many; returns how
// many that were.
template <bool BlueFirst>
EXTRA_LANES static size_t TriplesInLanes(const uint8_t *samples, size_t count, uint8_t *out)
{
    using LANES [[gnu::vector_size(16)]] = uint8_t;
    constexpr int r = BlueFirst ? 2 : 0, b = 2 - r;
    constexpr LANES opaque = {0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255};
    size_t i = 0;
    for (; 3 * (count - i) >= sizeof(LANES); i += 4) {
        LANES lanes;
        std::memcpy(&lanes, samples + 3 * i, sizeof lanes);
        lanes = __builtin_shufflevector(lanes, lanes, r, 1, b, -1, r + 3, 4, b + 3, -1, r + 6, 7,
                                        b + 6, -1, r + 9, 10, b + 9, -1);
        lanes |= opaque;
        std::memcpy(out + 4 * i, &lanes, sizeof lanes);
    }
    return i;
}

template <bool BlueFirst>
static void FromTriples(const uint8_t *samples, size_t count, uint8_t *out)
{
    const auto put = [](uint8_t *to, uint32_t pixel) {
        Pixels_Put(to, (BlueFirst ? Pixels_SwapRedBlue(pixel) : pixel) | Pixels_Pack(0, 0, 0, 255));
    };
    size_t i = TriplesInLanes<BlueFirst>(samples, count, out);
    for (; i + 1 < count; i++)  // the fourth byte is the next triple's first
        put(out + 4 * i, Pixels_Get(samples + 3 * i));
    if (count > 0) {
        const uint8_t *last = samples + 3 * (count - 1);
        put(out + 4 * (count - 1), Pixels_Pack(last[0], last[1], last[2], 255));
    }
}

void Pixels_FromTriples(std::span<const uint8_t> samples, bool blueFirst, uint8_t *out)
{
    if (blueFirst)
        FromTriples<true>(samples.data(), samples.size() / 3, out);
    else
        FromTriples<false>(samples.data(), samples.size() / 3, out);
}
