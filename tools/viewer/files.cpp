#include "tools/viewer/files.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "extra/reason.h"
#include "picture/picture.h"

namespace fs = std::filesystem;

static bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Takes a number off the front, without its leading zeros.
static std::string_view TakeNumber(std::string_view &text)
{
    const auto end = static_cast<size_t>(std::ranges::find_if_not(text, IsDigit) - text.begin());
    std::string_view number = text.substr(0, end);
    text.remove_prefix(end);
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

bool Files_Before(std::string_view a, std::string_view b)
{
    const auto small = [](char c) {
        return static_cast<uint8_t>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    };
    std::string_view x = a, y = b;
    while (!x.empty() && !y.empty()) {
        if (IsDigit(x[0]) && IsDigit(y[0])) {
            const std::string_view m = TakeNumber(x), n = TakeNumber(y);
            if (m.size() != n.size())
                return m.size() < n.size();
            if (m != n)
                return m < n;
            continue;
        }
        if (small(x[0]) != small(y[0]))
            return small(x[0]) < small(y[0]);
        x.remove_prefix(1);
        y.remove_prefix(1);
    }
    return x.empty() == y.empty() ? a < b : x.empty();
}

// What cannot be read is reported when it is opened.
static bool IsPicture(const std::string &path)
{
    Reason_Clear();
    return Picture_Check(path.c_str(), 0) != PICTURE_UNKNOWN ||
           std::string_view(Picture_Reason()).starts_with("cannot be");
}

// The pictures in a folder, followed by those in its subfolders; links to folders are not followed.
static bool AddFolder(const fs::path &folder, bool recursive, std::vector<FILES_ENTRY> &entries)
{
    std::error_code error;
    std::vector<std::string> files, folders;
    for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
        const std::string path = i->path(), name = i->path().filename();
        std::error_code unknown;
        if (name.starts_with('.'))
            continue;
        if (i->is_directory(unknown) && !i->is_symlink(unknown))
            folders.push_back(path);
        else if (i->is_regular_file(unknown) && IsPicture(path))
            files.push_back(path);
    }
    std::ranges::sort(files, Files_Before);
    std::ranges::sort(folders, Files_Before);
    for (std::string &file : files)
        entries.push_back({std::move(file), false});
    for (const std::string &inner : folders)
        if (recursive && !AddFolder(inner, true, entries))
            entries.push_back({inner});  // opening it gives the reason
    return !error;
}

std::vector<FILES_ENTRY> Files_Expand(const std::vector<std::string> &words, bool recursive)
{
    std::vector<FILES_ENTRY> entries;
    for (const std::string &word : words) {
        std::error_code unknown;
        if (!fs::is_directory(word, unknown) || !AddFolder(word, recursive, entries))
            entries.push_back({word});
    }
    return entries;
}

std::vector<FILES_ENTRY> Files_Around(const std::string &path, size_t &at)
{
    std::error_code unknown;
    std::vector<FILES_ENTRY> entries;
    const fs::path folder = fs::path(path).parent_path();
    at = 0;
    if (path == "-" || !fs::is_regular_file(path, unknown))
        return {{path}};
    AddFolder(folder.empty() ? "." : folder, false, entries);
    const fs::path name = fs::path(path).filename();
    const auto is = [&](const FILES_ENTRY &e) { return fs::path(e.Path).filename() == name; };
    auto self = std::ranges::find_if(entries, is);
    if (self == entries.end())  // hidden, or not a picture, which is reported later
        self = entries.insert(self, FILES_ENTRY{});
    *self = {path};
    at = static_cast<size_t>(self - entries.begin());
    return entries;
}

std::vector<std::string> Files_ReadList()
{
    std::vector<std::string> lines;
    for (std::string line; std::getline(std::cin, line);)
        if (!line.empty())
            lines.push_back(line);
    return lines;
}
