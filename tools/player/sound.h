// A sound file as the player opens it: the track, and what its header says to a person.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio.h"
#include "tools/player/samples.h"

struct PLAYER_UNLOAD {
    void operator()(AudioTrack *track) const;
};

struct PLAYER_SOUND {
    std::shared_ptr<const std::vector<uint8_t>> Memory;  // of what came through a pipe
    std::unique_ptr<AudioTrack, PLAYER_UNLOAD> Track;
    std::string Path, Name;  // as it was given; without its folder
    std::string Format, Codec;
    std::string Incomplete;       // what of the file is not heard, and why; empty: nothing
    bool Plays = true;            // the codec is decoded
    uint32_t Bits, Channels, Hz;  // of the output
    uint64_t Bytes = 0;           // of the output, as the header has it
    uint64_t From = 0, Until = UINT64_MAX;                   // bytes: where a pass begins and ends
    std::string Title;                                       // empty: none
    std::vector<std::pair<std::string, std::string>> Facts;  // further ones: what, and its value
};

/// Why there is nothing to hear of it; empty when there is.
std::string Player_WhySilent(const PLAYER_SOUND &sound);

/// Makes the sound current and has its first pass start.
void Player_Start(const PLAYER_SOUND &sound);

/// Fills `out` with what comes next of so many passes (0: for ever), which are counted down.
/// Returns the bytes, fewer at the end only, or after a read that failed; or, for now, while the
/// next MPEG frame is far, unless it has ended.
size_t Player_Take(const PLAYER_SOUND &sound, uint32_t &passes, std::span<uint8_t> out);

/// Whether the last pass has been taken.
bool Player_HasEnded(const PLAYER_SOUND &sound);

/// Moves to `seconds` of the sound, or to its end, exactly. Not while a stream takes of it.
void Player_Seek(const PLAYER_SOUND &sound, double seconds);

inline uint32_t Player_FrameBytes(const PLAYER_SOUND &sound)
{
    return sound.Bits / 8 * sound.Channels;
}

inline SAMPLES_FORMAT Player_Format(const PLAYER_SOUND &sound)
{
    return {sound.Bits, sound.Channels, sound.Hz};
}

/// Seconds of so many bytes of the output.
double Player_Seconds(const PLAYER_SOUND &sound, uint64_t bytes);

/// Bytes of so many seconds, whole frames.
uint64_t Player_BytesAt(const PLAYER_SOUND &sound, double seconds);

/// Bytes of a pass, as the header has them.
uint64_t Player_PassBytes(const PLAYER_SOUND &sound);
