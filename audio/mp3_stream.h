// MPEG audio streams by the standards: where the frames of a file are, and what it says of its
// length. ISO/IEC 11172-3 and 13818-3; the info frames of Xing, LAME and VBRI follow what their
// programs write.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "audio/mp3_frame.h"
#include "audio/sound_file.h"

#pragma GCC visibility push(default)

/// Samples by which every decoder of Layer III is late.
constexpr uint32_t MP3_DecoderDelay = 528 + 1;

/// A file's frames. Zero before MP3_FindStream.
struct MP3_STREAM {
    uint64_t Start, End;  // bytes: of the first frame that sounds, past the last one
    uint64_t Next;        // where a frame is expected: one that stands there is believed
    uint32_t Header;      // of the first frame, with which the others agree; 0: no frame was found
    uint32_t FreeLength;  // bytes of frames of free format, without padding
    uint8_t Channels;     // of the first frame, and so of the sound
    bool Checked;         // a CRC was right: from then on a wrong one means damage
    bool Damaged;         // the last frame, by its CRC
    uint32_t Frames;      // that the info frame promises; 0: none does
    uint32_t Skip;        // samples that the encoder and the decoder put before the sound
    uint64_t Samples;     // a channel's, of the sound; 0: not known, all that the frames have
    uint64_t Sample;      // of the next frame's first, from the first frame on
};

enum class MP3_SEARCH : uint8_t { Found, End, Unfinished };

/// The most bytes without a frame that are searched in one turn.
constexpr size_t MP3_MaxSearch = size_t{1} << 20;

/// Looks for the first frame between stream.Start and stream.End and takes the length from an info
/// frame, which is not to be played. Header stays 0, with a reason, where 1 MiB has none of Layer
/// III.
void MP3_FindStream(FILE *file, MP3_STREAM &stream);

/// Reads the next frame from the position of `file` on, whole, and moves stream.Next past it. Its
/// length goes to `length`. A header is believed where the last frame ends and where the next one
/// agrees with it. Unfinished when `passed`, which counts bytes without a frame, exceeds
/// MP3_MaxSearch.
MP3_SEARCH MP3_NextFrame(FILE *file, MP3_STREAM &stream, std::span<uint8_t, MP3_MaxFreeFrame> frame,
                         size_t &length, size_t &passed);

/// Whether the CRC after a frame's header is right. ISO/IEC 11172-3, 2.4.3.1.
bool MP3_IsChecksumRight(std::span<const uint8_t> frame);

/// Whether the start of a file is that of an MPEG stream of any layer: a tag that goes beyond it, a
/// frame followed by an agreeing one, or further on by two of them.
bool MP3_IsStream(std::span<const uint8_t> head);

#pragma GCC visibility pop
