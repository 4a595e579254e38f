// The contact sheet: a scrolling grid of thumbnails, decoded in the background.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/viewer/files.h"

/// The marked file; Grid_Show scrolls to keep it in sight.
extern size_t Grid_Marked;
void Grid_Show(const std::vector<FILES_ENTRY> &files);

/// Draws the sheet and requests missing thumbnails.
void Grid_Paint(const std::vector<FILES_ENTRY> &files);

/// Frees its textures.
void Grid_Leave();

/// Moves the mark by so many columns, rows or pages.
void Grid_Move(const std::vector<FILES_ENTRY> &files, int columns, int rows, int pages);
void Grid_Wheel(const std::vector<FILES_ENTRY> &files, int32_t steps);

/// The file at a position in the window, if any.
std::optional<size_t> Grid_At(const std::vector<FILES_ENTRY> &files, float x, float y);

/// Whether it has changed since it was painted last: thumbnails have arrived, or it has moved.
bool Grid_HasChanged();
