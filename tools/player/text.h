// Texts out of sound files, for a terminal.
#pragma once

#include <span>
#include <string>

/// The text up to its NUL as UTF-8: from UTF-16 with a byte order mark, UTF-8, or what is neither
/// as Latin-1. Control characters, which could steer the terminal, are blanks; blanks at the end
/// go.
std::string Player_Text(std::span<const char> bytes);

/// The same of a name.
std::string Player_Text(const std::string &bytes);

/// As many characters from its start as take at most so many columns of a terminal: wide ones take
/// two, combining ones none.
std::string Player_Cut(const std::string &utf8, size_t columns);

/// "3:07", from an hour on "1:03:07".
std::string Player_Time(double seconds);
