// What a sound file says, for people and for programs.
#pragma once

#include <string>

#include "tools/player/sound.h"

/// The facts for a terminal, a line each.
std::string Info_Text(const PLAYER_SOUND &sound);

/// The same as a JSON object in a line.
std::string Info_JSON(const PLAYER_SOUND &sound);

/// The object of a file that cannot be opened.
std::string Info_JSON(const std::string &path, const std::string &reason);
