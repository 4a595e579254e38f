// Pictures of every format as one record of RGBA pixels: detection by content, loading, release,
// conversion to HAM68, and output through the raster layer. Any number of threads may load pictures
// at the same time, since the decoders' globals are thread-local. A picture may be used and
// unloaded on another thread than the one that loaded it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "picture/pixels.h"

#pragma GCC visibility push(default)

enum PICTURE_FORMAT : uint8_t {
    PICTURE_UNKNOWN = 0,  // or the file cannot be opened
    PICTURE_HAM68 = 1,    // HAM6, HAM8 and headerless planes
    PICTURE_BMP = 2,
    PICTURE_PCX = 3,
    PICTURE_PNM = 4,
    PICTURE_JPEG = 5,
    PICTURE_TGA = 6,
    PICTURE_PNG = 7,
    PICTURE_ILBM = 8,  // and PBM
    PICTURE_XBM = 9,
    PICTURE_TIFF = 10,
    PICTURE_GIF = 11,
    PICTURE_SPRITES = 12,  // the framework's own sprite file
    PICTURE_FORMATS        // number of codes
};

struct Picture {
    uint16_t Width, Height;              // pixels; may be set while Pixels is null
    uint16_t BufferWidth, BufferHeight;  // size of the pixel buffer: a row is BufferWidth x 4 bytes
    uint8_t Bits;                        // bits per pixel of the source file
    uint8_t *Pixels;                     // R G B A, 8 bits each, top row first; alpha 255 is opaque
    uint16_t ThumbWidth, ThumbHeight;    // embedded thumbnail (JPEG), else 0
    uint16_t ThumbBufferWidth, ThumbBufferHeight;
    uint8_t *ThumbPixels;
    uint8_t Format;  // PICTURE_FORMAT
};

/// Current drawing colour, also the key colour of the drawing operations; per thread.
extern constinit thread_local uint8_t PictureCR, PictureCG, PictureCB, PictureCA;

/// A format's display name, such as "PNG"; "unknown" for any other number.
const char *Picture_FormatName(uint8_t format);

/// Detects a file's format from its first 256 bytes; the last matching signature wins, on purpose.
/// `rawPlanes` 6 or 8 declares a headerless HAM dump: the result is PICTURE_HAM68 without a check.
uint8_t Picture_Check(const char *path, uint16_t rawPlanes);
/// The same for a file in memory.
uint8_t Picture_CheckBytes(std::span<const uint8_t> file, uint16_t rawPlanes);

/// Detects, reads and decodes a file under the rules that Picture_Rules selects. `hint` is the
/// width of a headerless HAM file (0: 320); for GIF, 1 draws every frame over the one before.
/// Pixels is null, with a reason, if nothing can be decoded; nothing is printed if the file cannot
/// be read. Throws nothing. The caller owns the record until Picture_UnLoad.
Picture Picture_Load(const char *path, uint16_t hint, uint16_t rawPlanes);
/// The same for a file in memory, which is used only during the call.
Picture Picture_LoadBytes(std::span<const uint8_t> file, uint16_t hint, uint16_t rawPlanes);

/// Why this thread's last load gave no pixels, or fewer than its file promises, such as "cut after
/// 312 of 480 rows"; "" if nothing is missing. Valid until the thread's next load.
const char *Picture_Reason();

/// Frees what the record owns, including a GIF's frames and a sprite file's images. The record may
/// come from another thread.
void Picture_UnLoad(Picture picture);

/// Writes the picture as HAM6 (1), HAM8 (2), or either with run-length compression (3, 4). Returns
/// 0 if the whole file was written. Other modes do nothing and return 0. A picture without pixels
/// writes nothing and returns EOF. Rows are assumed to be Width long, whatever BufferWidth says.
int Picture_Converter(uint8_t mode, const char *path, const Picture &picture);

/// Draws the picture, or its thumbnail, with its top left at (x, y) and rows going to smaller y.
/// Pixels of alpha 0 are skipped.
void Picture_Put(int16_t x, int16_t y, const Picture &picture);
void Picture_PutThumbnail(int16_t x, int16_t y, const Picture &picture);

/// Draws the picture scaled to newWidth x newHeight and rotated by `angle` degrees about the middle
/// of that area, which is placed at (x, y). NaN draws nothing.
void Picture_PutRotate(int16_t x, int16_t y, double angle, int16_t newWidth, int16_t newHeight,
                       const Picture &picture);

/// Sets PictureCR, PictureCG, PictureCB and PictureCA.
void Picture_SetColor(uint8_t r, uint8_t g, uint8_t b, uint8_t a);

/// Loads a picture and frees it at once: only sizes, Bits and Format of the result are valid.
Picture Sprite_Load(const char *path, uint16_t hint, uint16_t rawPlanes);
/// No effect: sprites are drawn as pictures.
void Sprite_Put(int16_t x, int16_t y);
void Sprite_UnLoad();

#pragma GCC visibility pop
