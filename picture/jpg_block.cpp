#include "picture/jpg_block.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "extra/lanes.h"

// Eight numbers in one vector: a row of a block, or a column.
using LANES = float __attribute__((vector_size(32)));
using INTS = int32_t __attribute__((vector_size(32)));
using DOUBLES = double __attribute__((vector_size(32)));
using BYTES = uint8_t __attribute__((vector_size(32)));

// The one-dimensional inverse DCT of Arai, Agui and Nakajima (1988), whose inputs are scaled by
// JPG_ScaleFactor, on eight lanes at once. Inputs from `Inputs` (4 or 8) on are 0.
template <int Inputs>
[[gnu::always_inline]] static inline void Transform(LANES *v)
{
    constexpr float sqrt2 = 1.414213562F;
    LANES even0, even1, even2, even3, odd0, odd1, odd2, odd3;
    if constexpr (Inputs == 4) {
        const LANES turned2 = v[2] * (sqrt2 - 1);
        even0 = v[0] + v[2];
        even3 = v[0] - v[2];
        even1 = v[0] + turned2;
        even2 = v[0] - turned2;
        odd0 = v[1] + v[3];
        const LANES turned = (v[1] - v[3]) * 1.847759065F;
        odd1 = turned + v[3] * 2.613125930F - odd0;
        odd2 = (v[1] - v[3]) * sqrt2 - odd1;
        odd3 = turned - v[1] * 1.082392200F - odd2;
    } else {
        const LANES sum04 = v[0] + v[4], difference04 = v[0] - v[4], sum26 = v[2] + v[6];
        const LANES turned26 = (v[2] - v[6]) * sqrt2 - sum26;
        even0 = sum04 + sum26;
        even3 = sum04 - sum26;
        even1 = difference04 + turned26;
        even2 = difference04 - turned26;

        const LANES sum53 = v[5] + v[3], difference53 = v[5] - v[3];
        const LANES sum17 = v[1] + v[7], difference17 = v[1] - v[7];
        odd0 = sum17 + sum53;
        const LANES turned = (difference53 + difference17) * 1.847759065F;
        odd1 = turned - difference53 * 2.613125930F - odd0;
        odd2 = (sum17 - sum53) * sqrt2 - odd1;
        odd3 = turned - difference17 * 1.082392200F - odd2;
    }
    v[0] = even0 + odd0;
    v[7] = even0 - odd0;
    v[1] = even1 + odd1;
    v[6] = even1 - odd1;
    v[2] = even2 + odd2;
    v[5] = even2 - odd2;
    v[3] = even3 + odd3;
    v[4] = even3 - odd3;
}

// Transposes. Columns from `Inputs` on are not computed, since they are 0.
template <int Inputs>
[[gnu::always_inline]] static inline void Transpose(LANES *v)
{
    LANES a[8], b[8];
    // Each step is one instruction a vector.
    for (int i = 0; i < 8; i += 2) {
        a[i] = __builtin_shufflevector(v[i], v[i + 1], 0, 8, 1, 9, 4, 12, 5, 13);
        a[i + 1] = __builtin_shufflevector(v[i], v[i + 1], 2, 10, 3, 11, 6, 14, 7, 15);
    }
    for (int i = 0; i < 8; i += 4)
        for (int k = 0; k < 2; k++) {
            const LANES upper = a[i + k], lower = a[i + k + 2];
            b[i + 2 * k] = __builtin_shufflevector(upper, lower, 0, 1, 8, 9, 4, 5, 12, 13);
            b[i + 2 * k + 1] = __builtin_shufflevector(upper, lower, 2, 3, 10, 11, 6, 7, 14, 15);
        }
    for (int i = 0; i < 4; i++) {
        v[i] = __builtin_shufflevector(b[i], b[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
        if constexpr (Inputs == 8)
            v[i + 4] = __builtin_shufflevector(b[i], b[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    }
}

// Stores rows of samples, clamped to 0..255. The bytes of four rows are packed into one vector and
// sorted by one shuffle.
[[gnu::always_inline]] static inline void StoreRows(const LANES *v, uint8_t *samples, size_t stride)
{
    constexpr INTS least = {}, greatest = least + 255;
    for (size_t i = 0; i < 8; i += 4) {
        INTS mixed = {};
        for (size_t k = 0; k < 4; k++) {
            INTS row = __builtin_convertvector(v[i + k], INTS);
            row = row > least ? row : least;
            row = row > greatest ? greatest : row;
            const size_t byte = std::endian::native == std::endian::little ? k : 3 - k;
            mixed |= row << static_cast<int>(8 * byte);
        }
        const BYTES bytes = reinterpret_cast<BYTES>(mixed);
        const BYTES sorted = __builtin_shufflevector(bytes, bytes, 0, 4, 8, 12, 1, 5, 9, 13, 2, 6,
                                                     10, 14, 3, 7, 11, 15, 16, 20, 24, 28, 17, 21,
                                                     25, 29, 18, 22, 26, 30, 19, 23, 27, 31);
        const INTS q = reinterpret_cast<INTS>(sorted);
        const INTS rows = __builtin_shufflevector(q, q, 0, 4, 1, 5, 2, 6, 3, 7);
        const DOUBLES halves = reinterpret_cast<DOUBLES>(rows);  // stored without a shuffle
        for (size_t k = 0; k < 4; k++) {
            const double row = halves[k];
            std::memcpy(samples + (i + k) * stride, &row, 8);
        }
    }
}

// Dequantises two columns: their coefficients are the halves of the same lanes, and are taken as
// the upper half of a lane each.
[[gnu::always_inline]] static inline void LoadColumns(const int16_t *coefficients,
                                                      const float *scale, LANES *v)
{
    constexpr bool little = std::endian::native == std::endian::little;
    constexpr INTS upper = INTS{} - 65536;
    INTS pairs;
    LANES scale0, scale1;
    std::memcpy(&pairs, coefficients, sizeof pairs);
    std::memcpy(&scale0, scale, sizeof scale0);
    std::memcpy(&scale1, scale + 8, sizeof scale1);
    const INTS first = little ? pairs << 16 : pairs & upper;
    const INTS second = little ? pairs & upper : pairs << 16;
    v[0] = __builtin_convertvector(first, LANES) * scale0;
    v[1] = __builtin_convertvector(second, LANES) * scale1;
}

template <int Inputs>
[[gnu::always_inline]] static inline void
TransformBlock(const int16_t *coefficients, const float *scale, uint8_t *samples, size_t stride)
{
    LANES v[8];
    for (size_t i = 0; i < Inputs; i += 2)
        LoadColumns(coefficients + 8 * i, scale + 8 * i, v + i);
    // The level shift of 128, plus 0.5 since conversion truncates. Added to the DC term it reaches
    // every sample.
    const LANES level = {128.5F};
    v[0] += level;
    Transform<Inputs>(v);
    Transpose<Inputs>(v);
    Transform<Inputs>(v);
    StoreRows(v, samples, stride);
}

EXTRA_LANES static void InverseDCT(const int16_t *coefficients, const float *scale, size_t end,
                                   uint8_t *samples, size_t stride)
{
    if (end == 1) {
        const float sample = static_cast<float>(coefficients[0] * 65536) * scale[0] + 128.5F;
        const auto level = static_cast<int>(std::clamp(sample, 0.0F, 255.0F));
        for (size_t i = 0; i < 8; i++)
            std::memset(samples + i * stride, level, 8);
    } else if (end <= 10) {  // the first four diagonals
        TransformBlock<4>(coefficients, scale, samples, stride);
    } else {
        TransformBlock<8>(coefficients, scale, samples, stride);
    }
}

void JPG_InverseDCT(const int16_t *coefficients, const float *scale, size_t end, uint8_t *samples,
                    size_t stride)
{
    InverseDCT(coefficients, scale, end, samples, stride);
}
