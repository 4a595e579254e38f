// The hall in which the game's music is played: echoes, reflections, and the overall level.
#pragma once

#include "tools/art/voices.h"

/// The mix of all voices. Its end rings on into its start.
SOUND Hall_Mix(MIX mix);
