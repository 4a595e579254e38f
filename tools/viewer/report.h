// What the viewer says on standard error, safe for a terminal.
#pragma once

#include <cstddef>
#include <string>

/// "tessview: NAME: REASON". Gives false, for the caller to return.
bool Report(const std::string &name, const std::string &reason);

/// One line that says how far a long run is, only on a terminal; a report or the end takes it away.
void Progress(size_t n, size_t count, const std::string &name);
void ProgressEnd();
