#include "picture/picture.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numbers>
#include <string_view>

#include "extra/bytes.h"
#include "picture/bmp.h"
#include "picture/gif.h"
#include "picture/graphics.h"
#include "picture/ham68.h"
#include "picture/jpg.h"
#include "picture/jpg_scan.h"
#include "picture/lbm.h"
#include "picture/pcx.h"
#include "picture/png.h"
#include "picture/pxm.h"
#include "picture/spr.h"
#include "picture/tga.h"
#include "picture/tif.h"
#include "picture/xbm.h"
#include "platform/system.h"

uint8_t PictureCR, PictureCG, PictureCB, PictureCA;
size_t Picture_MaxBytes = size_t{1} << 30;

// Bytes of a picture, 0 for one that cannot be.
static size_t PixelBytes(uint32_t width, uint32_t height)
{
    const uint64_t count = uint64_t{width} * height;
    return count <= Picture_MaxBytes / 4 ? count * 4 : 0;
}

uint8_t *Picture_NewPixels(uint32_t width, uint32_t height)
{
    const size_t bytes = PixelBytes(width, height);
    return bytes != 0 ? static_cast<uint8_t *>(std::calloc(bytes, 1)) : nullptr;
}

uint8_t *Picture_NewUnsetPixels(uint32_t width, uint32_t height)
{
    const size_t bytes = PixelBytes(width, height);
    return bytes != 0 ? static_cast<uint8_t *>(std::malloc(bytes)) : nullptr;
}

// The first 256 bytes of a file; what it lacks is 0, and so is the byte behind them.
struct PICTURE_HEAD {
    std::array<uint8_t, 257> Bytes{};

    const char *Text() const
    {
        return reinterpret_cast<const char *>(Bytes.data());
    }

    bool Has(size_t offset, std::string_view magic) const
    {
        return std::memcmp(Bytes.data() + offset, magic.data(), magic.size()) == 0;
    }
    uint8_t operator[](size_t i) const
    {
        return Bytes[i];
    }
};

// An XBM file is C text: its three names appear, in either case, before the first NUL.
static bool LooksLikeXBM(const PICTURE_HEAD &head)
{
    for (const char *name : {"_width", "_height", "_bits"}) {
        uint32_t position = 0;
        if (!System_StrSearch(head.Text(), name, &position, -32))
            return false;
    }
    return true;
}

uint8_t Picture_Check(const char *path, uint16_t rawPlanes)
{
    using namespace std::string_view_literals;
    PICTURE_HEAD head;
    if (!Bytes_LoadHead(path, std::span(head.Bytes).first(256)))
        return PICTURE_UNKNOWN;
    if (rawPlanes == 6 || rawPlanes == 8)
        return PICTURE_HAM68;

    // The order matters: the last signature that matches wins.
    uint8_t format = PICTURE_UNKNOWN;
    if (head.Has(0, "HAM6") || head.Has(0, "HAM8"))
        format = PICTURE_HAM68;
    if (head.Has(0, "BM"))
        format = PICTURE_BMP;
    if (head[0] == 0x0A)
        format = PICTURE_PCX;
    if (head[0] == 'P' && head[1] >= '1' && head[1] <= '6')
        format = PICTURE_PNM;
    if ((head.Has(0, "\xFF\xD8\xFF\xE0"sv) && head.Has(6, "JFIF")) ||
        (head.Has(0, "\xFF\xD8\xFF\xE1"sv) && head.Has(6, "Exif")))
        format = PICTURE_JPEG;
    if (head[0] == 0 && head[1] == 0 && head[2] != 0 && head[16] % 8 == 0)
        format = PICTURE_TGA;
    if (head.Has(0, "\x89PNG\r\n\x1A\n"))
        format = PICTURE_PNG;
    if (head.Has(0, "FORM") && (head.Has(8, "ILBM") || head.Has(8, "PBM ")))
        format = PICTURE_ILBM;
    if (LooksLikeXBM(head))
        format = PICTURE_XBM;
    if (head.Has(0, "II") || head.Has(0, "MM"))
        format = PICTURE_TIFF;
    if (head.Has(0, "GIF8"))
        format = PICTURE_GIF;
    if (head.Has(0, "SPRITES"))
        format = PICTURE_SPRITES;
    return format;
}

static void LoadHAM68(Picture &picture, const char *path, uint16_t hint, uint16_t rawPlanes)
{
    HAM68_Load(path, hint, static_cast<uint8_t>(rawPlanes));
    picture.Width = picture.BufferWidth = HAM68_Header.Width;
    picture.Height = picture.BufferHeight = HAM68_Header.Height;
    picture.Bits = HAM68_Header.Planes;
    picture.Pixels = HAM68_Decoding(HAM68_Header.Planes);
    HAM68_UnLoad();
}

// The sequence of most formats.
template <auto Load, auto *Header, auto Decoding, auto UnLoad>
static void LoadPlain(Picture &picture, const char *path, uint16_t, uint16_t)
{
    Load(path);
    picture.Width = picture.BufferWidth = static_cast<uint16_t>(Header->Width);
    picture.Height = picture.BufferHeight = static_cast<uint16_t>(Header->Height);
    picture.Bits = static_cast<uint8_t>(Header->BitsPerPixel);
    picture.Pixels = Decoding();
    UnLoad();
}

static void LoadJPG(Picture &picture, const char *path, uint16_t, uint16_t)
{
    JPG_Load(path);
    picture.Width = JPG_Header.Width;
    picture.Height = JPG_Header.Height;
    picture.BufferWidth = static_cast<uint16_t>(JPG_Decoder.PaddedWidth);
    picture.BufferHeight = static_cast<uint16_t>(JPG_Decoder.PaddedHeight);
    picture.Bits = static_cast<uint8_t>(JPG_Header.Precision * JPG_Header.ComponentCount);
    picture.Pixels = JPG_Decoding();
    picture.ThumbPixels = JPG_GetThumbnail();
    picture.ThumbWidth = JPG_Header.ThumbWidth;
    picture.ThumbHeight = JPG_Header.ThumbHeight;
    picture.ThumbBufferWidth = static_cast<uint16_t>(JPG_Decoder.ThumbPaddedWidth);
    picture.ThumbBufferHeight = static_cast<uint16_t>(JPG_Decoder.ThumbPaddedHeight);
    JPG_UnLoad();
}

static void LoadTIF(Picture &picture, const char *path, uint16_t, uint16_t)
{
    TIF_Load(path);
    picture.Width = picture.BufferWidth = TIF_Header.Width;
    picture.Height = picture.BufferHeight = TIF_Header.Height;
    picture.Bits = TIF_Header.BitsPerSample;
    picture.Pixels = TIF_Decoding();
    TIF_UnLoad();
}

// The decoder's rows end on whole bytes of a plane; the record's on its width.
static void LoadLBM(Picture &picture, const char *path, uint16_t, uint16_t)
{
    LBM_Load(path);
    picture.Width = picture.BufferWidth = LBM_Header.Width;
    picture.Height = picture.BufferHeight = LBM_Header.Height;
    picture.Bits = LBM_Header.Planes;
    picture.Pixels = LBM_Decoding();
    const size_t row = size_t{LBM_Header.Width} * 4, stride = size_t{LBM_Header.BufferWidth} * 4;
    for (size_t y = 1; picture.Pixels && row != stride && y < picture.Height; y++)
        std::memmove(picture.Pixels + y * row, picture.Pixels + y * stride, row);
    LBM_UnLoad();
}

static void LoadXBM(Picture &picture, const char *path, uint16_t, uint16_t)
{
    XBM_Load(path);
    picture.Width = XBM_Header.Width;
    picture.BufferWidth = static_cast<uint16_t>(XBM_Header.BytesPerRow * 8);
    picture.Height = picture.BufferHeight = XBM_Header.Height;
    picture.Bits = XBM_Header.BitsPerPixel;
    picture.Pixels = XBM_Decoding();
    XBM_UnLoad();
}

static void LoadGIF(Picture &picture, const char *path, uint16_t hint, uint16_t)
{
    GIF_Load(path);
    picture.Width = picture.BufferWidth = GIF_Header.Width;
    picture.Height = picture.BufferHeight = GIF_Header.Height;
    picture.Bits = GIF_Header.Bits;
    picture.Pixels = GIF_Decoding(hint);
    GIF_UnLoad();
}

// What loads each format, by its code; null where nothing decodes it.
using PICTURE_LOADER = void (*)(Picture &picture, const char *path, uint16_t hint,
                                uint16_t rawPlanes);
static constexpr std::array<PICTURE_LOADER, 13> loaders = {
    nullptr,                                                     // PICTURE_UNKNOWN
    LoadHAM68,                                                   // PICTURE_HAM68
    LoadPlain<BMP_Load, &BMP_Header, BMP_Decoding, BMP_UnLoad>,  // PICTURE_BMP
    LoadPlain<PCX_Load, &PCX_Header, PCX_Decoding, PCX_UnLoad>,  // PICTURE_PCX
    LoadPlain<PXM_Load, &PXM_Header, PXM_Decoding, PXM_UnLoad>,  // PICTURE_PNM
    LoadJPG,                                                     // PICTURE_JPEG
    LoadPlain<TGA_Load, &TGA_Header, TGA_Decoding, TGA_UnLoad>,  // PICTURE_TGA
    LoadPlain<PNG_Load, &PNG_Header, PNG_Decoding, PNG_UnLoad>,  // PICTURE_PNG
    LoadLBM,                                                     // PICTURE_ILBM
    LoadXBM,                                                     // PICTURE_XBM
    LoadTIF,                                                     // PICTURE_TIFF
    LoadGIF,                                                     // PICTURE_GIF
    LoadPlain<SPR_Load, &SPR_Header, SPR_Decoding, SPR_UnLoad>,  // PICTURE_SPRITES
};

Picture Picture_Load(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    const BYTES_OPEN file(path);
    Picture picture{};
    rawPlanes &= 0xFF;
    picture.Format = Picture_Check(path, rawPlanes);
    if (const PICTURE_LOADER load = loaders[picture.Format])
        load(picture, path, hint, rawPlanes);
    return picture;
}

void Picture_UnLoad(Picture picture)
{
    if (picture.Format == PICTURE_GIF) {
        GIF_FreeFrames(picture.Pixels);
    } else if (picture.Format == PICTURE_SPRITES) {
        SPR_FreeImages(picture.Pixels);
    } else {
        std::free(picture.Pixels);
        std::free(picture.ThumbPixels);
        std::free(JPG_Header.Thumbnail);  // should it not have been handed over
        JPG_Header.Thumbnail = nullptr;
    }
}

int Picture_Converter(uint8_t mode, const char *path, const Picture &picture)
{
    constexpr std::array<uint16_t, 5> codes = {0, 6, 8, 6 << 8, 8 << 8};
    if (mode == 0 || mode >= codes.size())
        return 0;
    if (!picture.Pixels)
        return EOF;
    return HAM68_Encoding(picture.Pixels, picture.Width, picture.Height, path, codes[mode]);
}

static int16_t To16(int value)
{
    return static_cast<int16_t>(value);
}

// Draws a pixel in its own colour unless it is wholly transparent.
static void PutVisible(int16_t x, int16_t y, const uint8_t *rgba)
{
    if (rgba[3] == 0)
        return;
    Graphics_SetColor(rgba[0], rgba[1], rgba[2], rgba[3]);
    Graphics_PutPixel(x, y);
}

static void PutAll(int16_t x, int16_t y, const uint8_t *pixels, int width, int height,
                   size_t stride)
{
    if (!pixels)
        return;
    for (int r = 0; r < height; r++)
        for (int c = 0; c < width; c++)
            PutVisible(To16(x + c), To16(y - r),
                       pixels + (static_cast<size_t>(r) * stride + static_cast<size_t>(c)) * 4);
}

void Picture_Put(int16_t x, int16_t y, const Picture &picture)
{
    PutAll(x, y, picture.Pixels, picture.Width, picture.Height, picture.BufferWidth);
}

void Picture_PutThumbnail(int16_t x, int16_t y, const Picture &picture)
{
    PutAll(x, y, picture.ThumbPixels, picture.ThumbWidth, picture.ThumbHeight,
           picture.ThumbBufferWidth);
}

void Picture_PutRotate(int16_t x, int16_t y, double angle, int16_t newWidth, int16_t newHeight,
                       const Picture &picture)
{
    if (!picture.Pixels || picture.Width == 0 || picture.Height == 0 || !std::isfinite(angle))
        return;
    const double a = (angle + 180) * std::numbers::pi / 180, cosine = std::cos(a),
                 sine = std::sin(a);
    const float sx = static_cast<float>(picture.Width) / newWidth;
    const float sy = static_cast<float>(picture.Height) / newHeight;
    for (int i = 0; i < newHeight; i++)
        for (int j = 0; j < newWidth; j++) {
            const int dx = newWidth / 2 - j, dy = newHeight / 2 - i;
            const int rx = static_cast<int>(dx * cosine - dy * sine);
            const int ry = static_cast<int>(dx * sine + dy * cosine);
            const size_t column = static_cast<size_t>(sx * static_cast<float>(j)) % picture.Width;
            const size_t row = static_cast<size_t>(sy * static_cast<float>(i)) % picture.Height;
            PutVisible(To16(x + rx), To16(y - ry),
                       picture.Pixels + (row * picture.BufferWidth + column) * 4);
        }
}

void Picture_SetColor(uint8_t r, uint8_t g, uint8_t b, uint8_t a)
{
    PictureCR = r;
    PictureCG = g;
    PictureCB = b;
    PictureCA = a;
}

Picture Sprite_Load(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    const Picture picture = Picture_Load(path, hint, rawPlanes);
    Picture_UnLoad(picture);  // kept on purpose: callers get the sizes only
    return picture;
}

void Sprite_Put(int16_t, int16_t) {}

void Sprite_UnLoad() {}
