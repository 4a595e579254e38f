// What a photograph's Exif data say of how it was taken (Exif 2.3, TIFF 6.0 fields). All of it is
// about the JPEG file that this thread has loaded last.
#pragma once

#include <string>
#include <vector>

#include "extra/bytes.h"

/// One line of what a file tells of itself, both in UTF-8.
struct VIEWER_FACT {
    std::string Name, Text;
};

/// The orientation, 1 to 8; 1 without one.
int Exif_Orientation();

/// Camera, date, exposure and place, as far as they are there. Values that do not fit into their
/// entries are read from the file.
std::vector<VIEWER_FACT> Exif_Camera(const BYTES_OPEN &from);
