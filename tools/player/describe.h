// The facts in an open sound's headers, format by format.
#pragma once

#include "tools/player/sound.h"

/// Fills the fields of PLAYER_SOUND that come from the file: format, codec, length in bytes, title
/// and facts.
void Describe_Sound(PLAYER_SOUND &sound);
