// Texts as pictures: a character set, and lines to be laid over a picture.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tools/viewer/shown.h"

/// All glyphs of the set in their order, and lines in the languages that it can write. Empty for a
/// set that there is not.
VIEWER_IMAGE Viewer_Sheet(uint8_t set);

/// White lines on a dark ground that lets what is below shine through. A line is in ISO/IEC 8859-2
/// and ends after 255 characters, each Viewer_LetterWidth wide; Viewer_LinesMargin is around them.
constexpr uint32_t Viewer_LetterWidth = 10, Viewer_LinesMargin = 8;
VIEWER_IMAGE Viewer_Lines(std::span<const std::string> lines);

/// A file's name and what is told of it as one line for Viewer_Lines, of at most `room` characters:
/// of a name that is too long "..." stands for its middle. The name is in UTF-8; what it has beyond
/// the letters of the character sets is shown as '?'.
std::string Viewer_Caption(std::string_view name, const std::string &facts, size_t room);
