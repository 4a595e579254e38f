// Undoes PNG's line filters (ISO/IEC 15948, clause 9), one or four pixels at a time.
#pragma once

#include <cstddef>
#include <cstdint>

/// Bytes past a line that may be read, and that may be written after its last unfiltered pixel.
constexpr size_t PNG_LineSlack = 16;

/// Undoes a line's filter: `in` is the line after its filter byte, `prior` the unfiltered line
/// above (zeros above the first). An unknown filter, above 4, gives a line of zeros.
using PNG_UNFILTER = void (*)(uint8_t filter, const uint8_t *in, const uint8_t *prior, uint8_t *out,
                              size_t pixels);

/// The function for pixels of `step` bytes: 1, 2, 3, 4, 6 or 8. With a step of 3, RGB becomes RGBA
/// with alpha 255, and `prior` must be RGBA as well.
PNG_UNFILTER PNG_UnFilterOf(size_t step);

/// Undoes the Paeth filter of two lines at once; the second one starts at `lowerIn`.
using PNG_UNPAETHTWO = void (*)(const uint8_t *in, const uint8_t *lowerIn, const uint8_t *prior,
                                uint8_t *out, uint8_t *lowerOut, size_t pixels);

/// The function for RGB (step 3), which becomes RGBA, or for RGBA (step 4).
PNG_UNPAETHTWO PNG_UnPaethTwoOf(size_t step);
