// Pictures decoded in the background before they are needed.
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

/// Start: creates the threads, which decode by the caller's Picture_Rules. Stop: ends them after
/// their current picture, and drops all results.
void Ahead_Start();
void Ahead_Stop();

/// The keys wanted from now on, most urgent first. Results of other keys are dropped.
void Ahead_Want(std::vector<AHEAD_KEY> keys);

/// The result for a wanted key; null until it is there.
std::shared_ptr<const VIEWER_FILE> Ahead_Find(const AHEAD_KEY &key);

/// How many of the wanted keys have results.
size_t Ahead_Done();
