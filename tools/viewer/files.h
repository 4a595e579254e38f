// The files that the command line's arguments stand for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct FILES_ENTRY {
    std::string Path;
    bool Named = true;  // by the user; others were found in a folder and may not be pictures
};

/// Whether a comes before b, comparing numbers within names by value: "2.png" before "10.png".
/// ASCII letters compare without case unless nothing else differs.
bool Files_Before(std::string_view a, std::string_view b);

/// The arguments, with each folder replaced by the pictures in it and, if `recursive`, in its
/// subfolders. Hidden files and files that do not begin like a picture are skipped there. A folder
/// that cannot be read stays in the list, so that opening it reports why.
std::vector<FILES_ENTRY> Files_Expand(const std::vector<std::string> &words, bool recursive);

/// For a single file: the pictures of its folder, and its place among them.
std::vector<FILES_ENTRY> Files_Around(const std::string &path, size_t &at);

/// The lines of standard input.
std::vector<std::string> Files_ReadList();
