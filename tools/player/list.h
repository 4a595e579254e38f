// Which files the player's arguments stand for.
#pragma once

#include <functional>
#include <string>
#include <vector>

using LIST_REPORT = std::function<void(const std::string &path, const std::string &reason)>;

/// The files in order: what is in a folder by name, sounds of known formats only, and with
/// `recursive` those in its folders too; what is in a playlist (.m3u and .m3u8: a line each, from #
/// on comments; .pls: FileN=), whose names count from the playlist's folder, may be file URIs and
/// may be other playlists and folders. Any other word is a file. `report` is called for what cannot
/// be read.
std::vector<std::string> List_Files(const std::vector<std::string> &words, bool recursive,
                                    const LIST_REPORT &report);
