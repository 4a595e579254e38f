// JPEG's samples as pixels: chroma interpolated to full size, YCbCr (JFIF 1.02) to RGB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "picture/jpg_scan.h"

/// Writes `width` x `height` RGBA pixels from one plane (grey) or three. The first has full size;
/// the others are interpolated linearly between the centres of their samples.
void JPG_ToPixels(std::span<const JPG_PLANE> planes, size_t width, size_t height, uint8_t *pixels);
