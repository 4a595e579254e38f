// What the terminal shows of a sound, in lines for any width of 20 columns or more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

struct SCREEN {
    std::string State = "";  // precedes the title, as in "paused: "
    std::string Brief = "";  // the same abbreviated, for narrow terminals
    std::string Title = "";
    std::string Place = "";              // follows the title where columns allow, as in "(2 of 5)"
    double Now = 0, Total = 0;           // seconds
    double Level = -1;                   // 0 to 1, of full scale; below 0: no meter
    std::vector<std::string> View = {};  // further lines, above the others
};

/// The text, with lines broken between words where they would be too long.
std::string Screen_Wrap(const std::string &text, size_t columns);

/// Lines that show the levels of a module's channels, 0 to 64 each: at most eight lines, with
/// channel numbers where columns allow.
std::vector<std::string> Screen_Channels(std::span<const uint8_t> levels, size_t columns,
                                         bool colours);

/// The lines, at most `columns` - 1 columns wide, so that no terminal wraps them, and at most
/// `rows` of them, of which the last one, the time, is dropped last. With colours they contain
/// control sequences of ECMA-48.
std::vector<std::string> Screen_Lines(const SCREEN &screen, size_t columns, size_t rows,
                                      bool colours);
