// The viewer's messages on standard error, safe for a terminal.
#pragma once

#include <cstddef>
#include <string>

/// "tessview: NAME: REASON". Returns false, for the caller to return.
bool Report(const std::string &name, const std::string &reason);

/// A progress line, only on a terminal; it is cleared by a report or the end.
void Progress(size_t n, size_t count, const std::string &name);
void ProgressEnd();
