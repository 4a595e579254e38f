// Sun and NeXT sound files: a header of big-endian numbers and samples of one of many encodings.
//
// The framework's rules and the format's (Audio_Rules) differ in:
//   encodings  1 to 5 and 27; floating point (6 and 7), too
//   order      big-endian; little-endian, too, where the file's first word says so
//   channels   as they are; more than two mixed to two, up to 32
//   end        of the file, and none for encodings 3 and 5; where the header says
//   8 bits     as (128 - b) modulo 256; unsigned
//   lengths    reported as AU_Decoding says; what is stored
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "audio/sound_file.h"
#include "audio/sound_frames.h"

#pragma GCC visibility push(default)

/// Whether a file's first four bytes are those of a little-endian one.
constexpr bool AU_IsLittle(std::string_view start)
{
    return start == "dns." || start == std::string_view("\0ds.", 4);
}

struct AU_HEADER {
    uint32_t FileSize;  // bytes
    uint16_t Encoding;  // 1 mu-law, 2 to 5 signed 8, 16, 24 and 32-bit, 6, 7 float, 27 A-law
    uint16_t Channels;
    uint32_t SamplingRate;   // Hz
    uint16_t BitsPerSample;  // of the output
    uint32_t DataStart;      // first sample byte
    uint8_t Rules;           // AUDIO_RULES it was loaded under
    // By the format's rules:
    SOUND_FRAMES Frames;
    uint32_t DataEnd;  // past the last sample byte
};

/// The files that this thread loaded, in load order; null for an empty slot.
extern constinit thread_local SOUND_TABLE<AU_HEADER> AU_Header;
extern constinit thread_local uint8_t AU_SoundNumber;  // slot that the next load fills
extern constinit thread_local SOUND_FILE AU_File;      // being loaded

/// Reads the header into slot AU_SoundNumber and increments that. Does nothing if the file cannot
/// be opened or all slots are used.
void AU_Load(const char *path);

/// Decodes from the current position of `file` into `buffer`, little-endian. *length becomes the
/// bytes stored less one sample, on purpose; 0 at the end of the file. Encodings 3 and 5 lose only
/// one byte and never end: bytes 0xFF follow. Others leave both unchanged.
void AU_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, on any thread.
SOUND_FILLED AU_Fill(AU_HEADER &record, const SOUND_REFILL &refill);

/// Moves `file` to `frame` of the sound or shortly before it. Returns the frame it is at.
uint64_t AU_Seek(AU_HEADER &record, FILE *file, uint64_t frame);

/// Empties this thread's table. AU_SoundNumber stays as it is.
void AU_Destroy();

/// Record n, null if no such record exists.
AU_HEADER *AU_GetHeader(uint8_t n);

/// Sets the slot that the next load fills; the table releases the record there.
void AU_SetSoundNumber(uint8_t n);

#pragma GCC visibility pop
