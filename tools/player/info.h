// A sound file's facts, for people and for programs.
#pragma once

#include <string>

#include "tools/player/sound.h"

/// The facts for a terminal, one per line.
std::string Info_Text(const PLAYER_SOUND &sound);

/// The same as a JSON object on one line.
std::string Info_JSON(const PLAYER_SOUND &sound);

/// The object for a file that cannot be opened.
std::string Info_JSON(const std::string &path, const std::string &reason);
