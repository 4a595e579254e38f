// The player's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/player/open.h"

struct OPTIONS {
    std::vector<std::string> Files;
    bool Info = false, JSON = false, Convert = false, Framework = false, Recursive = false;
    bool Shuffle = false, View = false, Devices = false;
    uint32_t Passes = 1;
    uint32_t Seed = 0;                   // of the shuffling; 0: another each time
    int Volume = 100;                    // percent
    uint32_t Hz = 0;                     // of what is heard or written; 0: the sound's own
    std::string Bits;                    // of what is written; empty: the sound's own
    std::string Interpolation = "sinc";  // of tracker modules
    int Separation = 50;                 // of their sides, percent
    std::string Device;                  // a part of its name, or its number; empty: the usual one
    PLAYER_SETTINGS Settings = {};
};

/// The keys of the player, for a person, in lines of at most 80 columns.
extern const char *const Options_Keys;

/// Reads the command line. The status that the program is to end with, when it is to end there:
/// after the help, or what was wrong, has been printed.
std::optional<int> Options_Read(int argc, char **argv, OPTIONS &options);

/// Seconds of "83.5", "1:23.5" or "1:02:03"; nothing for any other text.
std::optional<double> Options_Time(const std::string &text);

constexpr int Options_Failure = 1;
constexpr int Options_WrongUsage = 2;

/// The status, unless standard output could not be written.
int Options_Printed(int status);
