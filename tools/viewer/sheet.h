// Texts as pictures: a character set, and lines to lay over a picture.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tools/viewer/shown.h"

/// All glyphs of a set below CharSet_Sets, 16 per row, with the numbers of rows and columns, and
/// sample lines in the languages that it can write completely.
VIEWER_IMAGE Sheet_Glyphs(uint8_t set);

/// White lines on a dark, translucent background. A line is in ISO/IEC 8859-2 and is truncated to
/// 255 characters, each Sheet_LetterWidth wide; Sheet_Margin surrounds them.
constexpr uint32_t Sheet_LetterWidth = 10, Sheet_Margin = 8;
VIEWER_IMAGE Sheet_Lines(std::span<const std::string> lines);

/// UTF-8 converted to ISO/IEC 8859-2. Letters outside it lose their accents or become their code in
/// braces: "{4E2D}"; control characters and invalid UTF-8 become '?'.
std::string Sheet_Latin2(std::string_view utf8);

/// The text in at most `room` characters, its middle replaced by "..." if it is longer.
std::string Sheet_Cut(const std::string &text, size_t room);

/// A file's name, in UTF-8, and its facts as one line for Sheet_Lines, of at most `room`
/// characters: a name that is too long is shortened in its middle.
std::string Sheet_Caption(std::string_view name, const std::string &facts, size_t room);
