// Pictures in a window.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/viewer/files.h"

struct WINDOW_OPTIONS {
    std::optional<uint32_t> Frame;  // of every file, as a still
    double Slideshow = 0;           // seconds per picture; 0: none
    bool Grid = false;              // start with the contact sheet
    bool FullScreen = false;
};

/// The keys and what they do, for the help.
const std::vector<std::pair<std::string, std::string>> &Window_Keys();

/// Shows the files from number `at` on until the user ends it. Files without the requested picture
/// are skipped; standard error says why if they were named by the user. Returns the exit status: 1
/// if a named file had no picture, nothing could be shown, or no window could be opened.
int Window_ShowFiles(std::vector<FILES_ENTRY> files, size_t at, const WINDOW_OPTIONS &options);

/// The sheet of a character set, at a whole-number zoom.
int Window_ShowSheet(uint8_t set);
