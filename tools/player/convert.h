// A sound into a file of linear samples.
#pragma once

#include <string>

#include "tools/player/samples.h"
#include "tools/player/sound.h"

/// Whether the file's name is one that Player_Convert knows: .wav for RIFF WAVE, .raw and .pcm for
/// samples alone, or "-" for WAVE on standard output.
bool Player_CanWrite(const std::string &path);

/// Writes so many passes in the format `to`, as a whole: until it is complete, the file at `path`
/// stays as it was. On standard output the header leaves the length open where it cannot be filled
/// in later. Shows its progress. Returns why it failed, empty when it did not; a signal that asks
/// for the end is such a reason.
std::string Player_Convert(PLAYER_SOUND &sound, uint32_t passes, const SAMPLES_FORMAT &to,
                           const std::string &path);
