// Facsimile coding of bilevel pictures: modified Huffman and Group 3 of one and two dimensions
// (ITU-T T.4), Group 4 (ITU-T T.6). The optional uncompressed mode counts as damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum FAX_SCHEME : uint8_t {
    FAX_Bytes,       // modified Huffman: each row begins on a byte
    FAX_Words,       // the same, on 16 bits
    FAX_Group3,      // rows after end-of-line codes, all of them of one dimension
    FAX_Group3TwoD,  // a bit after each end-of-line code tells the row's dimensions
    FAX_Group4,
};

struct FAX_RESULT {
    size_t Rows;   // written
    bool Damaged;  // a code that cannot be, in a row that was written as far as it went
};

/// Expands rows of `width` pixels, 1 to 65,535, into `out`: (width + 7) / 8 bytes a row, the
/// leftmost pixel in the highest bit, black is 1. Ends with the stream, with its end code, or when
/// `out` has no room for a row. Of the stream each byte's highest bit comes first. After damage
/// Group 3 goes on at the next end-of-line code, the others stop.
FAX_RESULT FAX_Expand(std::span<const uint8_t> in, FAX_SCHEME scheme, size_t width,
                      std::span<uint8_t> out);
