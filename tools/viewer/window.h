// Pictures in a window.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/viewer/files.h"

struct WINDOW_OPTIONS {
    std::optional<uint32_t> Frame;  // of every file, standing still
    double Slideshow = 0;           // seconds a picture; 0: none
    bool Grid = false;              // begin with the contact sheet
    bool FullScreen = false;
};

/// The keys and what they do.
const std::vector<std::pair<std::string, std::string>> &Window_Keys();

/// Shows the files, from number `at` on, until the user ends it. Those without the picture that is
/// wanted are left out, and if they were named standard error says why. Returns the exit status: 1
/// when a named file had no picture, nothing could be shown or there is no window.
int Window_ShowFiles(std::vector<FILES_ENTRY> files, size_t at, const WINDOW_OPTIONS &options);

/// The sheet of a character set, at a whole-number zoom.
int Window_ShowSheet(uint8_t set);
