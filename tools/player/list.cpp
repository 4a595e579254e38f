#include "tools/player/list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "audio/audio_module.h"
#include "tools/common/text.h"

using PATHS = std::vector<std::string>;

constexpr size_t List_MaxFiles = 100000;

// Detection takes any small file of no other format for a module.
static bool IsSound(const std::filesystem::directory_entry &entry)
{
    constexpr uintmax_t moduleHeader = 600;  // bytes, of the oldest kind
    std::error_code error;
    if (!entry.is_regular_file(error))
        return false;
    const uint8_t type = Audio_Check(entry.path().c_str());
    return type > AUDIO_RAW && (type != AUDIO_MOD || entry.file_size(error) > moduleHeader);
}

// The sounds in a folder. Returns why it cannot be read to its end.
template <typename Iterator>
static std::string AddFolder(const std::string &folder, PATHS &files)
{
    const auto options = std::filesystem::directory_options::skip_permission_denied;
    std::error_code error;
    PATHS found;
    for (Iterator entry(folder, options, error), end; !error && entry != end;
         entry.increment(error)) {
        if (IsSound(*entry))
            found.push_back(entry->path());
        if (files.size() + found.size() == List_MaxFiles)
            break;
    }
    std::ranges::sort(found);
    files.insert(files.end(), found.begin(), found.end());
    return error ? error.message() : "";
}

// The file that a playlist's line names; empty where it names none.
static std::string NameIn(std::string line, bool pls)
{
    while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
        line.pop_back();
    if (line.starts_with("\xEF\xBB\xBF"))
        line.erase(0, 3);
    if (!pls)
        return line.starts_with('#') ? "" : line;
    const size_t value = line.find('=');
    return line.starts_with("File") && value != std::string::npos ? line.substr(value + 1) : "";
}

static std::string AddPlaylist(const std::string &path, PATHS &files)
{
    std::ifstream list(path);
    if (!list)
        return std::strerror(errno);
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const bool pls = Text_EndsWith(path, ".pls");
    for (std::string line; files.size() < List_MaxFiles && std::getline(list, line);) {
        const std::string name = NameIn(line, pls);
        if (!name.empty())
            files.push_back(folder / name);  // an absolute one as it is
    }
    return "";
}

static bool IsPlaylist(const std::string &path)
{
    return Text_EndsWith(path, ".m3u") || Text_EndsWith(path, ".m3u8") ||
           Text_EndsWith(path, ".pls");
}

std::vector<std::string>
List_Files(const PATHS &words, bool recursive,
           const std::function<void(const std::string &path, const std::string &reason)> &report)
{
    PATHS files;
    for (const std::string &word : words) {
        std::string reason;
        std::error_code ignored;
        if (std::filesystem::is_directory(word, ignored))
            reason = recursive
                         ? AddFolder<std::filesystem::recursive_directory_iterator>(word, files)
                         : AddFolder<std::filesystem::directory_iterator>(word, files);
        else if (IsPlaylist(word))
            reason = AddPlaylist(word, files);
        else
            files.push_back(word);
        if (!reason.empty())
            report(word, reason);
    }
    return files;
}
