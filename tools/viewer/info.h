// What picture files say about themselves.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

/// Prints to `out` path, format, size, depth and all other facts of each file, as lines for people
/// or as one JSON object per line. Standard error says why a file has no picture, or less than it
/// promises. Returns whether all had one and all could be printed.
bool Info_Print(const std::vector<std::string> &paths, bool json, FILE *out);
