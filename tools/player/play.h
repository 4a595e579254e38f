// Plays sounds on the sound card, one after the other, controlled by keys.
#pragma once

#include "tools/player/options.h"

/// Prints a line about a file on standard error, clearing the terminal's display first.
void Play_Report(const std::string &file, const std::string &reason);

/// Plays the files. Returns the exit status; errors have been reported.
int Play_Files(const OPTIONS &options);

/// Prints the sound devices, one per line. Returns the exit status.
int Play_ListDevices();
