// One picture on the screen. It is cut into tiles of the size, among those that it comes in, that
// is nearest to how large it is seen; only tiles in sight become textures. So its size is not
// bounded by the display's, and a large photograph needs a small texture to be seen as a whole.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "tools/viewer/shown.h"

/// A turn about the picture's middle by quarters, perhaps mirrored: (x, y) becomes
/// ([0] x + [1] y, [2] x + [3] y), y going down.
using CANVAS_TURN = std::array<int, 4>;

/// What makes a picture of this orientation upright; and one turn after another.
CANVAS_TURN Canvas_TurnOf(int orientation);
CANVAS_TURN Canvas_After(const CANVAS_TURN &first, const CANVAS_TURN &second);
constexpr CANVAS_TURN Canvas_Right = {0, -1, 1, 0}, Canvas_Left = {0, 1, -1, 0},
                      Canvas_Mirror = {-1, 0, 0, 1};

struct CANVAS_PICTURE {
    uint64_t Serial;                   // textures are kept by it
    std::vector<VIEWER_PIXELS> Sizes;  // the largest first, each half of the one before
};

/// Makes one texture of a picture that may be wanted soon, seen as a whole and its first size
/// `shown` pixels wide. False when all there is to do has been done.
bool Canvas_Prepare(const CANVAS_PICTURE &picture, float shown);

/// Frees the textures of this picture; or of all but these.
void Canvas_Forget(uint64_t serial);
void Canvas_Keep(std::span<const uint64_t> serials);

/// Draws a picture into a rectangle, which has its sides as turned.
void Canvas_Draw(const CANVAS_PICTURE &picture, float x, float y, float width, float height,
                 const CANVAS_TURN &turn, bool smooth);
