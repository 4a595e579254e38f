// Huffman coded spectra of Layer III. ISO/IEC 11172-3, 2.4.1.7, 2.4.2.7 and table 3-B.7.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Spectral lines of a granule of one channel.
constexpr size_t MP3_Lines = 576;

/// The code tables of a granule's spectrum.
struct MP3_REGIONS {
    std::array<uint16_t, 3> End;   // lines, ascending, even, at most 576; pairs stop at the last
    std::array<uint8_t, 3> Table;  // 0 to 31
    uint8_t QuadTable;             // 0 A, 1 B
};

/// Quantised lines, signed.
using MP3_QUANTISED = std::array<int16_t, MP3_Lines>;

/// Decodes bits `begin` to `end` (exclusive) of `data`: pairs in the three regions, then quadruples
/// as far as the bits reach. A code that the end truncates is dropped. Lines without a code are 0,
/// and so are those of the reserved tables. 24 bytes must be readable past the one of bit `end`.
/// Returns the number of lines up to the last nonzero one. `whole` becomes false if the bits end
/// before the last pair but one, which only damage causes.
size_t MP3_ReadSpectrum(const uint8_t *data, size_t begin, size_t end, const MP3_REGIONS &regions,
                        MP3_QUANTISED &lines, bool &whole);
