// Files that a tool writes, replaced whole.
#pragma once

#include <functional>
#include <string>

#include "extra/replace.h"

/// Has `fill` write the new file and puts it in the place of what is at `path`: a full disk or a
/// killed tool leaves the old one, and what interrupts the tool leaves nothing else. From one
/// thread at a time. `fill` returns why it failed, or "". So does this.
std::string Write_File(const std::string &path,
                       const std::function<std::string(const REPLACE &file)> &fill);

/// What an errno means, for a person.
std::string Write_Reason(int error);
