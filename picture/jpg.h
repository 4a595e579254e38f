// JPEG pictures. ITU-T T.81, JFIF 1.02, Exif 2.3 (TIFF 6.0 fields). Baseline and progressive
// Huffman coding of 8-bit samples. Arithmetic coding, lossless and hierarchical processes and
// 12-bit samples are not supported and leave a reason (extra/reason.h).
//
// Where the two sets of rules (Picture_Rules) differ:
//   what                    framework's                     format's
//   head of a file          JFIF or Exif comes first        FF D8, then a marker
//   extended sequential     skipped                         as baseline
//   segments not read       traced on standard output       skipped silently
//   components              1 or 3                          1 to 4
//   factors of an MCU       the first component's           the greatest of all
//   chroma of few samples   interpolated                    repeated, as in common decoders
//   colours                 grey, YCbCr                     also RGB, CMYK, YCCK, by Adobe's
//                                                           segment and the components' ids
//   components of equal id  always the first                each once, in order
//   band of sequential scans  as stated                     always 0 to 63
//   no lines                null                            height from the DNL segment
//   no Huffman tables       damage                          those of T.81, annex K
//   JFIF's thumbnail        at byte 20; the walk resumes    in its segment
//                           at offset width x height
//   first Exif IFD          after the TIFF header           at the TIFF header's offset
//   Exif thumbnail          also the file's first FF D8     by the tags only
//   letters of GPS tags     the value's highest byte        the field's first byte
//   Exif texts of 4 bytes   at the value as an offset; for  in the field
//                           a far maker's name in the field
//   invalid codes           damage to the next restart      decoded as symbol 0
//   a truncated MCU         grey                            as if zeros followed
#pragma once

#include <cstdint>
#include <span>

#include "extra/bytes.h"
#include "picture/jpg_markers.h"

#pragma GCC visibility push(default)

/// Whether a file that begins with `head` is a JPEG file, by the rules of Picture_Rules.
bool JPG_Detected(std::span<const uint8_t> head);

/// Reads the file and walks its markers up to the first entropy-coded data. By the framework's
/// rules the segments that it skips are traced on standard output. A path that begins with '*'
/// continues in the same file at JPG_Position. A file that cannot be opened leaves nothing to
/// decode.
void JPG_Load(const char *path);

/// Decodes the scan that JPG_Load stopped at and all that follow it.
///
/// Returns PaddedWidth x PaddedHeight pixels of 4 bytes (R G B A, alpha 255), top row first. From
/// malloc: the caller frees it. After damage decoding resumes at the next restart marker; missing
/// parts are grey, and a reason is left. Null, with a reason, without a frame or scan, for samples
/// of other than 8 bits, sampling factors outside 1 to 4 (or, by the framework's rules, above the
/// first component's), padded sides above 65535, and sizes that the file's bytes cannot hold or
/// that exceed Picture_MaxBytes. Peak memory in addition to the file and a copy of its longest
/// restart interval: 4 bytes a pixel; for files of several scans 2 more per sample.
uint8_t *JPG_Decoding();

/// The JFIF thumbnail, or the decoded Exif thumbnail (an embedded JPEG); null without one. Sets the
/// thumbnail's sizes in JPG_Header and JPG_Decoder, but overwrites the picture's own sizes. From
/// malloc: the caller frees it.
uint8_t *JPG_GetThumbnail();

/// Frees the file, and the JFIF thumbnail unless JPG_GetThumbnail returned it.
void JPG_UnLoad();

/// Copy the record to `out` and return it.
JPG_HEADER *JPG_GetHeader(JPG_HEADER *out);
JPG_EXIF *JPG_GetExif(JPG_EXIF *out);

/// A decoded JPEG stream that is part of another file.
struct JPG_STREAM {
    uint32_t Width, Height;  // pixels; 0: there is no picture
    uint32_t Components;     // 1 to 4
    BYTES_BUFFER Samples;    // Width x Height x Components, interleaved, top row first
};

/// Decodes an abbreviated or whole JPEG stream by the format's rules, using the tables of another
/// stream, which may be empty (T.81, B.5; TIFF's JPEGTables). Every component is upsampled to full
/// size. `toRGB` converts three components from YCbCr; otherwise samples stay as stored. Damage
/// keeps what was decoded, and leaves a reason. Empty, with a reason, for what JPG_Decoding rejects
/// and for more than `maxPixels` pixels. The named records of a file that is being decoded on this
/// thread are not changed.
JPG_STREAM JPG_DecodeStream(std::span<const uint8_t> tables, std::span<const uint8_t> stream,
                            bool toRGB, uint64_t maxPixels);

#pragma GCC visibility pop
