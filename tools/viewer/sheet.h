// Texts as pictures: a character set, and lines to be laid over a picture.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tools/viewer/shown.h"

/// All glyphs of a set below CharSet_Sets, 16 a row, with the numbers of rows and columns, and
/// lines in those languages of which it can write every letter.
VIEWER_IMAGE Sheet_Glyphs(uint8_t set);

/// White lines on a dark ground that lets what is below shine through. A line is in ISO/IEC 8859-2
/// and ends after 255 characters, each Sheet_LetterWidth wide; Sheet_Margin is around them.
constexpr uint32_t Sheet_LetterWidth = 10, Sheet_Margin = 8;
VIEWER_IMAGE Sheet_Lines(std::span<const std::string> lines);

/// UTF-8 in ISO/IEC 8859-2. Letters beyond it lose their accents, or become their number in braces:
/// "{4E2D}"; control characters and what is no UTF-8 become '?'.
std::string Sheet_Latin2(std::string_view utf8);

/// The text, or its beginning and its end with "..." between them, in at most `room` characters.
std::string Sheet_Cut(const std::string &text, size_t room);

/// A file's name, in UTF-8, and what is known of it as one line for Sheet_Lines, of at most `room`
/// characters: a name that is too long is cut in its middle.
std::string Sheet_Caption(std::string_view name, const std::string &facts, size_t room);
