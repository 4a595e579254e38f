// JPEG pictures. ITU-T T.81, JFIF 1.02, Exif 2.3 (TIFF 6.0 fields). Baseline and progressive
// Huffman coding of 8-bit samples. Arithmetic coding, lossless and hierarchical processes and 12
// bits a sample are left out, with a reason (extra/reason.h).
//
// Where the two sets of rules (Picture_Rules) differ:
//   what                    framework's                     format's
//   head of a file          JFIF or Exif comes first        FF D8, then a marker
//   extended sequential     skipped                         as baseline
//   segments not read       traced on standard output       skipped silently
//   components              1 or 3                          1 to 4
//   factors of an MCU       the first component's           the greatest of all
//   chroma of few samples   interpolated                    repeated where others do (jpg_colour.h)
//   colours                 grey, YCbCr                     and RGB, CMYK, YCCK: as Adobe's segment
//                                                           and the components' ids tell
//   two of the same id      the first                       the first, then the second
//   band of sequential scans  as written                    0 to 63
//   no lines                null                            those of the DNL segment
//   no Huffman tables       damage                          those of T.81, annex K
//   JFIF's thumbnail        at byte 20, then the walk goes  in its segment
//                           on at width x height
//   first Exif IFD          after the TIFF header           where that says
//   Exif thumbnail          or the file's first FF D8       what the tags say
//   letters of GPS tags     the value's highest byte        the field's first byte
//   Exif texts of 4 bytes   at the value, a maker's far     in the field
//                           into the file in the field
//   bits that are no code   damage to the next restart      as if they were the symbol 0
//   an MCU cut short        grey                            as if zeros followed
#pragma once

#include <cstdint>
#include <span>

#include "extra/bytes.h"
#include "picture/jpg_markers.h"

#pragma GCC visibility push(default)

/// Whether the first bytes of a file are a JPEG file's, by the rules of Picture_Rules.
bool JPG_Detected(std::span<const uint8_t> head);

/// Reads the file and walks its markers up to the first entropy-coded data; by the framework's
/// rules traces on standard output the segments that it skips. A path that begins with '*' walks on
/// in the same file from JPG_Position. A file that cannot be opened leaves nothing to decode.
void JPG_Load(const char *path);

/// Decodes the scan that JPG_Load stands before and all that follow it.
///
/// Returns PaddedWidth x PaddedHeight pixels of 4 bytes (R G B A, alpha 255), top row first. From
/// malloc: the caller frees it. Damage keeps what stood before it and goes on after the next
/// restart marker; what is missing is grey, and a reason is left. Null, with a reason, when there
/// is no frame or scan, for samples of other than 8 bits, sampling factors outside 1 to 4 (or, by
/// the framework's rules, above the first component's), padded sides above 65535, and sizes that
/// the file's bytes cannot hold or that pass Picture_MaxBytes. Peak memory beside the file and a
/// copy of its longest restart interval: 4 bytes a pixel; for files of several scans 2 a sample
/// more.
uint8_t *JPG_Decoding();

/// The JFIF thumbnail, or what the embedded JPEG of the Exif one decodes to; null without one. Sets
/// the thumbnail's sizes in JPG_Header and JPG_Decoder, but overwrites the picture's own. From
/// malloc: the caller frees it.
uint8_t *JPG_GetThumbnail();

/// Frees the file, and the JFIF thumbnail if nobody took it.
void JPG_UnLoad();

/// Copy the record to `out` and return it.
JPG_HEADER *JPG_GetHeader(JPG_HEADER *out);
JPG_EXIF *JPG_GetExif(JPG_EXIF *out);

/// A JPEG stream out of another file, decoded.
struct JPG_STREAM {
    uint32_t Width, Height;  // pixels; 0: there is no picture
    uint32_t Components;     // 1 to 4
    BYTES_BUFFER Samples;    // Width x Height x Components, interleaved, top row first
};

/// Decodes an abbreviated or whole JPEG stream by the format's rules, with the tables of another
/// one, which may be empty (T.81, B.5; TIFF's JPEGTables). Every component is brought to full size.
/// `toRGB` converts three components from YCbCr; all else stays as stored. Damage leaves what was
/// read, and a reason; empty, with a reason, for what JPG_Decoding refuses and for more pixels than
/// `maxPixels`. The named records of a file that is being decoded on this thread stay as they are.
JPG_STREAM JPG_DecodeStream(std::span<const uint8_t> tables, std::span<const uint8_t> stream,
                            bool toRGB, uint64_t maxPixels);

#pragma GCC visibility pop
