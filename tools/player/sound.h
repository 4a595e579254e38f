// A sound file opened by the player: the track, and its headers' facts for people.
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
    std::shared_ptr<const std::vector<uint8_t>> Memory;  // contents of a pipe
    std::unique_ptr<AudioTrack, PLAYER_UNLOAD> Track;
    std::string Path, Name;  // as given; without its folder
    std::string Format, Codec;
    std::string Incomplete;       // what of the file is not played, and why; empty: all is
    bool Plays = true;            // the codec is decoded
    uint32_t Bits, Channels, Hz;  // of the output
    bool Real = false;            // which is floating point
    uint64_t Bytes = 0;           // of the output, by the header
    uint64_t From = 0, Until = UINT64_MAX;                   // bytes: limits of a pass
    std::string Title;                                       // empty: none
    std::vector<std::pair<std::string, std::string>> Facts;  // further ones: name and value
};

/// Why there is nothing to hear; empty if there is.
std::string Player_WhySilent(const PLAYER_SOUND &sound);

/// Makes the sound current and starts its first pass.
void Player_Start(const PLAYER_SOUND &sound);

/// Fills `out` with the next bytes of `passes` passes (0: for ever), which is counted down. Returns
/// the bytes. Fewer than asked means the end or a failed read or, if Player_HasEnded denies it,
/// that the next MPEG frame is far off and another call will go on.
size_t Player_Take(const PLAYER_SOUND &sound, uint32_t &passes, std::span<uint8_t> out);

/// Whether the last pass has been taken.
bool Player_HasEnded(const PLAYER_SOUND &sound);

/// Moves to exactly `seconds` of the sound, or to its end. Not while a stream takes from it.
void Player_Seek(const PLAYER_SOUND &sound, double seconds);

inline uint32_t Player_FrameBytes(const PLAYER_SOUND &sound)
{
    return sound.Bits / 8 * sound.Channels;
}

inline SAMPLES_FORMAT Player_Format(const PLAYER_SOUND &sound)
{
    return {sound.Bits, sound.Channels, sound.Hz, sound.Real};
}

/// Duration of so many bytes of the output.
double Player_Seconds(const PLAYER_SOUND &sound, uint64_t bytes);

/// Size of so many seconds, in whole frames.
uint64_t Player_BytesAt(const PLAYER_SOUND &sound, double seconds);

/// Size of a pass, by the header.
uint64_t Player_PassBytes(const PLAYER_SOUND &sound);
