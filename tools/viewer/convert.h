// Conversion of pictures to other formats, chosen by the ending of the output's name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct CONVERT_OPTIONS {
    bool Compress = false;          // run-length compressed .ham6 and .ham8
    bool Upright = false;           // turned as the orientation tag says
    bool Compose = false;           // a GIF's frames on top of those before
    bool AllFrames = false;         // each to its own file, numbered from 0
    std::optional<uint32_t> Frame;  // or page; empty: the picture
    std::string Format;             // ending without its dot, for output in a folder
};

/// Whether files with this ending can be written; and the endings, for people.
bool Convert_CanWrite(const std::string &out);
extern const char *const Convert_Endings;

/// Writes the last path from the one before it or, if it is a folder, all others into it. Each file
/// is replaced as a whole. .ham6 and .ham8 hold a multiple of 8 columns; columns beyond that are
/// dropped, which standard error reports, as it does any file that was not written. Returns whether
/// all were.
bool Convert_Files(const std::vector<std::string> &paths, const CONVERT_OPTIONS &options);
