// Files that a tool writes, replaced as a whole.
#pragma once

#include <functional>
#include <string>

#include "extra/replace.h"

/// Has `fill` write a new file and then replaces the file at `path` with it: a full disk or a
/// killed tool leaves the old file, and an interrupted one leaves nothing else. One thread at a
/// time. Both `fill` and this return why they failed, or "".
std::string Write_File(const std::string &path,
                       const std::function<std::string(const REPLACE &file)> &fill);

/// An errno in words.
std::string Write_Reason(int error);
