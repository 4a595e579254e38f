// A photograph's Exif data about how it was taken (Exif 2.3, TIFF 6.0 fields), from the JPEG file
// that this thread loaded last.
#pragma once

#include <string>
#include <vector>

#include "extra/bytes.h"

/// One fact from a file, both parts in UTF-8.
struct VIEWER_FACT {
    std::string Name, Text;
};

/// The orientation, 1 to 8; 1 if none is given.
int Exif_Orientation();

/// Camera, date, exposure and place, as far as present. Values that do not fit into their entries
/// are read from the file.
std::vector<VIEWER_FACT> Exif_Camera(const BYTES_OPEN &from);
