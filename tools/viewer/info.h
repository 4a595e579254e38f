// What a picture file's header says.
#pragma once

#include <string>

/// Prints format, size and depth and what else the file tells of itself. Returns why there is
/// nothing to print, or "".
std::string Viewer_Info(const std::string &path);
