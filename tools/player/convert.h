// Conversion of a sound to a file of linear samples.
#pragma once

#include <string>

#include "tools/player/samples.h"
#include "tools/player/sound.h"

/// Whether Player_Convert knows the file's name: .wav for RIFF WAVE, .raw and .pcm for bare
/// samples, or "-" for WAVE on standard output.
bool Player_CanWrite(const std::string &path);

/// Writes so many passes in the format `to`; the file at `path` is replaced only when the new one
/// is complete. On standard output the header leaves the length open if it cannot be filled in
/// later. Shows its progress. Returns why it failed, empty on success; a signal that ends the
/// program counts as a failure.
std::string Player_Convert(PLAYER_SOUND &sound, uint32_t passes, const SAMPLES_FORMAT &to,
                           const std::string &path);
