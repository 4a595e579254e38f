// A sound into a RIFF WAVE file of linear samples.
#pragma once

#include <string>

#include "tools/player/sound.h"

/// Writes what the card would get of so many passes to `path`, as a whole: until it is complete,
/// the file there stays as it was. Shows its progress. Returns why it failed, empty when it did
/// not; a signal that asks for the end is such a reason.
std::string Player_Convert(PLAYER_SOUND &sound, uint32_t passes, const std::string &path);
