// The song as it runs: rows, effects and their memory, tick by tick, as ProTracker 2.3 plays them
// on a PAL machine. What it hears of a channel is a MOD_VOICE.
//
// Each tick either reads a row or works on the row that was read last. Positions are those of the
// next row to be read.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "audio/mod_mixer.h"
#include "audio/mod_song.h"

/// Vibrato or tremolo: a period is 256 steps of the position, which wraps.
struct MOD_WAVE {
    uint8_t Speed, Depth;  // 0 to 15, kept until others are given
    uint8_t Position;
    uint8_t Shape;  // 0 sine, 1 ramp, 2 and 3 square; plus 4: notes do not restart it
};

/// What the commands count and what is heard: the original's whole periods lie up to seven cents
/// off their notes.
struct MOD_PITCH {
    uint16_t Period;  // clocks of the chip for a sample; 0: none
    int8_t Quarters;  // of a clock, that the true period is longer
};

struct MOD_CHANNEL {
    MOD_CELL Cell;  // of the row that plays
    uint8_t Sample, Finetune, Volume;
    uint32_t Start, Length;          // run of the sample that the next note plays, bytes
    uint32_t LoopStart, LoopLength;  // and what follows it
    MOD_PITCH Pitch;                 // without vibrato and arpeggio; none before the first note
    MOD_PITCH Wanted;                // where the portamento goes
    bool WantedIsHigher;             // in pitch, when the portamento was aimed
    uint8_t PortamentoSpeed;
    bool Glissando;  // the portamento is heard in semitones
    MOD_WAVE Vibrato, Tremolo;
    uint8_t Offset;              // of the last sample offset
    uint8_t LoopRow, LoopsLeft;  // of the pattern loop
    uint8_t InvertSpeed, InvertCount;
    uint32_t InvertAt;  // byte of the loop that was inverted last
};

struct MOD_PLAYER {
    const MOD_SONG *Song;
    std::array<std::vector<int8_t>, MOD_MaxSamples + 1> Waves;  // the samples, as inverted so far
    std::vector<MOD_CHANNEL> Channels;
    std::vector<MOD_VOICE> Voices;
    uint8_t Position, Row;            // order, and row of its pattern
    uint8_t PlaysPosition, PlaysRow;  // of the row that was read last
    uint8_t Speed, Tempo;             // ticks a row; ticks in 2.5 s
    uint8_t Tick;                     // of the row
    uint8_t Delay, DelayLeft;
    uint8_t BreakRow;  // row to go on with, when one of these says so:
    bool RowBreak;     // in this pattern
    bool Jump;         // in the next, after Position
    bool Filter;
    bool AtEnd;         // the next row is past the last
    uint32_t RowsLeft;  // to be read
};

struct MOD_LENGTH {
    uint32_t Rows;
    uint32_t Milliseconds;
};

/// How far the song goes: past its last order, to a command that stops it, or to where it
/// would go on as it did before: at a row that was played already, by no pattern loop that is
/// counting down. Rows that loops repeat count each time; after 65536 of them it ends anyway.
MOD_LENGTH MOD_Measure(const MOD_SONG &song);

/// A player at the start of `song`, which must stay, for so many of its rows.
void MOD_Start(MOD_PLAYER &player, const MOD_SONG &song, uint32_t rows);

/// Goes on by a tick of 2.5 / Tempo seconds. False at the end of the song, and from then on.
bool MOD_Tick(MOD_PLAYER &player);
