// Pictures of every format as one record of RGBA pixels: detection by content, loading, release,
// conversion to HAM68, and output through the raster layer. Any number of threads may load, each
// its own pictures: the decoders' globals are thread-local. A picture may be used and unloaded on
// another thread than the one that loaded it.
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
    PICTURE_FORMATS        // how many codes there are
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

/// Current drawing colour, also the key colour of the drawing operations; every thread has its own.
extern constinit thread_local uint8_t PictureCR, PictureCG, PictureCB, PictureCA;

/// A format's name for a person, such as "PNG"; "unknown" for any other number.
const char *Picture_FormatName(uint8_t format);

/// Format of the file from its first 256 bytes; the last signature that matches wins, on purpose.
/// `rawPlanes` 6 or 8 says that the file is a headerless HAM dump and makes it PICTURE_HAM68
/// unread.
uint8_t Picture_Check(const char *path, uint16_t rawPlanes);
/// The same for a file in memory.
uint8_t Picture_CheckBytes(std::span<const uint8_t> file, uint16_t rawPlanes);

/// Detects, reads and decodes a file under the rules that Picture_Rules names. `hint` is the width
/// of a headerless HAM file (0: 320), and for GIF 1 to lay every frame over the one before. Pixels
/// is null, and nothing is printed, when the file cannot be read. Nothing is thrown. The caller
/// owns the record until Picture_UnLoad.
Picture Picture_Load(const char *path, uint16_t hint, uint16_t rawPlanes);
/// The same for a file in memory, which is wanted only during the call.
Picture Picture_LoadBytes(std::span<const uint8_t> file, uint16_t hint, uint16_t rawPlanes);

/// Why this thread's last load gave no pixels, or fewer than its file promises, such as "cut after
/// 312 of 480 rows"; "" when nothing is missing. Valid until the thread's next load.
const char *Picture_Reason();

/// Frees what the record owns. A GIF's frames and a sprite file's images go with it. The record may
/// come from another thread.
void Picture_UnLoad(Picture picture);

/// Writes the picture as HAM6 (1), HAM8 (2), or either with run-length compression (3, 4). Returns
/// 0 when the file was written whole; other modes do nothing and return 0. The null picture writes
/// nothing and gives EOF; rows are taken to be Width long, whatever BufferWidth says.
int Picture_Converter(uint8_t mode, const char *path, const Picture &picture);

/// Draws the picture, or its thumbnail, with its top left at (x, y) and rows going to smaller y.
/// Pixels of alpha 0 are left out.
void Picture_Put(int16_t x, int16_t y, const Picture &picture);
void Picture_PutThumbnail(int16_t x, int16_t y, const Picture &picture);

/// Draws the picture scaled to newWidth x newHeight and turned by `angle` degrees about the middle
/// of that area, which comes to lie at (x, y). NaN draws nothing.
void Picture_PutRotate(int16_t x, int16_t y, double angle, int16_t newWidth, int16_t newHeight,
                       const Picture &picture);

/// Sets PictureCR, PictureCG, PictureCB and PictureCA.
void Picture_SetColor(uint8_t r, uint8_t g, uint8_t b, uint8_t a);

/// Loads a picture and frees it at once: only sizes, Bits and Format of the result may be used.
Picture Sprite_Load(const char *path, uint16_t hint, uint16_t rawPlanes);
/// No effect: sprites are drawn as pictures.
void Sprite_Put(int16_t x, int16_t y);
void Sprite_UnLoad();

#pragma GCC visibility pop
