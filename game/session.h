// A game from its set-up to its end: what opens the window, loads the tiles and starts the music
// and the timer, and what saves the result and releases everything.
#pragma once

#include <array>

#include "audio/audio.h"

extern AudioTrack *music;
extern std::array<char, 32> tmpStr;  // the player's result

/// The whole set-up, up to the running timer. Ends the process with status 1 without a window. From
/// then on a signal that asks the program to end (SIGHUP, SIGTERM, after the timer's end SIGINT)
/// ends the frame loop, and the loss of the display ends the process with status 1 and one line on
/// standard error; a won game's result is saved first.
void Velmorandis();

/// Hides the window, stops clock and music, says goodbye, shows the table, saves a won game's
/// result, asks for the player's name, and releases everything. The result is in the file before
/// the question, as "??????", and afterwards under the name, which is empty when the program is
/// asked to end instead. A signal that did so ends the process as it would have at once.
void Destroy();
