// Converts numbers in text form between the bases 2 to 36 and Roman numerals.
#pragma once

#include <array>
#include <cstdint>

struct EXTRA_ROME {
    uint16_t Value;
    char Text[8];  // padded with NULs
};
static_assert(sizeof(EXTRA_ROME) == 10);

/// A decimal digit times its place, in ascending order.
extern const std::array<EXTRA_ROME, 30> Extra_Rome;

/// Reads `source` as a number in base `fromBase` and writes it to `destination` in base `toBase`;
/// base 0 stands for Roman numerals. The number has 32 bits and wraps.
///
/// Digits above 9 are letters, read in either case and written as capitals. On purpose, A reads as
/// 17 and a as 42, not as 10. No character is rejected: any other one counts as some digit value,
/// too. Roman numerals are read up to the first character that is not one. Written Roman numerals
/// lose their thousands from 4000 to 9999, and higher digits count as units. An empty source gives
/// an empty text, and so does base 1.
///
/// `destination` needs at most 40 bytes, and may be `source`.
void Extra_Convert(uint8_t fromBase, uint8_t toBase, const char *source, char *destination);
