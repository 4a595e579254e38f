// RIFF WAVE files: linear samples, G.711 and the two ADPCM codecs. Microsoft and IBM's RIFF (1991),
// Microsoft's "New Multimedia Data Types and Data Techniques" (1994) and WAVEFORMATEXTENSIBLE.
//
// The framework's rules and the format's (Audio_Rules) differ in:
//   kinds    RIFF; RIFX (big-endian), RF64 and BW64 (EBU Tech 3306), too
//   chunks   what the walk does not find is taken from where a file without extra chunks has it; a
//            reason, and no sound
//   linear   8, 16, 24 and 32 bits; integers in 1 to 8 bytes, floating point in 4 and 8
//   channels as they are; more than two mixed to two, up to 32
//   IMA      a block's first samples are not output; they are
//   ADPCM    Microsoft's predictions are truncated; rounded down. Whole blocks; a short last one
//            too
//   MPEG     not decoded; Audio_Check leaves it to the MPEG decoder where it sees its frames
//   lengths  reported as WAV_Decoding says; what is stored
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "audio/sound_file.h"
#include "audio/sound_frames.h"
#include "audio/wav_adpcm.h"

#pragma GCC visibility push(default)

struct WAV_HEADER {
    uint32_t FileSize;      // bytes
    uint16_t FormatTag;     // 1 linear, 2 Microsoft ADPCM, 3 float, 6 A-law, 7 mu-law, 17 IMA ADPCM
    uint16_t Channels;      // of the output
    uint32_t SamplingRate;  // Hz
    uint32_t BytesPerSecond;  // on average
    uint16_t BlockAlign;      // bytes of an ADPCM block
    uint16_t BitsPerSample;   // of the output
    // ADPCM:
    uint32_t FormatChunkSize;
    // Microsoft ADPCM:
    uint16_t ExtraFormatSize;
    uint16_t SamplesPerBlock;
    uint16_t CoefficientPairs;
    std::array<int32_t, 32> Coefficients1, Coefficients2;

    std::array<WAV_CHANNEL, 2> Decoder;
    uint32_t DataStart;  // first sample byte; 0 for other tags
    uint32_t DataEnd;    // past the last sample byte
    uint8_t Rules;       // AUDIO_RULES it was loaded under
    // By the format's rules:
    SOUND_FRAMES Frames;
    uint32_t BlockFrames;        // of ADPCM; 0 for other sound
    std::vector<uint8_t> Block;  // room for one block and its output
};

/// The files that this thread loaded, in load order; null for an empty slot.
extern constinit thread_local SOUND_TABLE<WAV_HEADER> WAV_Header;
extern constinit thread_local uint8_t WAV_SoundNumber;  // slot that the next load fills
extern constinit thread_local SOUND_FILE WAV_File;      // being loaded

/// Reads the header into slot WAV_SoundNumber and increments that. FormatTag is the extensible
/// format's sub-format if the file has one. Does nothing if the file cannot be opened or all slots
/// are used.
void WAV_Load(const char *path);

/// Decodes from the current position of `file` into `buffer`, compressed sound as 16-bit
/// little-endian samples. *length becomes, on purpose,
/// - linear and G.711: the bytes stored less one sample;
/// - ADPCM: 4 bytes for each byte of codes in a block, times the blocks that fit; their number is
///   taken modulo 256. Microsoft's blocks also store their two first frames, so the last frames of
///   a refill are not counted.
/// It is 0 at the end of the data. Other tags, and linear depths but 8, 16, 24 and 32 bits, leave
/// both unchanged.
void WAV_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, on any thread.
SOUND_FILLED WAV_Fill(WAV_HEADER &record, const SOUND_REFILL &refill);

/// Moves `file` to `frame` of the sound or shortly before it. Returns the frame it is at.
uint64_t WAV_Seek(WAV_HEADER &record, FILE *file, uint64_t frame);

/// The next sample of a channel (0 or 1) of record n, whose decoder consumes a code of 4 bits.
int32_t WAV_MS_ADPCM_GetNextSample(uint8_t n, uint8_t channel, uint8_t code);
int32_t WAV_IMA_ADPCM_GetNextSample(uint8_t n, uint8_t channel, uint8_t code);

/// Empties this thread's table. WAV_SoundNumber stays as it is.
void WAV_Destroy();

/// Record n, null if no such record exists.
WAV_HEADER *WAV_GetHeader(uint8_t n);

/// Sets the slot that the next load fills; the table releases the record there.
void WAV_SetSoundNumber(uint8_t n);

#pragma GCC visibility pop
