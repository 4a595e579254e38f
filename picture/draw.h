// Drawing of pictures through the raster layer: scaled, with a key colour that counts as
// transparent (PictureCR to PictureCA, Picture_SetColor), inverted, along textured lines, and
// rotated. Coordinates are signed 16-bit and wrap; rows of a picture go to smaller y. A picture
// without pixels draws nothing, and pixels past its buffer are skipped.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

struct Picture;

/// Draws the picture scaled to width x height points, its top left at (x, y), by the nearest source
/// pixel up and to the left. Pixels of the key colour are skipped, pixels of alpha 0 are not. Sizes
/// below 1 draw nothing.
void Picture_Draw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);

/// On purpose: the same as Picture_Draw, nothing is mirrored.
void Picture_HDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);
void Picture_VDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);

/// Like Picture_Draw, but pixels of the key colour are drawn in (r, g, b, a).
void Picture_CDraw(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture,
                   uint8_t r, uint8_t g, uint8_t b, uint8_t a);

/// Like Picture_Draw, with red, green and blue inverted and without a key colour.
void Picture_Inverse(int16_t x, int16_t y, int16_t width, int16_t height, const Picture &picture);

/// Draws the pixel at byte `offset` of Pixels at (x, y) unless it has the key colour.
void Picture_PutPixel(int16_t x, int16_t y, const Picture *picture, uint32_t offset);

/// Draws a line with the colours from byte `offset` of Pixels on, advancing `step` pixels per point
/// regardless of row ends. The last point is not drawn; the key colour applies.
void Picture_Line(int16_t x1, int16_t y1, int16_t x2, int16_t y2, const Picture *picture,
                  uint32_t offset, float step);

/// Writes the points of a line, without the last one, to `xs` and `ys`, which need room for the
/// longer of its two distances (at most 32768). Returns the number of points minus one; 65535 for
/// none.
uint16_t Picture_GetLineXY(int16_t x1, int16_t y1, int16_t x2, int16_t y2, uint16_t *xs,
                           uint16_t *ys);

/// Draws the picture scaled to width x height points and rotated by `angle` degrees (clockwise if y
/// points up) about the middle of that area, whose lower edge is the picture's own height below y.
/// Drawn as textured lines from the left edge to the right one, each twice to close gaps. Corners
/// are searched at whole degrees, so edges may be off by some points. A corner that is not found
/// counts as the middle: areas of 230 points and more a side may not be drawn at all. NaN draws
/// nothing.
void Picture_Rotate(int16_t x, int16_t y, int16_t width, int16_t height, float angle,
                    const Picture &picture);

#pragma GCC visibility pop
