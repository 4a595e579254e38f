// Tracker modules: the records of loaded songs and the refilling of sound buffers. The parts:
// audio/mod_song.h reads a file, audio/mod_replay.h runs the song, audio/mod_mixer.h renders it.
//
// Every thread has its own table; a record is rendered by one thread at a time.
//
// The framework's rules and the format's (Audio_Rules) differ in:
//   signatures those of MOD_IsSignature, 8 channels as they are named; those of other editors, too,
//              and 8 channels where the file's length shows them
//   without    15 samples if one of ten marks stands in the signature's place; if header and
//              patterns make sense throughout
//   loops      with 15 samples, the start counts words if that fits, and the sample is first heard
//              up to its end; it counts bytes, and only the loop is heard
//   dialects   all files as the original plays them; those of other editors (MOD_SONG::Foreign) by
//              these: a sample without a note waits for the next note, offsets do not add up, a
//              delay delays the sample, too, a portamento from no note starts one, and slides
//              leave the three octaves
//   speed 0    ends the song; does nothing, as in other players
//   ticks      as long as the tempo says; whole frames, as in other players
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "audio/mod_mixer.h"
#include "audio/mod_song.h"
#include "audio/sound_file.h"

#pragma GCC visibility push(default)

struct MOD_HEADER {
    // The output format, which the engine overwrites after the load.
    uint8_t Channels;       // 1 or 2; if more, the others are silent
    uint32_t SamplingRate;  // Hz
    uint8_t BitsPerSample;  // 8 (unsigned), 16, 24 or 32 (signed, little-endian)
    uint32_t DataStart;     // 0: the sound is not part of the file
    // The row that follows the last buffer. Setting both to 0 from any thread starts the song over,
    // unless they are 0 already.
    std::atomic<uint16_t> SongPosition, Row;
    uint32_t Milliseconds;                             // length of the song
    std::array<char, 21> Title;                        // NUL at its end
    uint8_t SongChannels;                              // of the song, 1 to 99
    uint8_t SongLength;                                // orders played, 1 to 128
    uint8_t SampleCount;                               // 15 or 31
    std::array<std::array<char, 23>, 31> SampleNames;  // NUL at the end of each
    uint8_t Rules;                                     // AUDIO_RULES it was loaded under
    // From the switches below at the load. The rendering thread may change them.
    uint8_t Interpolation, Separation;
};

/// How songs loaded from now on are rendered. A MOD_INTERPOLATION, by default MOD_SINC, which
/// higher values also mean; and the stereo separation in percent, 0 to 100, by default 50: 0 is
/// mono, 100 leaves nothing of one side in the other.
extern constinit thread_local uint8_t MOD_Interpolation;
extern constinit thread_local uint8_t MOD_Separation;

/// The songs that this thread loaded, in load order; null for an empty slot.
extern constinit thread_local SOUND_TABLE<MOD_HEADER> MOD_Header;
extern constinit thread_local uint8_t MOD_SoundNumber;  // slot that the next load fills

/// Reads a module into slot MOD_SoundNumber and increments that. Does nothing but leave a reason if
/// the file cannot be opened or is not a module, or all slots are used.
void MOD_Load(const char *path);

/// Renders song n from its current place into `buffer`: at most *length bytes, whole frames in the
/// record's format. *length becomes the bytes written: 0 at the end of the song (which lasts until
/// the song is started over), for an empty slot, and for a format that cannot be rendered.
///
/// A song ends after its last order, where a command stops it, and where a jump would play a row
/// for the second time: so every song ends, after 65536 rows at the latest.
void MOD_Decoding(uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, which MOD_Load made, on any thread.
SOUND_FILLED MOD_Fill(MOD_HEADER &header, const SOUND_REFILL &refill);

/// Has the next decoding of a song that has started over begin at exactly `frame`, or at the end if
/// that comes first: the song runs up to there without being rendered. Returns where it is. For the
/// thread that renders it; `file` is not used.
uint64_t MOD_Seek(MOD_HEADER &header, FILE *file, uint64_t frame);

/// The state of a song during a tick.
struct MOD_VIEW {
    uint64_t Frame;   // of the song, at the start of the tick
    uint32_t Frames;  // its length
    uint8_t Position, Pattern, Row;
    uint8_t Speed, Tempo;                         // ticks a row; ticks in 2.5 s
    std::array<uint8_t, MOD_MaxChannels> Levels;  // volumes of sounding channels, 0 to 64
};

/// The state at a frame that was rendered within the last MOD_Views ticks; nothing for others. On
/// any thread, even while the song is rendered.
constexpr size_t MOD_Views = 512;
std::optional<MOD_VIEW> MOD_GetView(const MOD_HEADER &header, uint64_t frame);

/// Has the next decoding of a song start at the beginning. For the thread that renders it.
void MOD_StartOver(MOD_HEADER &header);

/// Empties this thread's table; MOD_SoundNumber stays as it is.
void MOD_Destroy();

/// Record n, null if no such record exists.
MOD_HEADER *MOD_GetHeader(uint8_t n);

/// Sets the slot that the next load fills. The table releases the record there.
void MOD_SetSoundNumber(uint8_t n);

#pragma GCC visibility pop
