// A sound file as the player opens it: the track, and what its header says to a person.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio.h"

struct PLAYER_UNLOAD {
    void operator()(AudioTrack *track) const;
};

/// What unknown files are taken for; without Channels they are refused.
struct PLAYER_RAW {
    uint8_t Bits;  // 8 signed or 16 signed big-endian
    uint8_t Channels;
    uint32_t Hz;
};

struct PLAYER_SOUND {
    std::unique_ptr<AudioTrack, PLAYER_UNLOAD> Track;
    std::string Name;  // of the file, without its folder
    std::string Format, Codec;
    std::string Incomplete;       // what of the file is not heard, and why; empty: nothing
    bool Plays = true;            // the codec is decoded
    uint32_t Bits, Channels, Hz;  // of the output
    uint64_t Bytes = 0;           // of the output, as the header has it
    std::string Title;            // empty: none
    std::vector<std::pair<std::string, std::string>> Facts;  // further ones: what, and its value
};

/// Opens a file in its own format, a tracker module in 16-bit stereo at 44100 Hz. Returns why it
/// cannot be, empty when it was. One sound is open at a time: the one before must be gone.
std::string Player_Open(const std::string &path, const PLAYER_RAW &raw, PLAYER_SOUND &sound);

/// Why there is nothing to hear of it; empty when there is.
std::string Player_WhySilent(const PLAYER_SOUND &sound);

/// Makes the sound current and has its first pass start.
void Player_Start(const PLAYER_SOUND &sound);

/// Fills `out` with what comes next of so many passes (0: for ever), which are counted down.
/// Returns the bytes, fewer at the end only, or after a read that failed; or, for now, while the
/// next MPEG frame is far, unless Track->Ended.
size_t Player_Take(const PLAYER_SOUND &sound, uint32_t &passes, std::span<uint8_t> out);

inline uint32_t Player_FrameBytes(const PLAYER_SOUND &sound)
{
    return sound.Bits / 8 * sound.Channels;
}

/// Length of a pass.
double Player_Seconds(const PLAYER_SOUND &sound);

/// The facts for a terminal, a line each.
std::string Player_Info(const PLAYER_SOUND &sound);

/// The same as a JSON object in a line, without the brace that closes it.
std::string Player_JSON(const PLAYER_SOUND &sound);
