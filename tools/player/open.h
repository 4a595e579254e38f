// Opens sounds from files and pipes, as the command line says.
#pragma once

#include <cstdint>
#include <string>

#include "tools/player/sound.h"

/// The sample format of unknown files; without Channels they are rejected.
struct PLAYER_RAW {
    uint8_t Bits;  // 8 signed or 16 signed big-endian
    uint8_t Channels;
    uint32_t Hz;
};

/// How sounds are opened.
struct PLAYER_SETTINGS {
    PLAYER_RAW Raw = {};
    uint32_t Hz = 0;     // rate to render tracker modules at; 0: 44100
    bool Deep = false;   // MPEG audio and modules give 32 bits, not 16
    bool Real = false;   // floating point stays so, beyond full scale, too
    double Start = 0;    // seconds into the sound where its passes begin
    double Length = -1;  // their duration in seconds; below 0: to the sound's end
};

/// The path that means standard input.
constexpr const char *Player_Input = "-";

/// Opens a file in its own format, a tracker module in 16-bit stereo. A pipe and standard input are
/// first read to their end, at most 1 GiB. Returns why it failed, empty on success. Only one sound
/// may be open at a time: release the previous one first.
std::string Player_Open(const std::string &path, const PLAYER_SETTINGS &settings,
                        PLAYER_SOUND &sound);
