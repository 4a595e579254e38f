// Facsimile coding of bilevel pictures: modified Huffman, one- and two-dimensional Group 3 (ITU-T
// T.4), and Group 4 (ITU-T T.6). The optional uncompressed mode counts as damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum FAX_SCHEME : uint8_t {
    FAX_Bytes,       // modified Huffman: each row starts on a byte boundary
    FAX_Words,       // the same, on a 16-bit boundary
    FAX_Group3,      // rows after end-of-line codes, all one-dimensional
    FAX_Group3TwoD,  // a tag bit after each end-of-line code selects the row's coding
    FAX_Group4,
};

struct FAX_RESULT {
    size_t Rows;   // written
    bool Damaged;  // an invalid code was met; its row was written up to it
};

/// Expands rows of `width` pixels, 1 to 65,535, into `out`: (width + 7) / 8 bytes a row, the
/// leftmost pixel in the highest bit, black is 1. Stops at the end of the stream, at its end code,
/// or when `out` has no room for a row. Bytes of the stream are read from the highest bit. After
/// damage Group 3 resumes at the next end-of-line code; the other schemes stop.
FAX_RESULT FAX_Expand(std::span<const uint8_t> in, FAX_SCHEME scheme, size_t width,
                      std::span<uint8_t> out);
