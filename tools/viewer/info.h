// What picture files say of themselves.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

/// Prints to `out` path, format, size and depth of each file and what else it tells, as lines for
/// people or as one JSON object a line. Standard error says why a file has no picture, or less than
/// it promises. Returns whether all had one and all could be printed.
bool Info_Print(const std::vector<std::string> &paths, bool json, FILE *out);
