// Which files the words on the command line mean.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct FILES_ENTRY {
    std::string Path;
    bool Named = true;  // by the user; others were found in a folder and may be no pictures
};

/// Whether a comes before b where numbers within names count as numbers: "2.png" before "10.png".
/// Letters of ASCII in either case are the same unless nothing else differs.
bool Files_Before(std::string_view a, std::string_view b);

/// The words, and in the place of each folder the pictures in it, those of its folders too if
/// `recursive`. Hidden files and what does not begin like a picture are left out there. A folder
/// that cannot be read stays as it is, for whoever opens it to say so.
std::vector<FILES_ENTRY> Files_Expand(const std::vector<std::string> &words, bool recursive);

/// Starting on one file: the pictures of its folder, and where the file is among them.
std::vector<FILES_ENTRY> Files_Around(const std::string &path, size_t &at);

/// The lines of standard input.
std::vector<std::string> Files_ReadList();
