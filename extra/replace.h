// Atomic replacement of whole files: a new file is written beside the old one under a temporary
// name, synced, and renamed over it. A crash, a full disk or a second writer never loses the old
// file.
#pragma once

#include <cstdio>
#include <string>

/// The new file while it is written. Its destructor discards it unless it was committed.
struct REPLACE {
    FILE *File = nullptr;  // to write to; null: nothing is open
    std::string Target;    // the file that will be replaced, symbolic links resolved
    std::string Beside;    // path of the new file until it is committed

    REPLACE() = default;
    ~REPLACE();
    REPLACE(const REPLACE &) = delete;
    REPLACE &operator=(const REPLACE &) = delete;
};

/// Follows symbolic links from `path`, even to a file that does not exist yet. Returns 0 or an
/// errno.
int Replace_Resolve(std::string &path);

/// Opens a new file beside `path`, for writing in binary. Its mode is the old file's, or the
/// umask's without an old file. If `path` is a symbolic link its target is replaced and the link
/// stays. The temporary name is unused, so a file left by a killed writer is never in the way.
///
/// Returns 0 or an errno: EACCES also for a file without any write permission, even for root;
/// EISDIR for a directory; ENOTSUP for anything else that is not a regular file.
int Replace_Open(REPLACE &file, const std::string &path);

/// Flushes and syncs the new file, renames it over the old one and syncs the folder. Returns 0, or
/// an errno: then the old file is unchanged and the new one is removed. An earlier write error
/// counts as failure.
int Replace_Commit(REPLACE &file);

/// Closes and removes the new file; the old one stays. No effect without an open file.
void Replace_Discard(REPLACE &file);
