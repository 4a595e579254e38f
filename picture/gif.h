// GIF pictures with all their frames (GIF87a, GIF89a), each decoded to a picture of the whole
// screen. Delays and disposal methods are stored for who plays the frames.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "extra/bytes.h"
#include "picture/pixels.h"

constexpr size_t GIF_MaxFrames = 1024;  // a file's further frames are left out

struct GIF_HEADER {
    uint16_t Width, Height;  // of the screen, pixels
    uint8_t Bits;            // the colour resolution field, bits a component less 1, less 1
    uint8_t Version;         // '7' or '9'
    uint16_t GlobalColors;   // entries of the global palette, if there is one
    uint8_t GlobalSorted;
    uint8_t ColorResolution;  // as Bits
    uint8_t HasGlobalPalette;
    PIXELS_PALETTE GlobalPalette;  // alpha 255
    uint8_t Background;            // index
    uint8_t AspectRatio;
    std::array<uint32_t, GIF_MaxFrames> DataSize;  // of each frame's compressed data, bytes
    uint16_t FrameCount;
    std::array<char, 128> Comment;  // the last one, with a NUL
    uint32_t Size;                  // of a picture: Width x Height x 4
    uint32_t BlockOffset;           // of the first block in the file
};

struct GIF_FRAME {
    uint16_t Left, Top, Width, Height;
    uint16_t LocalColors;
    uint8_t Sorted, Interlaced, HasLocalPalette;
    uint8_t MinimumCodeSize;
    PIXELS_PALETTE LocalPalette;  // alpha 255
    /// From malloc, owned by GIF_Frames. Width x Height palette indexes in file order after
    /// GIF_Load, the RGBA picture of the screen's size after GIF_Decoding.
    uint8_t *Data;
    // from the Graphic Control Extension in front of the frame
    uint8_t HasTransparency, UserInput;
    uint8_t Disposal;
    uint16_t Delay;  // hundredths of a second
    uint8_t TransparentIndex;
};

/// The file being decoded, one at a time. Header and frames stay after GIF_UnLoad.
extern constinit thread_local GIF_HEADER GIF_Header;
extern constinit thread_local std::vector<GIF_FRAME> GIF_Frames;
extern constinit thread_local BYTES_BUFFER GIF_File;
extern constinit thread_local size_t GIF_Position;  // next byte to read

/// Reads a file and decompresses its frames to indexes; those that a frame's data lack are 0.
/// Frees the frames of an earlier file, save the first's picture, which belongs to the picture that
/// it was loaded for. Frames count 4 bytes for every pixel of the screen, or of their own where
/// these are more: from the first on with which they pass Picture_MaxBytes together they are left
/// out. Leaves byte heap 0 current, last in first out, and without a buffer.
void GIF_Load(const char *path);

/// Turns all frames into pictures and returns the first's, which GIF_FreeFrames frees. Null without
/// frames. Mode 0: every frame stands alone, transparent around it and where it says so; 1: it is
/// laid over the frame before. Interlaced frames lie at the top left and run on from row to row as
/// if the screen had their width, on purpose. What the frames count, one frame's indexes and the
/// file twice are the peak of memory.
uint8_t *GIF_Decoding(uint16_t mode);

/// Frees the file image.
void GIF_UnLoad();

/// Frees `first`, which GIF_Decoding returned, with the other frames of its file.
void GIF_FreeFrames(uint8_t *first);

/// Copies the header to `out` and returns it.
GIF_HEADER *GIF_GetHeader(GIF_HEADER *out);

/// The frames, GIF_Header.FrameCount of them; null when there are none.
GIF_FRAME *GIF_GetFrames();

/// Data of frame `n`, null when there is no such frame.
uint8_t *GIF_HEADER_GetFrameData(uint16_t n);
