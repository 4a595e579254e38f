// JPEG's samples as pixels: chroma interpolated to full size, YCbCr (JFIF 1.02) to RGB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "picture/jpg_scan.h"

/// Writes `width` x `height` RGBA pixels from one plane (grey) or three. The first has full size;
/// the others are interpolated linearly between the centres of their samples. Before each row of
/// pixels `await` is called with the last one that the samples then read may belong to.
void JPG_ToPixels(std::span<const JPG_PLANE *const> planes, size_t width, size_t height,
                  uint8_t *pixels, const std::function<void(size_t row)> &await);
