// Files replaced whole: a new file is written beside the old one under a name of its own, synced,
// and renamed over it. A crash, a full disk or a second writer never loses the old file.
#pragma once

#include <cstdio>
#include <string>

/// The new file while it is written. Discarded at the end of its life unless it was committed.
struct REPLACE {
    FILE *File = nullptr;  // what to write to; null: nothing is open
    std::string Target;    // the file that will be replaced, symbolic links resolved
    std::string Beside;    // where the new one lies until then

    REPLACE() = default;
    ~REPLACE();
    REPLACE(const REPLACE &) = delete;
    REPLACE &operator=(const REPLACE &) = delete;
};

/// Follows symbolic links from `path`, also to a file that does not exist yet. Returns 0 or an
/// errno.
int Replace_Resolve(std::string &path);

/// Opens a new file beside `path`, for writing in binary. It takes the mode of the file there, or
/// the umask's; of a symbolic link what it points to is replaced, and the link stays. The name is
/// new, so what a killed writer left is never in the way.
///
/// Returns 0, or why not as an errno: EACCES also for a file without any write permission, whoever
/// asks, EISDIR for a directory, ENOTSUP for anything else that is not a regular file.
int Replace_Open(REPLACE &file, const std::string &path);

/// Flushes and syncs the new file, puts it in the old one's place and syncs the folder. Returns 0,
/// or an errno: the old file is as it was and the new one is gone. A write that failed earlier
/// counts too.
int Replace_Commit(REPLACE &file);

/// Closes and removes the new file; the old one stays. Without an open file this does nothing.
void Replace_Discard(REPLACE &file);
