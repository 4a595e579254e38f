// Pictures decoded in the background, so that they are there when they are wanted.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/viewer/shown.h"

struct AHEAD_KEY {
    std::string Path;
    VIEWER_DEPTH Depth = VIEWER_HALVED;
    uint32_t Page = 0;
    auto operator<=>(const AHEAD_KEY &) const = default;
};

/// Starts the threads, which decode by the rules of Picture_Rules of the caller; ends them after
/// what they are at, and forgets everything.
void Ahead_Start();
void Ahead_Stop();

/// What is wanted from now on, the most urgent first. What is not named is forgotten.
void Ahead_Want(std::vector<AHEAD_KEY> keys);

/// What a wanted key has come to; null until that is known.
std::shared_ptr<const VIEWER_FILE> Ahead_Find(const AHEAD_KEY &key);

/// How many of the wanted keys are known.
size_t Ahead_Done();
