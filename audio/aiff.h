// AIFF and AIFF-C sounds. Apple Computer, "Audio Interchange File Format" 1.3 (1989) and "AIFF-C"
// (1991).
//
// The framework's rules and the format's (Audio_Rules) differ in:
//   padding  odd chunks have none; they have, unless that leads to no sound
//   order    the sound data ends the walk; chunks come in any order
//   sound    all after the data chunk's header; from that chunk's offset on to its end
//   linear   8, 16 and 32 bits, 24 in the file's order; 1 to 32 bits
//   AIFF-C   raw and G.711; none, twos, sowt, in16, in24, in32, fl32 and fl64, too
//   channels as they are; more than two mixed to two, up to 32
//   8 bits   as (128 - b) modulo 256; unsigned
//   rate     the top of its mantissa; the 80-bit number
//   lengths  reported as AIFF_Decoding says; what is stored
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>

#include "audio/sound_file.h"
#include "audio/sound_frames.h"

#pragma GCC visibility push(default)

struct AIFF_HEADER {
    uint32_t FileSize;       // bytes
    uint16_t Codec;          // 0 linear, 1 bytes as they are, 2 A-law, 3 mu-law
    uint16_t Channels = 1;   // the value without a common chunk
    uint32_t SamplingRate;   // Hz: right from 32768 to 65535, else times a power of two
    uint16_t BitsPerSample;  // of the output
    uint32_t FrameCount;
    std::array<uint8_t, 10> Rate;  // 80-bit extended floating point
    std::array<char, 18> Compression;
    uint32_t DataStart;  // first sample byte; 0 if the file has no sound data
    uint8_t Rules;       // AUDIO_RULES it was loaded under
    // By the format's rules:
    SOUND_FRAMES Frames;
    uint32_t DataEnd;  // past the last sample byte
};

/// The files that this thread loaded, in load order; null for an empty slot.
extern constinit thread_local SOUND_TABLE<AIFF_HEADER> AIFF_Header;
extern constinit thread_local uint8_t AIFF_SoundNumber;  // slot that the next load fills
extern constinit thread_local SOUND_FILE AIFF_File;      // being loaded
extern constinit thread_local uint64_t AIFF_Position;    // next byte to read

/// Big-endian numbers of 1, 2 and 4 bytes of AIFF_File at AIFF_Position, which advances. Bytes past
/// the end are 0.
uint8_t AIFF_GetByte();
uint16_t AIFF_GetWord();
uint32_t AIFF_GetDWord();

/// Walks the chunks up to the sound data into slot AIFF_SoundNumber and increments that. Does
/// nothing but leave a reason if the file cannot be opened or all slots are used.
void AIFF_Load(const char *path);

/// Decodes from the current position of `file` into `buffer`: 8 bits as (128 - b) modulo 256, 16
/// and 32 bits little-endian, 24 bits in the file's order, G.711 as 16 bits. *length becomes the
/// bytes stored less one sample (linear 16 bits: one byte), on purpose; 0 at the end of the file.
/// Other depths leave both unchanged.
void AIFF_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, on any thread.
SOUND_FILLED AIFF_Fill(AIFF_HEADER &record, const SOUND_REFILL &refill);

/// Moves `file` to `frame` of the sound or shortly before it. Returns the frame it is at.
uint64_t AIFF_Seek(AIFF_HEADER &record, FILE *file, uint64_t frame);

/// Empties this thread's table. AIFF_SoundNumber stays as it is.
void AIFF_Destroy();

/// Record n, null if no such record exists.
AIFF_HEADER *AIFF_GetHeader(uint8_t n);

/// Sets the slot that the next load fills; the table releases the record there.
void AIFF_SetSoundNumber(uint8_t n);

#pragma GCC visibility pop
