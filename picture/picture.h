// Pictures of every format as one record of RGBA pixels: detection by content, loading, release,
// conversion to HAM68, and output through the raster layer. One picture loads at a time: decoders
// keep the file that they read in globals.
#pragma once

#include <cstddef>
#include <cstdint>

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
};

struct Picture {
    uint16_t Width, Height;              // pixels
    uint16_t BufferWidth, BufferHeight;  // size of the pixel buffer: a row is BufferWidth x 4 bytes
    uint8_t Bits;                        // bits per pixel of the source file
    uint8_t *Pixels;                     // R G B A, 8 bits each, top row first; alpha 255 is opaque
    uint16_t ThumbWidth, ThumbHeight;    // embedded thumbnail (JPEG), else 0
    uint16_t ThumbBufferWidth, ThumbBufferHeight;
    uint8_t *ThumbPixels;
    uint8_t Format;  // PICTURE_FORMAT
};

/// Current drawing colour, also the key colour of the drawing operations.
extern uint8_t PictureCR, PictureCG, PictureCB, PictureCA;

/// Bytes that one pixel buffer may have; larger pictures are null pictures. May be lowered.
extern size_t Picture_MaxBytes;

/// For decoders: a file that can hold less than this part of its pixels has a size that is not
/// believed, and gives the null picture; one that holds more is cut short.
constexpr size_t Picture_LeastShare = 8;

/// For decoders: a zeroed buffer of width x height RGBA pixels from calloc, the caller's. Null when
/// a side is 0, when it would pass Picture_MaxBytes, or without memory.
uint8_t *Picture_NewPixels(uint32_t width, uint32_t height);

/// The same without clearing, for decoders that set every pixel whatever the file.
uint8_t *Picture_NewUnsetPixels(uint32_t width, uint32_t height);

/// Format of the file from its first 256 bytes; the last signature that matches wins, on purpose.
/// `rawPlanes` 6 or 8 says that the file is a headerless HAM dump and makes it PICTURE_HAM68
/// unread.
uint8_t Picture_Check(const char *path, uint16_t rawPlanes);

/// Detects, reads and decodes a file. `hint` is the width of a headerless HAM file (0: 320), and
/// for GIF 1 to lay every frame over the one before. Pixels is null, and nothing is printed, when
/// the file cannot be read. The caller owns the record until Picture_UnLoad.
Picture Picture_Load(const char *path, uint16_t hint, uint16_t rawPlanes);

/// Frees what the record owns. A GIF's frames and a sprite file's images go with it.
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
/// of that area, which comes to lie at (x, y). An angle that is no number draws nothing.
void Picture_PutRotate(int16_t x, int16_t y, double angle, int16_t newWidth, int16_t newHeight,
                       const Picture &picture);

/// Sets PictureCR, PictureCG, PictureCB and PictureCA.
void Picture_SetColor(uint8_t r, uint8_t g, uint8_t b, uint8_t a);

/// Loads a picture and frees it at once: only sizes, Bits and Format of the result may be used.
Picture Sprite_Load(const char *path, uint16_t hint, uint16_t rawPlanes);
/// No effect: sprites are drawn as pictures.
void Sprite_Put(int16_t x, int16_t y);
void Sprite_UnLoad();
