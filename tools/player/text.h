// Texts from sound files, for a terminal.
#pragma once

#include <span>
#include <string>

/// The text up to its NUL as UTF-8, from UTF-16 with a byte order mark, from UTF-8, or else from
/// Latin-1. Control characters, which could control the terminal, become blanks; trailing blanks
/// are dropped.
std::string Player_Text(std::span<const char> bytes);

/// The same for a file name.
std::string Player_Text(const std::string &bytes);

/// The longest beginning of the text that takes at most so many columns of a terminal: wide
/// characters take two, combining ones none.
std::string Player_Cut(const std::string &utf8, size_t columns);

/// "3:07"; from an hour on "1:03:07".
std::string Player_Time(double seconds);
