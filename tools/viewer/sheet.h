// A character set as a picture.
#pragma once

#include <cstdint>

#include "tools/viewer/shown.h"

/// All glyphs of the set in their order, and lines in the languages that it can write. Empty for a
/// set that there is not.
VIEWER_IMAGE Viewer_Sheet(uint8_t set);
