// IFF sounds: 8SVX and 16SV forms. Electronic Arts, "8SVX" IFF 8-Bit Sampled Voice (1985), over
// "EA IFF 85".
//
// The framework's rules and the format's (Audio_Rules) differ in:
//   padding   odd chunks have none; they have, unless that leads to no sound
//   end       of the file; of the body
//   channels  always one; two where the channel chunk says so, one's bytes after the other's
//   packing   ignored; Fibonacci and exponential delta are decoded, a byte's low code first
//   8 bits    as (128 - b) modulo 256; unsigned
//   lengths   reported as IFF_Decoding says; what is stored
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>

#include "audio/sound_file.h"

#pragma GCC visibility push(default)

struct IFF_HEADER {
    uint32_t FileSize;     // bytes
    uint16_t Compression;  // 0 none, 1 Fibonacci delta, 2 exponential delta
    uint16_t Channels = 1;
    uint32_t SamplingRate;   // Hz
    uint16_t BitsPerSample;  // 8 or 16; 0 without a form
    std::array<char, 128> Annotation;
    uint32_t OneShotCount, RepeatCount, SamplesPerCycle;
    uint8_t Octaves;
    uint32_t DataStart;  // first sample byte; 0 if the file has no body
    uint8_t Rules;       // AUDIO_RULES it was loaded under
    // By the format's rules:
    uint32_t DataEnd;               // past the left channel's last byte
    uint32_t ChannelBytes;          // from that channel's bytes to the right one's
    uint32_t Next;                  // the position that Samples belong to, of packed sound
    std::array<int8_t, 2> Samples;  // each channel's value before it
};

/// The files that this thread loaded, in load order; null for an empty slot.
extern constinit thread_local SOUND_TABLE<IFF_HEADER> IFF_Header;
extern constinit thread_local uint8_t IFF_SoundNumber;  // slot that the next load fills
extern constinit thread_local SOUND_FILE IFF_File;      // being loaded
extern constinit thread_local uint64_t IFF_Position;    // next byte to read

/// Big-endian numbers of 1, 2 and 4 bytes of IFF_File at IFF_Position, which advances. Bytes past
/// the end are 0.
uint8_t IFF_GetByte();
uint16_t IFF_GetWord();
uint32_t IFF_GetDWord();

/// Walks the chunks up to the body into slot IFF_SoundNumber and increments that. Does nothing if
/// the file cannot be opened or all slots are used.
void IFF_Load(const char *path);

/// Decodes from the current position of `file` into `buffer`: 8 bits as (128 - b) modulo 256, 16
/// bits little-endian. *length becomes the bytes stored less one, on purpose; 0 at the end of the
/// file. Without a form both stay unchanged.
void IFF_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, on any thread.
SOUND_FILLED IFF_Fill(IFF_HEADER &record, const SOUND_REFILL &refill);

/// Moves `file` to `frame` of the sound or shortly before it. Returns the frame it is at.
uint64_t IFF_Seek(IFF_HEADER &record, FILE *file, uint64_t frame);

/// Empties this thread's table. IFF_SoundNumber stays as it is.
void IFF_Destroy();

/// Record n, null if no such record exists.
IFF_HEADER *IFF_GetHeader(uint8_t n);

/// Sets the slot that the next load fills; the table releases the record there.
void IFF_SetSoundNumber(uint8_t n);

#pragma GCC visibility pop
