// XBM pictures (X bitmaps): C text with a width, a height and the bits in hexadecimal, as bytes
// (X11) or 16-bit words (X10). Texts are read by the rules of platform/system.h; the first NUL ends
// the file.
//
// The framework's rules and the format's (Picture_Rules, "Xlib", 16.9) differ in:
//   words     where the first number has four digits, and run on across rows; where the array is of
//             shorts, and each row begins with a word of its own
//   numbers   just two or four digits after "0x"; any C number
#pragma once

#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

enum XBM_VARIANT : uint8_t { XBM_X10 = 10, XBM_X11 = 11 };  // words, bytes

struct XBM_HEADER {
    uint16_t Width, Height;  // pixels
    uint32_t Size;           // of the pixel buffer: BytesPerRow x 8 x Height x 4
    uint8_t BitsPerPixel;    // 1
    uint16_t HotX, HotY;     // 0 where the file has none
    uint16_t BytesPerRow;
    uint32_t DataOffset;  // of the first "0x" behind "_bits"
    uint8_t Variant;      // XBM_VARIANT
    uint8_t Rules;        // PICTURE_RULES of the load
};

/// The file being decoded, one at a time. The header stays after XBM_UnLoad.
extern constinit thread_local XBM_HEADER XBM_Header;
extern constinit thread_local BYTES_BUFFER XBM_File;  // the text and some NULs

/// Reads a file and finds its numbers. A file without bits, or of bits too few for a row, leaves
/// XBM_File empty.
void XBM_Load(const char *path);

/// BytesPerRow x 8 by Height RGBA pixels, black where a bit is set, else white; those that the file
/// lacks are 0. The caller frees them. Null when nothing was loaded and past Picture_MaxBytes.
/// Nothing but the file stands beside the pixels.
uint8_t *XBM_Decoding();

/// Frees the file image.
void XBM_UnLoad();

/// Copies the header to `out` and returns it.
XBM_HEADER *XBM_GetHeader(XBM_HEADER *out);

#pragma GCC visibility pop
