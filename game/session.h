// A game from set-up to end: opens the window, loads the tiles, starts the music and the timer;
// saves the result and releases everything.
#pragma once

#include <array>

#include "audio/audio.h"

extern AudioTrack *music;
extern std::array<char, 32> tmpStr;  // the player's result

/// The whole set-up, up to the running timer. Without a window the process ends with status 1. From
/// then on a signal that asks the program to end (SIGHUP, SIGTERM, after the timer's end SIGINT)
/// ends the frame loop. If the display is lost the process ends with status 1 and one line on
/// standard error; a won game's result is saved first.
void Velmorandis();

/// Hides the window, stops clock and music, says goodbye, shows the table, saves a won game's
/// result, asks for the player's name, and releases everything. The result is saved before the
/// question, as "??????", and again under the name, which is empty if the program is asked to end
/// instead. If a signal asked, the process finally ends by that signal.
void Destroy();
