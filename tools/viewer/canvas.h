// One picture on the screen. Of the sizes that it comes in, the one nearest to its size on the
// screen is cut into tiles, and only visible tiles become textures. So the display does not limit
// the picture's size, and a large photograph needs only a small texture to be seen as a whole.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "tools/viewer/shown.h"

/// A rotation about the picture's centre by quarters, perhaps mirrored: (x, y) becomes ([0] x + [1]
/// y, [2] x + [3] y), y pointing down.
using CANVAS_TURN = std::array<int, 4>;

/// The turn that makes a picture of this orientation upright; and two turns combined.
CANVAS_TURN Canvas_TurnOf(int orientation);
CANVAS_TURN Canvas_After(const CANVAS_TURN &first, const CANVAS_TURN &second);
constexpr CANVAS_TURN Canvas_Right = {0, -1, 1, 0}, Canvas_Left = {0, 1, -1, 0},
                      Canvas_Mirror = {-1, 0, 0, 1};

struct CANVAS_PICTURE {
    uint64_t Serial;                   // key of its textures
    std::vector<VIEWER_PIXELS> Sizes;  // largest first, each half of the one before
};

/// Makes one texture of a picture that may be needed soon, as a whole with its first size `shown`
/// pixels wide. False if nothing is left to do.
bool Canvas_Prepare(const CANVAS_PICTURE &picture, float shown);

/// Frees the textures of this picture, or of all except these.
void Canvas_Forget(uint64_t serial);
void Canvas_Keep(std::span<const uint64_t> serials);

/// Draws a picture into a rectangle, whose sides are those of the turned picture.
void Canvas_Draw(const CANVAS_PICTURE &picture, float x, float y, float width, float height,
                 const CANVAS_TURN &turn, bool smooth);
