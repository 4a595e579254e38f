// The files that the player's arguments stand for.
#pragma once

#include <functional>
#include <string>
#include <vector>

using LIST_REPORT = std::function<void(const std::string &path, const std::string &reason)>;

/// The files in order. A folder stands for the sounds of known formats in it, by name, and with
/// `recursive` in its subfolders. A playlist (.m3u and .m3u8: one file per line, comments start
/// with #; .pls: FileN=) stands for the files that it names; names are relative to the playlist's
/// folder and may be file URIs, playlists or folders. Any other argument is a file. `report` is
/// called for what cannot be read.
std::vector<std::string> List_Files(const std::vector<std::string> &words, bool recursive,
                                    const LIST_REPORT &report);
