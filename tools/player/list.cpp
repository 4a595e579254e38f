#include "tools/player/list.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include <strings.h>

#include "audio/audio_module.h"
#include "tools/common/text.h"

using PATHS = std::vector<std::string>;

constexpr size_t List_MaxFiles = 100000;
constexpr size_t List_MaxDepth = 8;  // of playlists within playlists

// Detection takes any small file of no other format for a module. What cannot be read is reported
// when it is opened.
static bool IsSound(const std::filesystem::directory_entry &entry)
{
    constexpr uintmax_t moduleHeader = 600;  // bytes, of the oldest kind
    std::error_code error;
    if (!entry.is_regular_file(error))
        return false;
    Reason_Clear();
    const uint8_t type = Audio_Check(entry.path().c_str());
    return *Reason_Get() != 0 ||
           (type > AUDIO_RAW && (type != AUDIO_MOD || entry.file_size(error) > moduleHeader));
}

// The file that a playlist's line names; empty if none.
static std::string NameIn(std::string line, bool pls)
{
    while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
        line.pop_back();
    if (line.starts_with("\xEF\xBB\xBF"))
        line.erase(0, 3);
    if (!pls)
        return line.starts_with('#') ? "" : line;
    const size_t value = line.find('=');
    return strncasecmp(line.c_str(), "File", 4) == 0 && value != std::string::npos
               ? line.substr(value + 1)
               : "";
}

// RFC 3986, 2.1: a percent sign and two hexadecimal digits for a byte.
static std::string FromPercent(const std::string &text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); i++) {
        unsigned byte = 0;
        const char *const digits = text.data() + i + 1;
        const bool coded = text[i] == '%' && i + 2 < text.size() &&
                           std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
        bytes += coded ? static_cast<char>(byte) : text[i];
        i += coded ? 2 : 0;
    }
    return bytes;
}

// Resolves a file name in a playlist: as written if that exists, else by other systems'
// conventions.
static std::string Locate(const std::filesystem::path &folder, const std::string &name)
{
    constexpr std::string_view local = "file://";
    const size_t path = name.starts_with(local) ? name.find('/', local.size()) : std::string::npos;
    if (path != std::string::npos)
        return FromPercent(name.substr(path));
    std::string slashed = name;
    std::ranges::replace(slashed, '\\', '/');
    std::error_code ignored;
    for (const std::string &other : {name, slashed, Text_FromEither(name)})
        if (std::filesystem::exists(folder / other, ignored))
            return folder / other;
    return name.find("://") != std::string::npos ? name : (folder / name).string();
}

static bool IsPlaylist(const std::string &path)
{
    return Text_EndsWith(path, ".m3u") || Text_EndsWith(path, ".m3u8") ||
           Text_EndsWith(path, ".pls");
}

namespace
{

struct LISTING {
    bool Recursive;
    const LIST_REPORT &Report;
    PATHS Files = {};
    PATHS Open = {};  // the playlist being read and those that led to it
};

}  // namespace

static void AddWord(LISTING &listing, const std::string &word);

static std::string AddPlaylist(LISTING &listing, const std::string &path)
{
    std::ifstream list(path);
    if (!list)
        return std::strerror(errno);
    std::error_code ignored;
    const std::string name = std::filesystem::weakly_canonical(path, ignored);
    if (std::ranges::find(listing.Open, name) != listing.Open.end() ||
        listing.Open.size() == List_MaxDepth)
        return "a playlist in itself, or too deep in others";
    listing.Open.push_back(name);
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const bool pls = Text_EndsWith(path, ".pls");
    for (std::string line; listing.Files.size() < List_MaxFiles && std::getline(list, line);) {
        const std::string entry = NameIn(line, pls);
        if (!entry.empty())
            AddWord(listing, Locate(folder, entry));
    }
    listing.Open.pop_back();
    return list.bad() ? std::strerror(errno) : "";
}

// Finds the sounds in a folder, and in those within it if asked for; links to folders are not
// followed. Folders that cannot be read are reported.
static void FindSounds(const LISTING &listing, const std::string &folder, PATHS &found)
{
    namespace fs = std::filesystem;
    std::error_code error, ignored;
    for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
        if (listing.Files.size() + found.size() >= List_MaxFiles)
            return;
        if (IsSound(*i))
            found.push_back(i->path());
        else if (listing.Recursive && i->is_directory(ignored) && !i->is_symlink(ignored))
            FindSounds(listing, i->path(), found);
    }
    if (error)
        listing.Report(folder, "cannot be opened: " + error.message());
}

static void AddWord(LISTING &listing, const std::string &word)
{
    std::string reason;
    std::error_code ignored;
    if (std::filesystem::is_directory(word, ignored)) {
        PATHS found;
        FindSounds(listing, word, found);
        std::ranges::sort(found);
        listing.Files.insert(listing.Files.end(), found.begin(), found.end());
    } else if (IsPlaylist(word))
        reason = AddPlaylist(listing, word);
    else
        listing.Files.push_back(word);
    if (!reason.empty())
        listing.Report(word, reason);
}

std::vector<std::string> List_Files(const PATHS &words, bool recursive, const LIST_REPORT &report)
{
    LISTING listing = {recursive, report};
    for (const std::string &word : words)
        AddWord(listing, word);
    return listing.Files;
}
