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

/// Sound data, or without bytes silence.
struct VOC_PIECE {
    uint32_t Start, Bytes;   // in the file
    uint32_t Silence, Rate;  // frames; Hz that the file counts them in
};

struct VOC_HEADER {
    uint32_t FileSize;       // bytes
    uint16_t Codec;          // 0 unsigned 8-bit, 4 signed 16-bit, 6 A-law, 7 mu-law
    uint16_t Channels = 1;   // as it stays without a block that says it
    uint32_t SamplingRate;   // Hz
    uint16_t BitsPerSample;  // of the output
    uint16_t Version;        // major * 256 + minor
    uint32_t Validation;     // not checked
    uint32_t DataStart;      // first sample byte; 0 where no sound block was found
    uint8_t Rules;           // AUDIO_RULES that it was loaded by
    // By the format's rules:
    SOUND_FRAMES Frames;
    std::vector<VOC_PIECE> Pieces;  // in the order of playing
    size_t Piece;                   // the last refill's last one
    uint32_t Done;                  // bytes of it, frames of silence, that were given
};

/// The files that this thread loaded, in the order of loading; null where none is.
extern constinit thread_local SOUND_TABLE<VOC_HEADER> VOC_Header;
extern constinit thread_local uint8_t VOC_SoundNumber;  // slot that the next load fills
extern constinit thread_local SOUND_FILE VOC_File;      // being loaded

/// Reads the block headers in the first 1024 bytes into slot VOC_SoundNumber, and moves that on. A
/// file that cannot be opened, or when all slots are used, does nothing.
void VOC_Load(const char *path);

/// Decodes from the position of `file` on into `buffer`. *length becomes the bytes stored less one
/// (8 bits) or two (others), on purpose; 0 at the end of the file. Other codecs leave both as they
/// are. A block header inside the data is played.
void VOC_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, on any thread.
SOUND_FILLED VOC_Fill(VOC_HEADER &record, const SOUND_REFILL &refill);

/// Puts `file` at `frame` of the sound or shortly before it. Returns the frame there.
uint64_t VOC_Seek(VOC_HEADER &record, FILE *file, uint64_t frame);

/// Empties this thread's table. VOC_SoundNumber stays as it is.
void VOC_Destroy();

/// Record n, null if no such record exists.
VOC_HEADER *VOC_GetHeader(uint8_t n);

/// Sets the slot that the next load fills; the table lets a record there go.
void VOC_SetSoundNumber(uint8_t n);

#pragma GCC visibility pop
