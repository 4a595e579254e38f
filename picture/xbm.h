// XBM pictures (X bitmaps): C text with a width, a height and the bits in hexadecimal, as bytes
// (X11) or 16-bit words (X10). Text is parsed by the functions of platform/system.h; the first NUL
// ends the file.
//
// The framework's rules and the format's (Picture_Rules, "Xlib", 16.9) differ in:
//   words     if the first number has four digits, continuing across rows; if the array is of
//             shorts, each row starting with a word of its own
//   numbers   exactly two or four digits after "0x"; any C number
#pragma once

#include <cstdint>

#include "extra/bytes.h"

#pragma GCC visibility push(default)

enum XBM_VARIANT : uint8_t { XBM_X10 = 10, XBM_X11 = 11 };  // words, bytes

struct XBM_HEADER {
    uint16_t Width, Height;  // pixels
    uint32_t Size;           // of the pixel buffer: BytesPerRow x 8 x Height x 4
    uint8_t BitsPerPixel;    // 1
    uint16_t HotX, HotY;     // 0 if the file has none
    uint16_t BytesPerRow;
    uint32_t DataOffset;  // of the first "0x" after "_bits"; by the format's rules of the "{"
    uint8_t Variant;      // XBM_VARIANT
    uint8_t Rules;        // PICTURE_RULES of the load
};

/// The file being decoded, one at a time per thread. The header stays after XBM_UnLoad.
extern constinit thread_local XBM_HEADER XBM_Header;
extern constinit thread_local BYTES_BUFFER XBM_File;  // the text and XBM_Padding NULs

/// Reads a file and finds its numbers. XBM_File is empty, with a reason, if the file has no bits or
/// too few for a row.
void XBM_Load(const char *path);

/// BytesPerRow x 8 by Height RGBA pixels, black for a set bit, else white; missing ones are 0. The
/// caller frees the buffer. Null if nothing was loaded and above Picture_MaxBytes. Memory in
/// addition to the pixels: only the file.
uint8_t *XBM_Decoding();

/// Frees the file image.
void XBM_UnLoad();

/// Copies the header to `out` and returns it.
XBM_HEADER *XBM_GetHeader(XBM_HEADER *out);

#pragma GCC visibility pop
