// PNG's line filters undone (ISO/IEC 15948, clause 9), a pixel or four at a time.
#pragma once

#include <cstddef>
#include <cstdint>

/// Bytes that may be read after the last of a line, and written after its last unfiltered one.
constexpr size_t PNG_LineSlack = 16;

/// Undoes a line's filter: `in` are its bytes after the filter's number, `prior` is the unfiltered
/// line above (zeros above the first). A filter above 4 does not exist and gives a line of zeros.
using PNG_UNFILTER = void (*)(uint8_t filter, const uint8_t *in, const uint8_t *prior, uint8_t *out,
                              size_t pixels);

/// The function for lines whose pixels are `step` bytes apart: 1, 2, 3, 4, 6 or 8. Lines of 3, RGB,
/// become RGBA with alpha 255, and so are the lines above them.
PNG_UNFILTER PNG_UnFilterOf(size_t step);

/// Undoes the Paeth filter of two lines at once, the second of which begins at `lowerIn`.
using PNG_UNPAETHTWO = void (*)(const uint8_t *in, const uint8_t *lowerIn, const uint8_t *prior,
                                uint8_t *out, uint8_t *lowerOut, size_t pixels);

/// The function for RGB (a step of 3), which becomes RGBA, or RGBA (4).
PNG_UNPAETHTWO PNG_UnPaethTwoOf(size_t step);
