// Pictures converted to files of another format, by the ending of their names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct CONVERT_OPTIONS {
    bool Compress = false;          // .ham6 and .ham8 with runs
    bool Upright = false;           // turned as the orientation says
    bool Compose = false;           // a GIF's frames with those before them
    bool AllFrames = false;         // each to a file of its own, numbered from 0
    std::optional<uint32_t> Frame;  // or page; nothing: the picture
    std::string Format;             // ending without its point, for names in a folder
};

/// Whether files of this ending can be written; and the endings, for a person.
bool Convert_CanWrite(const std::string &out);
extern const char *const Convert_Endings;

/// Writes the last path from the one before it, or, when it is a folder, all others into it. Each
/// file replaces what was there whole. .ham6 and .ham8 hold a multiple of 8 columns: columns beyond
/// are left out, which standard error says, as it says why a file was not written. Returns whether
/// all were.
bool Convert_Files(const std::vector<std::string> &paths, const CONVERT_OPTIONS &options);
