// The contact sheet: a scrolling grid of thumbnails, decoded in the background.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/viewer/files.h"

/// What is marked; Grid_Show scrolls so that it is in sight.
extern size_t Grid_Marked;
void Grid_Show(const std::vector<FILES_ENTRY> &files);

/// Draws it and asks for the thumbnails that are missing.
void Grid_Paint(const std::vector<FILES_ENTRY> &files);

/// Frees its textures.
void Grid_Leave();

/// Moves the mark by so many columns, rows or windows full.
void Grid_Move(const std::vector<FILES_ENTRY> &files, int columns, int rows, int pages);
void Grid_Wheel(const std::vector<FILES_ENTRY> &files, int32_t steps);

/// The file at a place of the window, if there is one.
std::optional<size_t> Grid_At(const std::vector<FILES_ENTRY> &files, float x, float y);

/// Whether it looks different from what was painted last: thumbnails have come, or it has moved.
bool Grid_HasChanged();
