// What the headers of an open sound say, format by format.
#pragma once

#include "tools/player/sound.h"

/// Fills what PLAYER_SOUND has of the file: format, codec, length in bytes, title and facts.
void Describe_Sound(PLAYER_SOUND &sound);
