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
    uint32_t Seed = 0;                   // of the shuffling; 0: random
    int Volume = 100;                    // percent
    uint32_t Hz = 0;                     // of the output; 0: the sound's own
    std::string Bits;                    // of the file written; empty: the sound's own
    bool Dither = false;                 // where they are fewer than the sound's
    std::string Interpolation = "sinc";  // of tracker modules
    int Separation = 50;                 // stereo separation of modules, percent
    std::string Device;                  // a part of its name, or its number; empty: the default
    PLAYER_SETTINGS Settings = {};
};

/// The player's keys for people, in lines of at most 80 columns.
extern const char *const Options_Keys;

/// Reads the command line. Returns an exit status if the program is to end at once: after help, or
/// an error, has been printed.
std::optional<int> Options_Read(int argc, char **argv, OPTIONS &options);

/// Seconds of "83.5", "1:23.5" or "1:02:03"; nothing for any other text.
std::optional<double> Options_Time(const std::string &text);

constexpr int Options_Failure = 1;
constexpr int Options_WrongUsage = 2;

/// `status`, unless standard output could not be written.
int Options_Printed(int status);
