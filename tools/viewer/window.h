// Pictures in a window.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/viewer/shown.h"

/// Shows the files by turns until the user ends it; of each frame `frame` standing still if it is
/// given. Files without that picture are named on standard error and left out. Returns the exit
/// status: 1 when a file had no picture or there is no window.
int Viewer_ShowFiles(const std::vector<std::string> &paths, std::optional<uint32_t> frame);

/// The same for one image that is there already.
int Viewer_ShowImage(const VIEWER_IMAGE &image, const std::string &title);
