// A song in progress: rows, effects and their memory, tick by tick, as ProTracker 2.3 plays them on
// a PAL machine. Its output for each channel is a MOD_VOICE.
//
// Each tick either reads a row or processes the row that was read last. Positions are those of the
// next row to be read.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "audio/mod_mixer.h"
#include "audio/mod_song.h"

/// Vibrato or tremolo: a period is 256 steps of the position, which wraps.
struct MOD_WAVE {
    uint8_t Speed, Depth;  // 0 to 15, kept until set again
    uint8_t Position;
    uint8_t Shape;  // 0 sine, 1 ramp, 2 and 3 square; plus 4: notes do not reset the position
};

/// The period that commands count in, and the pitch that sounds: the original's whole periods
/// deviate by up to seven cents from their notes.
struct MOD_PITCH {
    uint16_t Period;  // clocks of the chip per sample; 0: none
    int8_t Quarters;  // by which the true period is longer, in quarters of a clock
};

struct MOD_CHANNEL {
    MOD_CELL Cell;  // of the current row
    uint8_t Sample, Finetune, Volume;
    uint32_t Start, Length;          // the run of the sample that the next note plays, bytes
    uint32_t LoopStart, LoopLength;  // the loop that follows it
    MOD_PITCH Pitch;                 // without vibrato and arpeggio; none before the first note
    MOD_PITCH Wanted;                // target of the portamento
    bool WantedIsHigher;             // the target was higher in pitch when the portamento was set
    uint8_t PortamentoSpeed;
    bool Glissando;  // the portamento moves in semitones
    MOD_WAVE Vibrato, Tremolo;
    uint8_t Offset;              // of the last sample offset
    uint8_t LoopRow, LoopsLeft;  // of the pattern loop
    uint8_t InvertSpeed, InvertCount;
    uint32_t InvertAt;  // byte of the loop that was inverted last
};

struct MOD_PLAYER {
    const MOD_SONG *Song;
    std::array<std::vector<int8_t>, MOD_MaxSamples + 1> Waves;  // samples, as inverted so far
    std::vector<MOD_CHANNEL> Channels;
    std::vector<MOD_VOICE> Voices;
    uint8_t Position, Row;            // order, and row of its pattern
    uint8_t PlaysPosition, PlaysRow;  // of the row that was read last
    uint8_t Speed, Tempo;             // ticks a row; ticks in 2.5 s
    uint8_t Tick;                     // of the row
    uint8_t Delay, DelayLeft;
    uint8_t BreakRow;  // row to continue with if one of these is set:
    bool RowBreak;     // in this pattern
    bool Jump;         // in the pattern after Position
    bool Filter;
    bool AtEnd;         // the next row is past the last one
    uint32_t RowsLeft;  // left to read
};

struct MOD_LENGTH {
    uint32_t Rows;
    uint32_t Milliseconds;
};

/// Length of the song: to its last order, to a command that stops it, or to where it would repeat
/// itself: at a row that was played already, unless a pattern loop is still counting down. Rows
/// that loops repeat count each time; the limit is 65536 rows.
MOD_LENGTH MOD_Measure(const MOD_SONG &song);

/// Starts a player at the beginning of `song`, which must outlive it, for at most `rows` rows.
void MOD_Start(MOD_PLAYER &player, const MOD_SONG &song, uint32_t rows);

/// Advances by a tick of 2.5 / Tempo seconds. False at the end of the song, and from then on.
bool MOD_Tick(MOD_PLAYER &player);
