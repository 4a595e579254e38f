// SHA-256 (FIPS 180-4), for comparing whole results with digests.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

/// The digest as 64 hexadecimal digits.
inline std::string Sha256(std::span<const uint8_t> data)
{
    // The first 32 bits of the fractions of the first 64 primes' cube roots, then of the first
    // eight's square roots.
    static const auto constants = [] {
        std::array<uint32_t, 72> all;
        const auto fraction = [](double root) {
            return static_cast<uint32_t>((root - std::floor(root)) * 4294967296.0);
        };
        size_t found = 0;
        for (int n = 2; found < 64; n++) {
            bool prime = true;
            for (int d = 2; d * d <= n; d++)
                prime = prime && n % d != 0;
            if (!prime)
                continue;
            if (found < 8)
                all[64 + found] = fraction(std::sqrt(n));
            all[found++] = fraction(std::cbrt(n));
        }
        return all;
    }();
    std::array<uint32_t, 8> state;
    std::copy_n(constants.begin() + 64, 8, state.begin());

    std::vector<uint8_t> padded(data.begin(), data.end());
    padded.push_back(0x80);
    while (padded.size() % 64 != 56)
        padded.push_back(0);
    for (int shift = 56; shift >= 0; shift -= 8)
        padded.push_back(static_cast<uint8_t>(uint64_t{data.size()} * 8 >> shift));

    for (size_t block = 0; block < padded.size(); block += 64) {
        std::array<uint32_t, 64> w;
        for (size_t i = 0; i < 64; i++) {
            if (i < 16) {
                w[i] = 0;
                for (size_t k = 0; k < 4; k++)
                    w[i] = w[i] << 8 | padded[block + 4 * i + k];
                continue;
            }
            const uint32_t a = w[i - 15], b = w[i - 2];
            w[i] = w[i - 16] + w[i - 7] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3) +
                   (std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10);
        }
        auto [a, b, c, d, e, f, g, h] = state;
        for (size_t i = 0; i < 64; i++) {
            const uint32_t s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
            const uint32_t t1 = h + s1 + ((e & f) ^ (~e & g)) + constants[i] + w[i];
            const uint32_t s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
            const uint32_t t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
            h = g;
            g = f;
            f = e;
            e = d + t1;
            d = c;
            c = b;
            b = a;
            a = t1 + t2;
        }
        const std::array<uint32_t, 8> round = {a, b, c, d, e, f, g, h};
        for (size_t i = 0; i < 8; i++)
            state[i] += round[i];
    }
    std::string digest;
    for (const uint32_t word : state) {
        std::array<char, 9> text;
        std::snprintf(text.data(), text.size(), "%08x", word);
        digest += text.data();
    }
    return digest;
}
