// Converts numbers as texts between the bases 2 to 36 and Roman numerals.
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
/// Digits above 9 are letters, read in either case and written as capitals. A and a do not read as
/// 10 but as 17 and 42, on purpose. No character is rejected: any other one counts as some digit
/// value, too. Roman numerals are read up to the first character that begins none. Written ones
/// lose their thousands from 4000 to 9999, and digits of higher places count as units. An empty
/// source gives an empty text, and so does base 1.
///
/// `destination` needs 40 bytes at most, and may be `source`.
void Extra_Convert(uint8_t fromBase, uint8_t toBase, const char *source, char *destination);
