// The fixed-point numbers of Layer III, and the functions that its tables are computed with.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

/// A fixed-point number in two's complement: overflow, which only hostile streams cause, wraps
/// around and does no other harm. Full scale is 1 << MP3_FixedBits: the headroom is 128 times that,
/// and a unit is 1/512 of a 16-bit step.
using MP3_FIXED = uint32_t;
constexpr int MP3_FixedBits = 24;

/// `value` with `bits` fractional bits, rounded.
constexpr int32_t MP3_Constant(double value, int bits)
{
    const double scaled = value * static_cast<double>(int64_t{1} << bits);
    return static_cast<int32_t>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
}

/// Cosine and sine for `x` from -pi to pi.
constexpr double MP3_Pi = 3.14159265358979323846;
constexpr double MP3_Cosine(double x)
{
    double sum = 1, term = 1;
    for (int i = 2; i < 40; i += 2) {
        term *= -x * x / (i * (i - 1));
        sum += term;
    }
    return sum;
}
constexpr double MP3_Sine(double x)
{
    return MP3_Cosine(x - MP3_Pi / 2);
}

/// Square root for `x` from 1/16 to 16.
constexpr double MP3_Root(double x)
{
    double root = 1;
    for (int i = 0; i < 20; i++)
        root = (root + x / root) / 2;
    return root;
}

#pragma GCC visibility pop
