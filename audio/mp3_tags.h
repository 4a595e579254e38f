// Tags around an MPEG stream: ID3v2.2 to 2.4 and ID3v1 (id3.org), APEv2 (Hydrogenaudio's wiki), and
// Lyrics3 (id3.org), which is only skipped.
#pragma once

#include <cstdint>
#include <string>

#include "audio/sound_file.h"

#pragma GCC visibility push(default)

/// What the tags say, in UTF-8, at most MP3_MaxText bytes each; empty if they do not.
struct MP3_TEXTS {
    std::string Title, Artist, Album, Year, Comment, Track, Genre;
};
constexpr size_t MP3_MaxText = 4096;

/// The part of a file between its tags.
struct MP3_PART {
    uint64_t Start, End;  // bytes
};

/// Length of the ID3v2 or APE tag that starts at `position`, 0 if none does.
uint64_t MP3_TagAt(SOUND_FILE &file, uint64_t position);

/// Reads the file's tags. If several have a field, the first ID3v2 tag wins, then APEv2, then
/// ID3v1.
MP3_PART MP3_ReadTags(SOUND_FILE &file, MP3_TEXTS &texts);

/// Names of the ID3v1 genres. Some odd spellings are on purpose.
constexpr uint8_t MP3_UnknownGenre = 126;
extern const char MP3_Genre[127][18];

#pragma GCC visibility pop
