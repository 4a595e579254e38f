// A source of its own, so that programs that do not use it are not linked with the run-time choice
// of processor variants.
#include <cstring>

#include "extra/lanes.h"
#include "picture/pixels.h"

// Converts triples, four at a time by one 16-byte shuffle, while 16 bytes are left; returns how
// many.
template <bool BlueFirst>
[[gnu::always_inline]] static inline size_t ShuffleTriples(const uint8_t *samples, size_t count,
                                                           uint8_t *out)
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

// Not a template: newer clangs compile none for several processors.
EXTRA_LANES static size_t TriplesInLanes(const uint8_t *samples, size_t count, bool blueFirst,
                                         uint8_t *out)
{
    return blueFirst ? ShuffleTriples<true>(samples, count, out)
                     : ShuffleTriples<false>(samples, count, out);
}

template <bool BlueFirst>
static void FromTriples(const uint8_t *samples, size_t count, uint8_t *out)
{
    const auto put = [](uint8_t *to, uint32_t pixel) {
        Pixels_Put(to, (BlueFirst ? Pixels_SwapRedBlue(pixel) : pixel) | Pixels_Pack(0, 0, 0, 255));
    };
    size_t i = TriplesInLanes(samples, count, BlueFirst, out);
    for (; i + 1 < count; i++)  // the fourth byte read belongs to the next triple
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
