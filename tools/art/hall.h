// The hall in which the game's music is played: echoes, reflections, and the level of the whole.
#pragma once

#include "tools/art/voices.h"

/// What is heard of all voices together. Its end rings on into its start.
SOUND Hall_Mix(MIX mix);
