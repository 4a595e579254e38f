// Sounds on the sound card, one after the other, as keys say.
#pragma once

#include "tools/player/options.h"

/// A line about a file on standard error, under what the terminal shows.
void Play_Report(const std::string &file, const std::string &reason);

/// Plays the files. Returns the exit status; what went wrong has been reported.
int Play_Files(const OPTIONS &options);

/// Prints the sound devices, a line each. Returns the exit status.
int Play_ListDevices();
