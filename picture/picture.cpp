#include "picture/picture.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numbers>
#include <string_view>

#include "extra/bytes.h"
#include "extra/reason.h"
#include "picture/bmp.h"
#include "picture/gif.h"
#include "picture/graphics.h"
#include "picture/ham68.h"
#include "picture/jpg.h"
#include "picture/lbm.h"
#include "picture/pcx.h"
#include "picture/png.h"
#include "picture/pxm.h"
#include "picture/spr.h"
#include "picture/tga.h"
#include "picture/tif.h"
#include "picture/xbm.h"
#include "platform/system.h"

using namespace std::string_view_literals;

constinit thread_local uint8_t PictureCR{}, PictureCG{}, PictureCB{}, PictureCA{};

namespace
{

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

}  // namespace

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

template <typename... Magic>
static bool Begins(const PICTURE_HEAD &head, Magic... magic)
{
    return (head.Has(0, magic) || ...);
}

static bool LooksLikeJPEG(const PICTURE_HEAD &head)
{
    return JPG_Detected(head.Bytes);
}

// What most headers give.
template <typename Header>
static void Fill(Picture &picture, const Header &header, uint8_t *(*decode)())
{
    picture.Width = picture.BufferWidth = static_cast<uint16_t>(header.Width);
    picture.Height = picture.BufferHeight = static_cast<uint16_t>(header.Height);
    if constexpr (requires { header.BitsPerPixel; })
        picture.Bits = static_cast<uint8_t>(header.BitsPerPixel);
    picture.Pixels = decode();
}

static void FillHAM68(Picture &picture, uint16_t)
{
    picture.Bits = HAM68_Header.Planes;
    Fill(picture, HAM68_Header, [] { return HAM68_Decoding(HAM68_Header.Planes); });
}

static void FillJPG(Picture &picture, uint16_t)
{
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
}

static void FillTIF(Picture &picture, uint16_t)
{
    picture.Bits = TIF_Header.BitsPerSample;
    Fill(picture, TIF_Header, TIF_Decoding);
}

// The decoder's rows end on whole bytes of a plane; the record's on its width.
static void FillLBM(Picture &picture, uint16_t)
{
    picture.Bits = LBM_Header.Planes;
    Fill(picture, LBM_Header, LBM_Decoding);
    const size_t row = size_t{LBM_Header.Width} * 4, stride = size_t{LBM_Header.BufferWidth} * 4;
    for (size_t y = 1; picture.Pixels && row != stride && y < picture.Height; y++)
        std::memmove(picture.Pixels + y * row, picture.Pixels + y * stride, row);
}

static void FillXBM(Picture &picture, uint16_t)
{
    Fill(picture, XBM_Header, XBM_Decoding);
    picture.BufferWidth = static_cast<uint16_t>(XBM_Header.BytesPerRow * 8);
}

static void FillGIF(Picture &picture, uint16_t hint)
{
    picture.Width = picture.BufferWidth = GIF_Header.Width;
    picture.Height = picture.BufferHeight = GIF_Header.Height;
    picture.Bits = GIF_Header.Bits;
    picture.Pixels = GIF_Decoding(hint);
}

static void FreePixels(const Picture &picture)
{
    std::free(picture.Pixels);
    std::free(picture.ThumbPixels);
}

namespace
{

// All that is known of a format, in one place. Detected: whether a file's head is one's own. Load,
// Fill (the decoder's header and pixels into the record) and UnLoad run in this order, Free when
// the record goes. Load and Fill are null where nothing decodes it.
struct PICTURE_ROW {
    PICTURE_FORMAT Format;
    const char *Name;
    bool (*Detected)(const PICTURE_HEAD &head);
    void (*Load)(const char *path, uint16_t hint, uint8_t rawPlanes);
    void (*Fill)(Picture &picture, uint16_t hint);
    void (*UnLoad)();
    void (*Free)(const Picture &picture) = FreePixels;
};

}  // namespace

template <void (*LoadFile)(const char *path)>
static void Load(const char *path, uint16_t, uint8_t)
{
    LoadFile(path);
}

static constexpr std::array<PICTURE_ROW, PICTURE_FORMATS> formats = {{
    {PICTURE_UNKNOWN, "unknown", nullptr, nullptr, nullptr, nullptr},
    {PICTURE_HAM68, "HAM", [](const PICTURE_HEAD &h) { return Begins(h, "HAM6", "HAM8"); },
     HAM68_Load, FillHAM68, HAM68_UnLoad},
    {PICTURE_BMP, "BMP", [](const PICTURE_HEAD &h) { return Begins(h, "BM"); }, Load<BMP_Load>,
     [](Picture &p, uint16_t) { Fill(p, BMP_Header, BMP_Decoding); }, BMP_UnLoad},
    {PICTURE_PCX, "PCX", [](const PICTURE_HEAD &h) { return h[0] == 0x0A; }, Load<PCX_Load>,
     [](Picture &p, uint16_t) { Fill(p, PCX_Header, PCX_Decoding); }, PCX_UnLoad},
    {PICTURE_PNM, "PNM",
     [](const PICTURE_HEAD &h) { return h[0] == 'P' && h[1] >= '1' && h[1] <= '6'; },
     Load<PXM_Load>, [](Picture &p, uint16_t) { Fill(p, PXM_Header, PXM_Decoding); }, PXM_UnLoad},
    {PICTURE_JPEG, "JPEG", LooksLikeJPEG, Load<JPG_Load>, FillJPG, JPG_UnLoad},
    {PICTURE_TGA, "TGA",
     [](const PICTURE_HEAD &h) { return h[0] == 0 && h[1] == 0 && h[2] != 0 && h[16] % 8 == 0; },
     Load<TGA_Load>, [](Picture &p, uint16_t) { Fill(p, TGA_Header, TGA_Decoding); }, TGA_UnLoad},
    {PICTURE_PNG, "PNG", [](const PICTURE_HEAD &h) { return Begins(h, "\x89PNG\r\n\x1A\n"); },
     Load<PNG_Load>, [](Picture &p, uint16_t) { Fill(p, PNG_Header, PNG_Decoding); }, PNG_UnLoad},
    {PICTURE_ILBM, "ILBM",
     [](const PICTURE_HEAD &h) {
         return Begins(h, "FORM") && (h.Has(8, "ILBM") || h.Has(8, "PBM "));
     },
     Load<LBM_Load>, FillLBM, LBM_UnLoad},
    {PICTURE_XBM, "XBM", LooksLikeXBM, Load<XBM_Load>, FillXBM, XBM_UnLoad},
    {PICTURE_TIFF, "TIFF", [](const PICTURE_HEAD &h) { return Begins(h, "II", "MM"); },
     Load<TIF_Load>, FillTIF, TIF_UnLoad},
    {PICTURE_GIF, "GIF", [](const PICTURE_HEAD &h) { return Begins(h, "GIF8"); }, Load<GIF_Load>,
     FillGIF, GIF_UnLoad, [](const Picture &p) { GIF_FreeFrames(p.Pixels); }},
    {PICTURE_SPRITES, "sprites", [](const PICTURE_HEAD &h) { return Begins(h, "SPRITES"); },
     Load<SPR_Load>, [](Picture &p, uint16_t) { Fill(p, SPR_Header, SPR_Decoding); }, SPR_UnLoad,
     [](const Picture &p) { SPR_FreeImages(p.Pixels); }},
}};
static_assert(
    [] {
        for (size_t i = 0; i < formats.size(); i++)
            if (formats[i].Format != i)
                return false;
        return true;
    }(),
    "a row a format, in the order of their codes");

static const PICTURE_ROW &RowOf(uint8_t format)
{
    return formats[format < formats.size() ? format : 0];
}

const char *Picture_FormatName(uint8_t format)
{
    return RowOf(format).Name;
}

uint8_t Picture_Check(const char *path, uint16_t rawPlanes)
{
    PICTURE_HEAD head;
    if (!Bytes_LoadHead(path, std::span(head.Bytes).first(256)))
        return PICTURE_UNKNOWN;
    if (rawPlanes == 6 || rawPlanes == 8)
        return PICTURE_HAM68;
    uint8_t found = PICTURE_UNKNOWN;
    for (const PICTURE_ROW &row : formats)  // the last one that matches wins, on purpose
        if (row.Detected && row.Detected(head))
            found = row.Format;
    return found;
}

uint8_t Picture_CheckBytes(std::span<const uint8_t> file, uint16_t rawPlanes)
{
    const BYTES_OPEN memory(file);
    return Picture_Check(memory.Path, rawPlanes);
}

// Loads what is open under the path.
static Picture LoadOpened(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    Reason_Clear();
    Picture picture{};
    rawPlanes &= 0xFF;
    picture.Format = Picture_Check(path, rawPlanes);
    const PICTURE_ROW &row = RowOf(picture.Format);
    if (!row.Load) {
        Reason_Set("not a picture of a known format");
        return picture;
    }
    row.Load(path, hint, static_cast<uint8_t>(rawPlanes));
    row.Fill(picture, hint);
    row.UnLoad();
    if (!picture.Pixels)
        Reason_Set("damaged, or of a kind that is not supported");
    return picture;
}

Picture Picture_Load(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    const BYTES_OPEN file(path);
    return LoadOpened(path, hint, rawPlanes);
}

Picture Picture_LoadBytes(std::span<const uint8_t> file, uint16_t hint, uint16_t rawPlanes)
{
    const BYTES_OPEN memory(file);
    return LoadOpened(memory.Path, hint, rawPlanes);
}

const char *Picture_Reason()
{
    return Reason_Get();
}

void Picture_UnLoad(Picture picture)
{
    RowOf(picture.Format).Free(picture);
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
