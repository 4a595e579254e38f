// MPEG audio streams by the standards: where a file's frames are, and the length that it states.
// ISO/IEC 11172-3 and 13818-3; the info frames of Xing, LAME and VBRI as their programs write them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "audio/mp3_frame.h"
#include "audio/sound_file.h"

#pragma GCC visibility push(default)

/// The delay, in samples, of every Layer III decoder.
constexpr uint32_t MP3_DecoderDelay = 528 + 1;

/// A file's frames. Zero before MP3_FindStream.
struct MP3_STREAM {
    uint64_t Start, End;  // bytes: first frame with sound, past the last frame
    uint64_t Next;        // where a frame is expected: a header here is trusted
    uint32_t Header;      // of the first frame, which the others agree with; 0: no frame found
    uint32_t FreeLength;  // bytes of frames of free format, without padding
    uint8_t Channels;     // of the first frame, thus of the sound
    bool Checked;         // a CRC was right: from then on a wrong one means damage
    bool Damaged;         // the last frame, by its CRC
    uint32_t Frames;      // promised by the info frame; 0: none is
    uint32_t Skip;        // samples that encoder and decoder put before the sound
    uint64_t Samples;     // per channel, of the sound; 0: unknown, all that the frames hold
    uint64_t Sample;      // of the next frame's first sample, counted from the first frame
};

enum class MP3_SEARCH : uint8_t { Found, End, Unfinished };

/// The most bytes without a frame that one call searches.
constexpr size_t MP3_MaxSearch = size_t{1} << 20;

/// Looks for the first frame between stream.Start and stream.End and takes the length from an info
/// frame, which is not played. If 1 MiB contains no Layer III frame, Header stays 0 and a reason is
/// left.
void MP3_FindStream(FILE *file, MP3_STREAM &stream);

/// Reads the next whole frame from the position of `file` and moves stream.Next past it; `length`
/// receives its length. A header is trusted where the last frame ends and where the next one agrees
/// with it. Unfinished once `passed`, which counts bytes without a frame, exceeds MP3_MaxSearch.
MP3_SEARCH MP3_NextFrame(FILE *file, MP3_STREAM &stream, std::span<uint8_t, MP3_MaxFreeFrame> frame,
                         size_t &length, size_t &passed);

/// Whether the CRC after a frame's header is right. ISO/IEC 11172-3, 2.4.3.1.
bool MP3_IsChecksumRight(std::span<const uint8_t> frame);

/// Whether a file starts like an MPEG stream of any layer: with a tag that extends past the bytes
/// given, with a frame followed by an agreeing one, or, further on, by two of them.
bool MP3_IsStream(std::span<const uint8_t> head);

#pragma GCC visibility pop
