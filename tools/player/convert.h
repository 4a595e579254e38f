// A sound into a file of linear samples.
#pragma once

#include <string>

#include "tools/player/sound.h"

/// Whether the file's ending is one that Player_Convert knows: .wav for RIFF WAVE, .raw for samples
/// alone, little-endian and those of 8 bits unsigned.
bool Player_CanWrite(const std::string &path);

/// Writes what the card would get of so many passes to `path`, as a whole: until it is complete,
/// the file there stays as it was. Shows its progress. Returns why it failed, empty when it did
/// not; a signal that asks for the end is such a reason.
std::string Player_Convert(PLAYER_SOUND &sound, uint32_t passes, const std::string &path);
