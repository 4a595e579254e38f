// GIF pictures with all their frames (GIF87a, GIF89a). The frames belong to their picture, which
// may be used and unloaded on another thread than the one that loaded it.
//
// The rules (Picture_Rules)   framework                          format
// a frame's data, decoded     a picture of the whole screen      still compressed, for GIF_Compose
// on the screen               alone, or over the frame before    as disposal methods leave it
// before the first frame      background colour, alpha 0         the same, opaque; (0, 0, 0, 0) if
//                                                                the frame has transparency
// where a frame is cleared    (frames are not disposed of)       (0, 0, 0, 0)
// beyond the right edge       indexes continue in the next row   clipped
// interlaced frames           at the top left, rows continue     in their place
// missing pixels              index 0                            not drawn
// comment                     up to a 0, block lengths included  its text; may be empty
// frames                      at most 1024, of limited size      at most 65535
// screen without a size       no picture                         the first frame's size
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "extra/bytes.h"
#include "picture/pixels.h"

#pragma GCC visibility push(default)

constexpr size_t GIF_MaxFrames = 1024;  // by the framework's rules; later ones are dropped

struct GIF_HEADER {
    uint16_t Width, Height;  // of the screen, pixels
    uint8_t Bits;            // the colour resolution field minus 1: bits per component - 2
    uint8_t Version;         // '7' or '9'
    uint16_t GlobalColors;   // entries of the global palette, if there is one
    uint8_t GlobalSorted;
    uint8_t ColorResolution;  // as Bits
    uint8_t HasGlobalPalette;
    PIXELS_PALETTE GlobalPalette;  // alpha 255
    uint8_t Background;            // index
    uint8_t AspectRatio;
    uint16_t FrameCount;
    std::array<char, 128> Comment;  // the last one, with a NUL
    uint32_t Size;                  // of a picture: Width x Height x 4
    uint32_t BlockOffset;           // of the first block in the file
    uint8_t HasLoopCount;           // of the application extension NETSCAPE2.0
    uint16_t LoopCount;             // how often the animation starts over, 0: for ever
    std::array<uint32_t, GIF_MaxFrames> DataSize;  // of the frames' compressed data, bytes
};

struct GIF_FRAME {
    uint16_t Left, Top, Width, Height;
    uint16_t LocalColors;
    uint8_t Sorted, Interlaced, HasLocalPalette;
    uint8_t MinimumCodeSize;
    PIXELS_PALETTE LocalPalette;  // alpha 255
    /// Owned by the picture. Framework: after GIF_Load Width x Height palette indexes in file
    /// order, after GIF_Decoding the RGBA picture of the screen's size (null if memory ran out).
    /// Format: the compressed data, DataSize bytes.
    uint8_t *Data;
    // from the Graphic Control Extension before the frame
    uint8_t HasTransparency, UserInput;
    uint8_t Disposal;
    uint16_t Delay;  // hundredths of a second
    uint8_t TransparentIndex;
    uint32_t DataSize;
};

/// A loaded file, owned by its picture.
struct GIF_PICTURE {
    GIF_HEADER Header;
    std::vector<GIF_FRAME> Frames;
    BYTES_BUFFER Codes;  // by the format's rules: the frames' Data point into it
};

/// The file being decoded, one at a time per thread. The header stays after GIF_UnLoad; so do
/// the frames, until their picture is unloaded or this thread loads again.
extern constinit thread_local GIF_HEADER GIF_Header;
extern constinit thread_local std::span<GIF_FRAME> GIF_Frames;
extern constinit thread_local BYTES_BUFFER GIF_File;
extern constinit thread_local size_t GIF_Position;  // next byte to read

/// Reads a file. By the framework's rules its frames are decompressed to indexes; missing ones are
/// 0. Each frame is charged 4 bytes per pixel of the screen or of itself, whichever is more;
/// loading stops, with a reason, where the total exceeds what a file of this size is allowed, or
/// Picture_MaxBytes. Frame data are compacted in place in GIF_File; by the format's rules the
/// picture then owns it. Byte heap 0 becomes current, last in first out, without a buffer.
void GIF_Load(const char *path);

/// Returns the first frame's picture, which GIF_FreeFrames frees; null, with a reason, without
/// frames. By the framework's rules all frames become pictures. Mode 0: every frame stands alone,
/// transparent around it and at its transparent pixels; mode 1: it is drawn over the frame before.
/// Peak memory: the frames as charged above, one frame's indexes, the file. By the format's rules
/// the mode is ignored, and the peak is one picture, one frame's indexes (together at most
/// Picture_MaxBytes) and the file, which the picture keeps.
uint8_t *GIF_Decoding(uint16_t mode);

/// Frees the file image.
void GIF_UnLoad();

/// Frees `first`, which GIF_Decoding returned on this thread or another, and all frames with it.
void GIF_FreeFrames(uint8_t *first);

/// The file whose first frame GIF_Decoding returned as `first`; valid until GIF_FreeFrames. Any
/// thread may read it.
const GIF_PICTURE &GIF_PictureOf(const uint8_t *first);

/// State of composing the frames of one picture. Starts empty.
struct GIF_CANVAS {
    BYTES_BUFFER Screen;   // Width x Height RGBA pixels: the visible result
    BYTES_BUFFER Below;    // the screen before the top frame, if its disposal restores that
    BYTES_BUFFER Indexes;  // of the top frame
    size_t Laid = 0;       // frames drawn so far, the top one included
};

/// The canvas after the first frame, from its picture, which GIF_Decoding returned by the format's
/// rules: saves decoding it again. Empty, with a reason, if memory runs out.
GIF_CANVAS GIF_CanvasOf(const uint8_t *first);

/// Composes frame `n` (from 0) of a picture loaded by the format's rules: draws it after all frames
/// before it were drawn and disposed of. The next frame costs one frame; a jump costs at most the
/// frames since the last one that hides all before it. False, with a reason, if memory runs out, if
/// no such frame exists, or for a picture loaded by the framework's rules.
bool GIF_Compose(const GIF_PICTURE &gif, size_t n, GIF_CANVAS &canvas);

/// Copies the header to `out` and returns it.
GIF_HEADER *GIF_GetHeader(GIF_HEADER *out);

/// The frames, GIF_Header.FrameCount of them; null when none exist.
GIF_FRAME *GIF_GetFrames();

/// Data of frame `n`, or null if no such frame exists.
uint8_t *GIF_HEADER_GetFrameData(uint16_t n);

#pragma GCC visibility pop
