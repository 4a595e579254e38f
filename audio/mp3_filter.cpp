#include "audio/mp3_filter.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "audio/mp3_window.h"
#include "extra/lanes.h"

// Loops over subbands and slots are written for compilers to vectorise eight lanes wide: AVX2 has a
// fast multiplication of 32 by 32 bits.

namespace
{

// ISO/IEC 11172-3, table 3-B.9: alias reduction coefficients, ci as printed there.
struct MP3_BUTTERFLY {
    int32_t Cosine, Sine;  // cs and ca, 31 fractional bits
};

}  // namespace

constexpr auto MP3_Butterflies = [] {
    constexpr std::array<double, 8> c = {-0.6,   -0.535, -0.33,   -0.185,
                                         -0.095, -0.041, -0.0142, -0.0037};
    std::array<MP3_BUTTERFLY, 8> table{};
    for (size_t i = 0; i < table.size(); i++)
        table[i] = {MP3_Constant(1 / MP3_Root(1 + c[i] * c[i]), 31),
                    MP3_Constant(c[i] / MP3_Root(1 + c[i] * c[i]), 31)};
    return table;
}();

// Arithmetic on lanes. Shifts are unsigned: the bits shifted in from above are truncated
// afterwards.
[[gnu::always_inline]] static inline int64_t Product(MP3_FIXED a, int32_t b)
{
    return int64_t{static_cast<int32_t>(a)} * b;
}

template <int Bits>
[[gnu::always_inline]] static inline MP3_FIXED Round(int64_t product)
{
    return static_cast<MP3_FIXED>(static_cast<uint64_t>(product + (1 << (Bits - 1))) >> Bits);
}

[[gnu::always_inline]] static inline MP3_FIXED Half(MP3_FIXED a)
{
    return static_cast<MP3_FIXED>(static_cast<int32_t>(a) >> 1);
}

// Constants of up to 16 have 27 fractional bits, those of up to 1 have 31.
[[gnu::always_inline]] static inline MP3_FIXED Scale(MP3_FIXED a, int32_t b)
{
    return Round<27>(Product(a, b));
}

[[gnu::always_inline]] static inline MP3_FIXED Dot(MP3_FIXED a, int32_t b, MP3_FIXED c, int32_t d)
{
    return Round<31>(Product(a, b) + Product(c, d));
}

using WORDS [[gnu::vector_size(16)]] = uint32_t;

// Transposes 4 by 4 numbers from rows `stride` apart.
[[gnu::always_inline]] static inline std::array<WORDS, 4> Transpose(const MP3_FIXED *from,
                                                                    size_t stride)
{
    std::array<WORDS, 4> v, a;
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; i++)
        std::memcpy(&v[i], from + i * stride, sizeof v[i]);
    for (size_t i = 0; i < 2; i++) {
        a[i] = __builtin_shufflevector(v[2 * i], v[2 * i + 1], 0, 4, 1, 5);
        a[i + 2] = __builtin_shufflevector(v[2 * i], v[2 * i + 1], 2, 6, 3, 7);
    }
    for (size_t i = 0; i < 4; i += 2) {
        v[i] = __builtin_shufflevector(a[i], a[i + 1], 0, 1, 4, 5);
        v[i + 1] = __builtin_shufflevector(a[i], a[i + 1], 2, 3, 6, 7);
    }
    return v;
}

[[gnu::always_inline]] static inline void Transpose(const MP3_FIXED *from, size_t fromStride,
                                                    MP3_FIXED *to, size_t toStride)
{
    const std::array<WORDS, 4> rows = Transpose(from, fromStride);
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; i++)
        std::memcpy(to + i * toStride, &rows[i], sizeof rows[i]);
}

// First slots of the vectors that cover 18.
constexpr std::array<size_t, 5> MP3_SlotVectors = {0, 4, 8, 12, 14};

static void StoreSlots(const MP3_SPECTRUM &slots, MP3_FILTER &filter, size_t first)
{
    for (size_t s = 0; s < MP3_Subbands; s += 4)
        for (const size_t t : MP3_SlotVectors)
            Transpose(&slots[t][s], MP3_Subbands, &filter.Samples[s][first + t], MP3_Columns);
}

void MP3_Arrange(const std::array<MP3_FIXED, MP3_Subbands * MP3_Slots> &lines,
                 MP3_SPECTRUM &spectrum)
{
    for (size_t s = 0; s < MP3_Subbands; s += 4)
        for (const size_t k : MP3_SlotVectors)
            Transpose(&lines[s * MP3_Slots + k], MP3_Slots, &spectrum[k][s], MP3_Subbands);
}

// 1 / (2 cos((2k+1) pi / 2n)) for k = 0 to n/2 - 1: factors of the cosine transforms, n = N.
template <size_t N>
constexpr auto MP3_Secants = [] {
    std::array<int32_t, N / 2> table{};
    for (size_t k = 0; k < table.size(); k++)
        table[k] =
            MP3_Constant(0.5 / MP3_Cosine(MP3_Pi * static_cast<double>(2 * k + 1) / (2 * N)), 27);
    return table;
}();

// Transforms of 3 values: out[m] = sum of in[k] cos(k (2m+1) pi / 2n) for n = 3.
[[gnu::always_inline]] static inline void CosineSums(std::array<MP3_FIXED, 3> &x)
{
    constexpr int32_t c30 = MP3_Constant(MP3_Cosine(MP3_Pi / 6), 31);
    const MP3_FIXED even = x[0] + Half(x[2]), odd = Round<31>(Product(x[1], c30));
    x = {even + odd, x[0] - x[2], even - odd};
}

// The same for n = 9. Even k are symmetric in m, odd k antisymmetric. Of three cosines 120 degrees
// apart one is, up to its sign, the sum of the others, so each triple takes two products.
[[gnu::always_inline]] static inline void CosineSums(std::array<MP3_FIXED, 9> &x)
{
    constexpr auto cosine = [](int degrees) {
        return MP3_Constant(MP3_Cosine(MP3_Pi / 180 * degrees), 31);
    };
    constexpr int32_t c10 = cosine(10), c20 = cosine(20), c30 = cosine(30), c40 = cosine(40),
                      c50 = cosine(50), c70 = cosine(70), c80 = cosine(80);
    const MP3_FIXED a = x[2] + x[4], b = x[8] - x[4], c = x[0] + Half(x[6]), d = x[0] - x[6],
                    e = x[2] - x[4] - x[8];
    const std::array<MP3_FIXED, 4> even = {c + Dot(a, c20, b, c80), d + Half(e),
                                           c + Dot(b, c40, a, -c80), c - Dot(a, c40, b, c20)};
    const MP3_FIXED f = x[1] + x[5], g = x[7] - x[5], h = Round<31>(Product(x[3], c30));
    const std::array<MP3_FIXED, 4> odd = {Dot(f, c10, g, c70) + h,
                                          Round<31>(Product(x[1] - x[5] - x[7], c30)),
                                          Dot(f, c50, g, c10) - h, Dot(f, c70, g, -c50) - h};
    x[4] = d - e;
#pragma GCC unroll 4
    for (size_t m = 0; m < 4; m++) {
        x[m] = even[m] + odd[m];
        x[8 - m] = even[m] - odd[m];
    }
}

// out[m] = 2 cos((2m+1) pi / 4n) times the sum of in[k] cos((2k+1) (2m+1) pi / 4n), for n = 6, 18.
//
// 2 cos a cos (2k+1)a = cos 2ka + cos (2k+2)a turns the sum into one of y[k] cos 2ka with y[k] =
// in[k] + in[k-1]. The even k are a cosine sum of half the length; so are the odd ones after the
// same step once more, except for the factor of that step.
template <size_t N>
[[gnu::always_inline]] static inline void CosineTransform4(std::array<MP3_FIXED, N> &x)
{
    std::array<MP3_FIXED, N / 2> even, odd;
    even[0] = x[0];
    odd[0] = x[1] + x[0];
#pragma GCC unroll 8
    for (size_t l = 1; l < N / 2; l++) {
        even[l] = x[2 * l] + x[2 * l - 1];
        odd[l] = x[2 * l + 1] + x[2 * l] + x[2 * l - 1] + x[2 * l - 2];
    }
    CosineSums(even);
    CosineSums(odd);
#pragma GCC unroll 9
    for (size_t m = 0; m < N / 2; m++) {
        const MP3_FIXED o = Scale(odd[m], MP3_Secants<N>[m]);
        x[m] = even[m] + o;
        x[N - 1 - m] = even[m] - o;
    }
}

// The hybrid synthesis of a granule turns 576 lines into 18 samples of each of the 32 subbands. An
// inverse MDCT takes each subband's 18 lines to 36 values, which are windowed; the first 18 are
// added to the last 18 of the granule before, and the new last 18 are kept in Overlap. The
// polyphase filter bank (MP3_Synthesis) then turns each slot, one sample of every subband, into 32
// samples of sound. Long blocks resolve frequency, short ones (three transforms of 6 lines) resolve
// time. The alias reduction before undoes the crosstalk of neighbouring subbands, the frequency
// inversion after it (odd samples of odd subbands are negated) the mirrored order of the odd
// subbands.
//
// The IMDCT's 2n outputs are those of CosineTransform4 mirrored: its last half forward, then
// everything backward and negated, then its first half forward and negated.
template <size_t N>
constexpr size_t Mirrored(size_t i)
{
    return i < N / 2 ? N / 2 + i : i < N * 3 / 2 ? N * 3 / 2 - 1 - i : i - N * 3 / 2;
}

// Window of a block type, including the mirroring's sign and the factor that CosineTransform4
// leaves to divide by. ISO/IEC 11172-3, 2.4.3.4.10.3.
template <size_t N>
constexpr auto MP3_BlockWindow(MP3_BLOCK block)
{
    std::array<int32_t, 2 * N> table{};
    for (size_t i = 0; i < 2 * N; i++) {
        const auto sine = [](size_t at, size_t length) {
            return MP3_Sine(MP3_Pi / static_cast<double>(length) * (static_cast<double>(at) + 0.5));
        };
        double window = sine(i, 2 * N);
        if (block == MP3_START && i >= 18)
            window = i < 24 ? 1 : i < 30 ? sine(i - 18, 12) : 0;
        if (block == MP3_STOP && i < 18)
            window = i < 6 ? 0 : i < 12 ? sine(i - 6, 12) : 1;
        const double angle = MP3_Pi / (4 * N) * static_cast<double>(2 * Mirrored<N>(i) + 1);
        table[i] = MP3_Constant((i < N / 2 ? 0.5 : -0.5) * window / MP3_Cosine(angle), 27);
    }
    return table;
}

constexpr std::array<std::array<int32_t, 36>, 4> MP3_LongWindows = {MP3_BlockWindow<18>(MP3_NORMAL),
                                                                    MP3_BlockWindow<18>(MP3_START),
                                                                    {},
                                                                    MP3_BlockWindow<18>(MP3_STOP)};
constexpr std::array<int32_t, 12> MP3_ShortWindow = MP3_BlockWindow<6>(MP3_SHORT);

// All bits set in odd subbands, whose odd samples are negated.
constexpr auto MP3_OddSubbands = [] {
    std::array<MP3_FIXED, MP3_Subbands> mask{};
    for (size_t s = 1; s < mask.size(); s += 2)
        mask[s] = ~MP3_FIXED{0};
    return mask;
}();

// Adds the previous granule's overlap to slot t of subband s, with the frequency inversion.
[[gnu::always_inline]] static inline MP3_FIXED Overlapped(const MP3_SPECTRUM &overlap, size_t t,
                                                          size_t s, MP3_FIXED value)
{
    value += overlap[t][s];
    return t % 2 == 0 ? value : (value ^ MP3_OddSubbands[s]) - MP3_OddSubbands[s];
}

EXTRA_LANES static void ReduceAliases(MP3_SPECTRUM &lines, size_t boundaries)
{
    for (size_t i = 0; i < 8; i++) {
        const auto [cosine, sine] = MP3_Butterflies[i];
        MP3_FIXED *__restrict up = lines[17 - i].data(), *__restrict down = lines[i].data() + 1;
        for (size_t s = 0; s < boundaries; s++) {
            const MP3_FIXED u = up[s], d = down[s];
            up[s] = Dot(u, cosine, d, -sine);
            down[s] = Dot(d, cosine, u, sine);
        }
    }
}

// The following functions write slot t of subband s to out[t][s].

EXTRA_LANES static void LongBlocks(const MP3_SPECTRUM &__restrict lines,
                                   MP3_SPECTRUM &__restrict overlap, MP3_SPECTRUM &__restrict out,
                                   const std::array<int32_t, 36> &__restrict window, size_t first,
                                   size_t last)
{
    for (size_t s = first; s < last; s++) {
        std::array<MP3_FIXED, 18> x;
#pragma GCC unroll 18
        for (size_t k = 0; k < 18; k++)
            x[k] = lines[k][s];
        CosineTransform4(x);
#pragma GCC unroll 18
        for (size_t t = 0; t < 18; t++)
            out[t][s] = Overlapped(overlap, t, s, Scale(x[Mirrored<18>(t)], window[t]));
#pragma GCC unroll 18
        for (size_t t = 0; t < 18; t++)
            overlap[t][s] = Scale(x[Mirrored<18>(18 + t)], window[18 + t]);
    }
}

EXTRA_LANES static void ShortBlocks(const MP3_SPECTRUM &__restrict lines,
                                    MP3_SPECTRUM &__restrict overlap, MP3_SPECTRUM &__restrict out,
                                    size_t first, size_t last)
{
    for (size_t s = first; s < last; s++) {
        std::array<MP3_FIXED, 36> sum{};
#pragma GCC unroll 3
        for (size_t w = 0; w < 3; w++) {
            std::array<MP3_FIXED, 6> x;
#pragma GCC unroll 6
            for (size_t k = 0; k < 6; k++)
                x[k] = lines[3 * k + w][s];
            CosineTransform4(x);
#pragma GCC unroll 12
            for (size_t i = 0; i < 12; i++)
                sum[6 + 6 * w + i] += Scale(x[Mirrored<6>(i)], MP3_ShortWindow[i]);
        }
#pragma GCC unroll 18
        for (size_t t = 0; t < 18; t++) {
            out[t][s] = Overlapped(overlap, t, s, sum[t]);
            overlap[t][s] = sum[18 + t];
        }
    }
}

// Blocks of zeros.
static void EmptyBlocks(MP3_SPECTRUM &__restrict overlap, MP3_SPECTRUM &__restrict out,
                        size_t first)
{
    for (size_t t = 0; t < 18; t++)
        for (size_t s = first; s < MP3_Subbands; s++) {
            out[t][s] = Overlapped(overlap, t, s, 0);
            overlap[t][s] = 0;
        }
}

void MP3_Hybrid(MP3_FILTER &filter, MP3_SPECTRUM &lines, size_t used, MP3_BLOCK block, bool mixed,
                size_t granule)
{
    if (block != MP3_SHORT || mixed) {
        used = std::min(used + 1, MP3_Subbands);  // alias reduction spreads into the next subband
        ReduceAliases(lines, block == MP3_SHORT ? 1 : used - 1);
    }
    const size_t end = (used + 7) / 8 * 8;  // whole vectors
    const size_t normal = mixed ? std::min<size_t>(end, 2) : 0;
    MP3_SPECTRUM out;
    if (normal != 0)
        LongBlocks(lines, filter.Overlap, out, MP3_LongWindows[MP3_NORMAL], 0, normal);
    if (block == MP3_SHORT)
        ShortBlocks(lines, filter.Overlap, out, normal, end);
    else
        LongBlocks(lines, filter.Overlap, out, MP3_LongWindows[block], normal, end);
    EmptyBlocks(filter.Overlap, out, end);
    StoreSlots(out, filter, granule * MP3_Slots);
}

// out[m] = sum of in[k] cos(m (2k+1) pi / 2n). The even m are a transform of half the length, of
// in[k] + in[n-1-k]. So are the sums of neighbouring odd m, of the differences divided by 2
// cos((2k+1) pi / 2n).
template <size_t N>
[[gnu::always_inline]] static inline void CosineTransform2(std::array<MP3_FIXED, N> &x)
{
    if constexpr (N > 1) {
        std::array<MP3_FIXED, N / 2> even, odd;
#pragma GCC unroll 16
        for (size_t k = 0; k < N / 2; k++) {
            even[k] = x[k] + x[N - 1 - k];
            odd[k] = Scale(x[k] - x[N - 1 - k], MP3_Secants<N>[k]);
        }
        CosineTransform2(even);
        CosineTransform2(odd);
#pragma GCC unroll 16
        for (size_t m = 0; m < N / 2; m++) {
            x[2 * m] = even[m];
            x[2 * m + 1] = m + 1 < N / 2 ? odd[m] + odd[m + 1] : odd[m];
        }
    }
}

// The matrixing of the synthesis, for whole vectors of slots: filter.Waves[m] becomes the sum of
// the subbands s times cos(m (2s+1) pi / 64).
EXTRA_LANES static void Matrix(MP3_FILTER &__restrict filter, size_t slots)
{
    for (size_t t = 0; t < slots; t++) {
        std::array<MP3_FIXED, MP3_Subbands> x;
#pragma GCC unroll 32
        for (size_t s = 0; s < MP3_Subbands; s++)
            x[s] = filter.Samples[s][t];
        CosineTransform2(x);
#pragma GCC unroll 32
        for (size_t s = 0; s < MP3_Subbands; s++)
            filter.Waves[s][MP3_History + t] = static_cast<int32_t>(x[s]);
    }
}

namespace
{

// The polyphase synthesis of the standard shifts 64 values of each slot into a vector V of 1024 and
// weights 512 of them with the window D; sample j of a slot is the sum of 16 products. V is
// redundant: its 64 values are made of 32 waves (cosine sums) by symmetry. V[i] is wave 16 + i for
// i < 16, 0 for 16, and minus wave |48 - i| beyond. So samples j and 32 - j use the same two waves,
// 16 + j with the slots 0, 2, 4 ... back and 16 - j with the slots 1, 3, 5 ... back, and differ
// only in the coefficients. Keeping 15 slots of waves replaces the shifting of V.
struct MP3_TAPS {
    std::array<double, 8> Upper, Lower;              // for sample j: of wave 16 + j, of wave 16 - j
    std::array<double, 8> MirrorUpper, MirrorLower;  // for sample 32 - j
};

}  // namespace

constexpr auto MP3_Taps = [] {
    std::array<MP3_TAPS, 17> table{};
    for (size_t j = 0; j < table.size(); j++)
        for (size_t i = 0; i < 8; i++) {
            table[j].Upper[i] = j == 16 ? 0 : MP3_Window(64 * i + j);
            table[j].Lower[i] = -MP3_Window(64 * i + 32 + j);
            table[j].MirrorUpper[i] = j == 16 ? 0 : -MP3_Window(64 * i + 32 - j);
            table[j].MirrorLower[i] = -MP3_Window(64 * i + 64 - j);
        }
    return table;
}();

namespace
{

// Samples before the conversion to 16 bits, by number in the slot and by slot: the upper part and
// the bits below it. Number 32, the mirror of 0, is unused.
struct MP3_ACCUMULATORS {
    alignas(64) std::array<std::array<int32_t, MP3_Columns>, 33> High, Low;
};

// Samples after it.
using MP3_CUT = std::array<std::array<MP3_FIXED, MP3_Columns>, 32>;
}  // namespace

// Splits whole numbers into the part for 16 bits and MP3_CarriedBits below it.
//
// The sum of such a number and 1.5 * 2^52 has it in the lower bits of its mantissa.
[[gnu::always_inline]] static inline void Split(const double *__restrict sums, size_t count,
                                                int32_t *__restrict high, int32_t *__restrict low)
{
    constexpr int below = MP3_FixedBits + 16 - 15;  // the window has 16 fractional bits
    constexpr int32_t mask = (1 << MP3_CarriedBits) - 1;
    constexpr double offset = 0x1.8p52;
    for (size_t t = 0; t < count; t++) {
        const uint64_t sum =
            std::bit_cast<uint64_t>(sums[t] + offset) - std::bit_cast<uint64_t>(offset);
        high[t] = static_cast<int32_t>(sum >> below);
        low[t] = static_cast<int32_t>(sum >> (below - MP3_CarriedBits)) & mask;
    }
}

// Products of waves (32 bits) and the window (18 bits), and 16 of them added up, are whole numbers
// of less than 53 bits, so floating point computes them exactly, and faster than 64-bit integers.
EXTRA_LANES static void Windowing(const MP3_FILTER &__restrict filter, size_t blocks,
                                  MP3_ACCUMULATORS &__restrict out)
{
    for (size_t j = 0; j < MP3_Taps.size(); j++) {
        const MP3_TAPS &taps = MP3_Taps[j];
        const double *upper = filter.Waves[(16 + j) % 32].data() + 1;
        const double *lower = filter.Waves[16 - j].data();
        alignas(64) std::array<double, MP3_Columns> sums, mirrors;
        for (size_t t = 0; t < blocks; t++) {
            double sum = 0, mirror = 0;
#pragma GCC unroll 8
            for (size_t i = 0; i < 8; i++) {  // from the newest slot back
                const double u = upper[t + 15 - 2 * i], l = lower[t + 15 - 2 * i];
                sum += u * taps.Upper[i] + l * taps.Lower[i];
                mirror += u * taps.MirrorUpper[i] + l * taps.MirrorLower[i];
            }
            sums[t] = sum;
            mirrors[t] = mirror;
        }
        Split(sums.data(), blocks, out.High[j].data(), out.Low[j].data());
        Split(mirrors.data(), blocks, out.High[32 - j].data(), out.Low[32 - j].data());
    }
}

// Truncates the samples to 16 bits and carries the remainder into the next sample. The carry is the
// sum of all remainders so far, modulo their width, so it is computed for the start of every slot
// first; then the slots run side by side.
EXTRA_LANES static void Quantise(const MP3_ACCUMULATORS &__restrict in, size_t blocks,
                                 uint32_t &__restrict remainder, MP3_CUT &__restrict out)
{
    constexpr int32_t mask = (1 << MP3_CarriedBits) - 1;
    std::array<int32_t, MP3_Columns> carry{};
    for (size_t j = 0; j < 32; j++)
        for (size_t t = 0; t < blocks; t++)
            carry[t] += in.Low[j][t];
    int32_t running = static_cast<int32_t>(remainder);
    for (size_t t = 0; t < blocks; t++) {
        const int32_t slot = carry[t];
        carry[t] = running;
        running = (running + slot) & mask;
    }
    remainder = static_cast<uint32_t>(running);
    for (size_t j = 0; j < 32; j++)
        for (size_t t = 0; t < blocks; t++) {
            const int32_t sum = in.Low[j][t] + carry[t];
            const int32_t sample = in.High[j][t] + (sum >> MP3_CarriedBits);
            carry[t] = sum & mask;
            out[j][t] = static_cast<MP3_FIXED>(std::clamp(sample, -32768, 32767));
        }
}

// The same without the carry: each sample is rounded.
EXTRA_LANES static void QuantiseAlone(const MP3_ACCUMULATORS &__restrict in, size_t blocks,
                                      MP3_CUT &__restrict out)
{
    for (size_t j = 0; j < 32; j++)
        for (size_t t = 0; t < blocks; t++) {
            const int32_t sample = in.High[j][t] + (in.Low[j][t] >> (MP3_CarriedBits - 1));
            out[j][t] = static_cast<MP3_FIXED>(std::clamp(sample, -32768, 32767));
        }
}

// With all the bits that were computed.
EXTRA_LANES static void Join(const MP3_ACCUMULATORS &__restrict in, size_t blocks,
                             MP3_CUT &__restrict out)
{
    for (size_t j = 0; j < 32; j++)
        for (size_t t = 0; t < blocks; t++) {
            const int32_t high = std::clamp(in.High[j][t], -32768, 32767);
            const int32_t beyond = high == in.High[j][t] ? 0 : high < 0 ? INT32_MIN : INT32_MAX;
            const int32_t sample = high * 65536 + in.Low[j][t] * (65536 >> MP3_CarriedBits);
            out[j][t] = static_cast<MP3_FIXED>(beyond != 0 ? beyond : sample);
        }
}

template <typename Sample>
[[gnu::always_inline]] static inline void Put(const WORDS &values, Sample *samples)
{
    using OUT [[gnu::vector_size(4 * sizeof(Sample))]] = Sample;
    const auto out = __builtin_convertvector(values, OUT);
    std::memcpy(samples, &out, sizeof out);
}

// Interleaves the channels' samples.
template <typename Sample>
static void Store(const std::array<MP3_CUT, 2> &__restrict cut, size_t channels, size_t blocks,
                  Sample *__restrict samples)
{
    for (size_t first = 0; first < blocks; first += 4) {
        const size_t t = std::min(first, blocks - 4);
        for (size_t j = 0; j < 32; j += 4) {
            const std::array<WORDS, 4> left = Transpose(&cut[0][j][t], MP3_Columns);
            Sample *out = samples + (32 * t + j) * channels;
            if (channels == 1) {
                for (size_t i = 0; i < 4; i++)
                    Put(left[i], out + 32 * i);
                continue;
            }
            const std::array<WORDS, 4> right = Transpose(&cut[1][j][t], MP3_Columns);
            for (size_t i = 0; i < 4; i++) {
                Put(__builtin_shufflevector(left[i], right[i], 0, 4, 1, 5), out + 64 * i);
                Put(__builtin_shufflevector(left[i], right[i], 2, 6, 3, 7), out + 64 * i + 4);
            }
        }
    }
}

template <typename Sample>
static void Synthesise(std::span<MP3_FILTER> channels, size_t blocks, Sample *samples, bool rounded)
{
    alignas(64) std::array<MP3_CUT, 2> cut;
    for (size_t c = 0; c < channels.size(); c++) {
        MP3_FILTER &filter = channels[c];
        Matrix(filter, (blocks + 7) / 8 * 8);
        MP3_ACCUMULATORS accumulators;
        Windowing(filter, blocks, accumulators);
        if constexpr (sizeof(Sample) == 4)
            Join(accumulators, blocks, cut[c]);
        else if (rounded)
            QuantiseAlone(accumulators, blocks, cut[c]);
        else
            Quantise(accumulators, blocks, filter.Remainder, cut[c]);
        for (auto &wave : filter.Waves)
            std::copy_n(wave.begin() + static_cast<ptrdiff_t>(blocks), MP3_History, wave.begin());
    }
    Store(cut, channels.size(), blocks, samples);
}

void MP3_Synthesis(std::span<MP3_FILTER> channels, size_t blocks, int16_t *samples, bool rounded)
{
    Synthesise(channels, blocks, samples, rounded);
}

void MP3_Synthesis(std::span<MP3_FILTER> channels, size_t blocks, int32_t *samples)
{
    Synthesise(channels, blocks, samples, true);
}
