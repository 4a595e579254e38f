#include "picture/png_filter.h"

#include <bit>
#include <cstring>
#include <type_traits>

namespace
{

// Vectors of sixteen samples, also as four pixels; of eight samples, and wide enough for sums and
// differences. The first lane is first in memory, whatever the byte order within a lane.
using BYTES [[gnu::vector_size(16)]] = uint8_t;
using PIXELS [[gnu::vector_size(16)]] = uint32_t;
using NARROW [[gnu::vector_size(8)]] = uint8_t;
using LANES [[gnu::vector_size(16)]] = int16_t;

template <size_t Step>
using PIXEL = std::conditional_t<
    Step <= 1, uint8_t,
    std::conditional_t<Step <= 2, uint16_t, std::conditional_t<Step <= 4, uint32_t, uint64_t>>>;

template <typename Pixel>
struct MOVED {
    using LANES [[gnu::vector_size(16)]] = Pixel;
};

}  // namespace

// Loads a pixel; steps of 3 and 6 load one or two bytes too many.
template <size_t Step>
static inline BYTES LoadBytes(const uint8_t *from)
{
    PIXEL<Step> pixel;
    std::memcpy(&pixel, from, sizeof pixel);
    return reinterpret_cast<BYTES>(typename MOVED<PIXEL<Step>>::LANES{pixel});
}

template <size_t Step>
static inline LANES LoadPixel(const uint8_t *from)
{
    // Zero-extends each sample to a 16-bit lane.
    constexpr bool little = std::endian::native == std::endian::little;
    constexpr int even = little ? 0 : 16, odd = 16 - even;
    return reinterpret_cast<LANES>(__builtin_shufflevector(
        LoadBytes<Step>(from), BYTES{}, even, odd, even + 1, odd + 1, even + 2, odd + 2, even + 3,
        odd + 3, even + 4, odd + 4, even + 5, odd + 5, even + 6, odd + 6, even + 7, odd + 7));
}

// Stores a pixel of `Step` bytes. If Out is larger, RGB becomes opaque RGBA.
template <size_t Step, size_t Out>
static inline void StoreBytes(uint8_t *to, BYTES bytes)
{
    if constexpr (Step < Out)
        bytes |= BYTES{0, 0, 0, 255};
    const PIXEL<Out> pixel = reinterpret_cast<typename MOVED<PIXEL<Out>>::LANES>(bytes)[0];
    std::memcpy(to, &pixel, sizeof pixel);
}

template <size_t Step, size_t Out>
static inline void StorePixel(uint8_t *to, LANES pixel)
{
    NARROW bytes = __builtin_convertvector(pixel, NARROW);
    if constexpr (Step < Out)
        bytes |= NARROW{0, 0, 0, 255};
    std::memcpy(to, &bytes, sizeof(PIXEL<Out>));
}

static inline LANES AddBytes(LANES a, LANES b)
{
    return reinterpret_cast<LANES>(reinterpret_cast<BYTES>(a) + reinterpret_cast<BYTES>(b));
}

// Loads four pixels of RGBA, or of RGB without their alphas.
template <size_t Step>
static inline BYTES LoadFour(const uint8_t *from)
{
    PIXELS pixels;
    for (size_t i = 0; i < 4; i++) {
        uint32_t pixel;
        std::memcpy(&pixel, from + i * Step, sizeof pixel);
        pixels[i] = pixel;
    }
    return reinterpret_cast<BYTES>(pixels);
}

template <size_t Step>
static inline void StoreFour(uint8_t *to, BYTES bytes)
{
    if constexpr (Step < 4)
        bytes |= BYTES{0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255};
    std::memcpy(to, &bytes, sizeof bytes);
}

// The inverse filters. Input pixels have `Step` bytes, output pixels `Out` bytes, as has `prior`,
// the line above.
template <size_t Step, size_t Out>
static void UnNone(const uint8_t *in, uint8_t *out, size_t pixels)
{
    if constexpr (Step == Out) {
        std::memcpy(out, in, pixels * Step);
    } else {
        size_t i = 0;
        for (; i + 4 <= pixels; i += 4)
            StoreFour<Step>(out + i * Out, LoadFour<Step>(in + i * Step));
        for (; i < pixels; i++)
            StoreBytes<Step, Out>(out + i * Out, LoadBytes<Step>(in + i * Step));
    }
}

template <size_t Step, size_t Out>
static void UnSub(const uint8_t *in, uint8_t *out, size_t pixels)
{
    BYTES a{};
    size_t i = 0;
    if constexpr (Out == 4) {
        PIXELS last{};  // the pixel before these four, four times
        for (; i + 4 <= pixels; i += 4) {
            BYTES four = LoadFour<Step>(in + i * Step);
            const auto add = [&four](PIXELS more) {
                four += reinterpret_cast<BYTES>(more);
                return reinterpret_cast<PIXELS>(four);
            };
            const PIXELS one = reinterpret_cast<PIXELS>(four);
            const PIXELS two = add(__builtin_shufflevector(PIXELS{}, one, 0, 4, 5, 6));
            add(__builtin_shufflevector(PIXELS{}, two, 0, 1, 4, 5));
            const PIXELS all = add(last);
            StoreFour<Step>(out + i * Out, four);
            last = __builtin_shufflevector(all, all, 3, 3, 3, 3);
        }
        a = reinterpret_cast<BYTES>(last);
    }
    for (; i < pixels; i++) {
        a += LoadBytes<Step>(in + i * Step);
        StoreBytes<Step, Out>(out + i * Out, a);
    }
}

template <size_t Step, size_t Out>
static void UnUp(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t pixels)
{
    if constexpr (Step == Out) {
        for (size_t i = 0; i < pixels * Step; i++)
            out[i] = static_cast<uint8_t>(in[i] + prior[i]);
    } else {
        size_t i = 0;
        for (; i + 4 <= pixels; i += 4)
            StoreFour<Step>(out + i * Out,
                            LoadFour<Step>(in + i * Step) + LoadFour<Out>(prior + i * Out));
        for (; i < pixels; i++)
            StoreBytes<Step, Out>(out + i * Out,
                                  LoadBytes<Step>(in + i * Step) + LoadBytes<Out>(prior + i * Out));
    }
}

template <size_t Step, size_t Out>
static void UnAverage(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t pixels)
{
    LANES a{};
    for (size_t i = 0; i < pixels; i++) {
        a = AddBytes((a + LoadPixel<Out>(prior + i * Out)) >> 1, LoadPixel<Step>(in + i * Step));
        StorePixel<Step, Out>(out + i * Out, a);
    }
}

// Adds to x the Paeth predictor: that of a, b, c which is nearest to a + b - c. With t = 3c - a - b
// it is c if t lies between a and b, the greater of a and b if t lies below both, and the lesser if
// t lies above both.
static inline LANES AddPaeth(LANES a, LANES b, LANES c, LANES x)
{
    const LANES t = (3 * c - b) - a;
    const LANES low = a < b ? a : b, high = a < b ? b : a;
    const LANES belowHigh = high > t, aboveLow = t > low;
    return (AddBytes(high, x) & ~aboveLow) | (AddBytes(low, x) & ~belowHigh) |
           (AddBytes(c, x) & aboveLow & belowHigh);
}

template <size_t Step, size_t Out>
static void UnPaeth(const uint8_t *in, const uint8_t *prior, uint8_t *out, size_t pixels)
{
    LANES a{}, c{};
    for (size_t i = 0; i < pixels; i++) {
        const LANES b = LoadPixel<Out>(prior + i * Out);
        a = AddPaeth(a, b, c, LoadPixel<Step>(in + i * Step));
        StorePixel<Step, Out>(out + i * Out, a);
        c = b;
    }
}

// Two lines at once, the lower one one pixel after the upper: each pixel depends on its left
// neighbour, and the two chains of dependencies run in parallel.
template <size_t Step>
static void UnPaethTwo(const uint8_t *in, const uint8_t *lowerIn, const uint8_t *prior,
                       uint8_t *out, uint8_t *lowerOut, size_t pixels)
{
    LANES a{}, c{}, lowerA{}, lowerC{};
    const auto lower = [&](LANES b, size_t i) {
        lowerA = AddPaeth(lowerA, b, lowerC, LoadPixel<Step>(lowerIn + i * Step));
        StorePixel<Step, 4>(lowerOut + i * 4, lowerA);
        lowerC = b;
    };
    for (size_t i = 0; i < pixels; i++) {
        const LANES left = a, b = LoadPixel<4>(prior + i * 4);
        a = AddPaeth(left, b, c, LoadPixel<Step>(in + i * Step));
        StorePixel<Step, 4>(out + i * 4, a);
        c = b;
        if (i > 0)
            lower(left, i - 1);
    }
    lower(a, pixels - 1);
}

template <size_t Step, size_t Out = Step>
static void PNG_UnFilter(uint8_t filter, const uint8_t *in, const uint8_t *prior, uint8_t *out,
                         size_t pixels)
{
    switch (filter) {
    case 0:
        UnNone<Step, Out>(in, out, pixels);
        break;
    case 1:
        UnSub<Step, Out>(in, out, pixels);
        break;
    case 2:
        UnUp<Step, Out>(in, prior, out, pixels);
        break;
    case 3:
        UnAverage<Step, Out>(in, prior, out, pixels);
        break;
    case 4:
        UnPaeth<Step, Out>(in, prior, out, pixels);
        break;
    default:  // unknown filter
        std::memset(out, 0, pixels * Out);
        break;
    }
}

PNG_UNFILTER PNG_UnFilterOf(size_t step)
{
    switch (step) {
    case 1:
        return PNG_UnFilter<1>;
    case 2:
        return PNG_UnFilter<2>;
    case 3:
        return PNG_UnFilter<3, 4>;
    case 4:
        return PNG_UnFilter<4>;
    case 6:
        return PNG_UnFilter<6>;
    default:
        return PNG_UnFilter<8>;
    }
}

PNG_UNPAETHTWO PNG_UnPaethTwoOf(size_t step)
{
    return step == 3 ? UnPaethTwo<3> : UnPaethTwo<4>;
}
