// What the terminal shows of a sound: lines of any width from 20 columns on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

struct SCREEN {
    std::string State = "";  // goes before the title, as "paused: "
    std::string Brief = "";  // the same in a few letters, where there is little room
    std::string Title = "";
    std::string Place = "";              // after the title where there is room, as "(2 of 5)"
    double Now = 0, Total = 0;           // seconds
    double Level = -1;                   // 0 to 1, of full scale; below 0: no meter
    std::vector<std::string> View = {};  // further lines, above these
};

/// A text whose lines break between words where they would not fit.
std::string Screen_Wrap(const std::string &text, size_t columns);

/// Lines of what a module's channels sound, 0 to 64 each: at most eight lines, with the channels'
/// numbers where there is room.
std::vector<std::string> Screen_Channels(std::span<const uint8_t> levels, size_t columns,
                                         bool colours);

/// The lines, none of more than `columns` - 1 columns, so that no terminal wraps one; at most
/// `rows`, of which the last, the time, is the one that stays longest. With colours the control
/// sequences of ECMA-48 are in them.
std::vector<std::string> Screen_Lines(const SCREEN &screen, size_t columns, size_t rows,
                                      bool colours);
