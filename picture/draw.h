// Drawing of pictures through the raster layer: scaled, with a key colour that counts as
// transparent (PictureCR to PictureCA, Picture_SetColor), inverted, along textured lines, and
// turned. Coordinates are signed 16-bit and wrap; rows of a picture go to smaller y. A picture
// without pixels draws nothing, and pixels past its buffer are skipped.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

struct Picture;

/// Draws the picture stretched over width x height points, its top left at (x, y); the nearest
/// source pixel up and to the left is taken. Pixels of the key colour are left out, pixels of
/// alpha 0 are not. Sizes below 1 draw nothing.
void Picture_Draw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);

/// Two more names of Picture_Draw: nothing is mirrored, on purpose.
void Picture_HDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);
void Picture_VDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);

/// As Picture_Draw, with pixels of the key colour drawn in (r, g, b, a).
void Picture_CDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture,
                   uint8_t r, uint8_t g, uint8_t b, uint8_t a);

/// As Picture_Draw, with red, green and blue inverted and without a key colour.
void Picture_Inverse(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);

/// Draws the pixel at byte `offset` of Pixels to (x, y) unless it has the key colour.
void Picture_PutPixel(int16_t x, int16_t y, const Picture *picture, uint32_t offset);

/// Draws a line whose points take their colours from byte `offset` of Pixels on, `step` pixels a
/// point, regardless of where rows end. The last point is left out; key colour as above.
void Picture_Line(int16_t x1, int16_t y1, int16_t x2, int16_t y2, const Picture *picture,
                  uint32_t offset, float step);

/// Writes the points of a line but its last to `xs` and `ys`, which must have room for the longer
/// of its two distances (32768 at most). Returns their number minus one; 65535 for no points.
uint16_t Picture_GetLineXY(int16_t x1, int16_t y1, int16_t x2, int16_t y2, uint16_t *xs,
                           uint16_t *ys);

/// Draws the picture stretched over width x height points and turned by `angle` degrees (clockwise
/// where y points up) about the middle of that area, whose lower edge lies the picture's own height
/// below y. Made of textured lines from the left edge to the right one, each drawn twice to close
/// gaps. Corners are searched at whole degrees, so edges may be some points off. A corner that is
/// not found counts as the middle: areas of 230 points and more a side may not be drawn at all. NaN
/// draws nothing.
void Picture_Rotate(int16_t x, int16_t y, int16_t width, int16_t height, float angle,
                    const Picture &picture);

#pragma GCC visibility pop
