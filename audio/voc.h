// Creative Voice files: blocks of 8-bit, 16-bit or G.711 samples, described in Creative Labs' "VOC
// File Format".
//
// The framework's rules and the format's (Audio_Rules) differ in:
//   blocks   the first sound block that the file's start shows is taken for all of the file; each
//            by its length: sound, more of it, silence, repeats (endless ones once), markers, texts
//   rate     the sound data block's after an extended block, too; the extended block's
//   lengths  reported as VOC_Decoding says; what is stored
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "audio/sound_file.h"
#include "audio/sound_frames.h"

#pragma GCC visibility push(default)

/// A run of sound data, or of silence if it has no bytes.
struct VOC_PIECE {
    uint32_t Start, Bytes;   // in the file
    uint32_t Silence, Rate;  // frames; the rate in Hz that the file counts them at
};

struct VOC_HEADER {
    uint32_t FileSize;       // bytes
    uint16_t Codec;          // 0 unsigned 8-bit, 4 signed 16-bit, 6 A-law, 7 mu-law
    uint16_t Channels = 1;   // the value without a block that states it
    uint32_t SamplingRate;   // Hz
    uint16_t BitsPerSample;  // of the output
    uint16_t Version;        // major * 256 + minor
    uint32_t Validation;     // not checked
    uint32_t DataStart;      // first sample byte; 0 if no sound block was found
    uint8_t Rules;           // AUDIO_RULES it was loaded under
    // By the format's rules:
    SOUND_FRAMES Frames;
    std::vector<VOC_PIECE> Pieces;  // in the order of playing
    size_t Piece;                   // the one that the last refill stopped in
    uint32_t Done;                  // what was given of it: bytes, or frames of silence
};

/// The files that this thread loaded, in load order; null for an empty slot.
extern constinit thread_local SOUND_TABLE<VOC_HEADER> VOC_Header;
extern constinit thread_local uint8_t VOC_SoundNumber;  // slot that the next load fills
extern constinit thread_local SOUND_FILE VOC_File;      // being loaded

/// Reads the block headers in the first 1024 bytes into slot VOC_SoundNumber and increments that.
/// Does nothing if the file cannot be opened or all slots are used.
void VOC_Load(const char *path);

/// Decodes from the current position of `file` into `buffer`. *length becomes the bytes stored less
/// one (8 bits) or two (others), on purpose; 0 at the end of the file. Other codecs leave both
/// unchanged. A block header inside the data is played.
void VOC_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, on any thread.
SOUND_FILLED VOC_Fill(VOC_HEADER &record, const SOUND_REFILL &refill);

/// Moves `file` to `frame` of the sound or shortly before it. Returns the frame it is at.
uint64_t VOC_Seek(VOC_HEADER &record, FILE *file, uint64_t frame);

/// Empties this thread's table. VOC_SoundNumber stays as it is.
void VOC_Destroy();

/// Record n, null if no such record exists.
VOC_HEADER *VOC_GetHeader(uint8_t n);

/// Sets the slot that the next load fills; the table releases the record there.
void VOC_SetSoundNumber(uint8_t n);

#pragma GCC visibility pop
