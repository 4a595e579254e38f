// Sprite files, the framework's own: up to 255 images of one size. After "SPRITES" one byte each
// for the number of images, their width and their height (0: 256), then the pixels of all images as
// B G R, top row first, without gaps.
#pragma once

#include <array>
#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

struct SPR_HEADER {
    uint16_t Width, Height;             // of each image, pixels
    uint32_t Size;                      // Width x Height x 4
    uint16_t BitsPerPixel;              // 24
    uint8_t Count;                      // images
    std::array<uint8_t *, 256> Images;  // RGBA pixels of each; null for a missing one
};

/// The file being decoded, one at a time per thread. The header and its images stay after
/// SPR_UnLoad until SPR_FreeImages or this thread's next load.
extern constinit thread_local SPR_HEADER SPR_Header;
extern constinit thread_local BYTES_BUFFER SPR_File;

/// Reads a file's header. The images of an earlier file stay valid; their picture owns them.
void SPR_Load(const char *path);

/// Decodes all images into SPR_Header and returns the first. Each is Width x Height RGBA pixels,
/// opaque; missing pixels are 0. Images without their first row are null; if that is the first
/// image, the result is null, with a reason. All images share one buffer, in order, of at most 64
/// MiB (and Picture_MaxBytes).
uint8_t *SPR_Decoding();

/// Frees the file image.
void SPR_UnLoad();

/// Frees `first`, which SPR_Decoding returned on this thread or another, and the other images of
/// its file.
void SPR_FreeImages(uint8_t *first);

/// Copies the header, including the addresses of the images, to `out` and returns it.
SPR_HEADER *SPR_GetHeader(SPR_HEADER *out);

#pragma GCC visibility pop
