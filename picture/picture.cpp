#include "picture/picture.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "extra/bytes.h"
#include "extra/reason.h"
#include "picture/bmp.h"
#include "picture/gif.h"
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

// The first 256 bytes of a file, padded with zeros, and a NUL after them.
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

// An XBM file is C text: its three names occur, in either case, before the first NUL.
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

// Detection by the format's rules, where it differs from the framework's.

static bool FormatPNM(const PICTURE_HEAD &head)
{
    return head[0] == 'P' && head[1] >= '1' && head[1] <= '7' &&
           (head[2] == '#' || head[2] == ' ' || (head[2] >= '\t' && head[2] <= '\r'));
}

static bool FormatPCX(const PICTURE_HEAD &head)
{
    const uint8_t version = head[1], encoding = head[2], bits = head[3];
    return head[0] == 0x0A && version <= 5 && version != 1 && encoding <= 1 &&
           (bits == 1 || bits == 2 || bits == 4 || bits == 8);
}

static bool FormatTIFF(const PICTURE_HEAD &head)
{
    return Begins(head, "II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv);
}

// TGA has no signature: every field of the header must have a value that occurs in practice.
static bool FormatTGA(const PICTURE_HEAD &head)
{
    const uint8_t map = head[1], type = head[2], mapBits = head[7], bits = head[16];
    const bool mapped = type == 1 || type == 9, grey = type == 3 || type == 11;
    const bool colour = type == 2 || type == 10;
    const bool mapFits =
        map == 0 ? !mapped
                 : map == 1 && (mapBits == 15 || mapBits == 16 || mapBits == 24 || mapBits == 32);
    const bool bitsFit = colour ? bits == 15 || bits == 16 || bits == 24 || bits == 32
                                : (mapped || grey) && (bits == 8 || bits == 16);
    const bool sides = (head[12] | head[13]) != 0 && (head[14] | head[15]) != 0;
    return mapFits && bitsFit && sides && (head[17] & 0xC0) != 0xC0;
}

// Fills the fields that most headers have.
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

// Removes the padding of the decoder's rows, which end on whole bytes of a plane.
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

// Reliability of a match by the format's rules: candidates are tried from the most reliable on.
enum PICTURE_SURENESS : uint8_t { PICTURE_SIGNATURE, PICTURE_MAGIC, PICTURE_PLAUSIBLE };

// Everything about a format. Detected: whether a file's head matches; FormatDetected: the same by
// the format's rules. Load, Fill (copies the decoder's header and pixels into the record) and
// UnLoad run in this order; Free runs when the record is unloaded. Load and Fill are null for a
// format without a decoder.
struct PICTURE_ROW {
    PICTURE_FORMAT Format;
    const char *Name;
    bool (*Detected)(const PICTURE_HEAD &head);
    bool (*FormatDetected)(const PICTURE_HEAD &head);
    PICTURE_SURENESS Sureness;
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

static constexpr auto IsHAM = [](const PICTURE_HEAD &h) { return Begins(h, "HAM6", "HAM8"); };
static constexpr auto IsBMP = [](const PICTURE_HEAD &h) { return Begins(h, "BM"); };
static constexpr auto IsPCX = [](const PICTURE_HEAD &h) { return h[0] == 0x0A; };
static constexpr auto IsPNM = [](const PICTURE_HEAD &h) {
    return h[0] == 'P' && h[1] >= '1' && h[1] <= '6';
};
static constexpr auto IsJPEG = [](const PICTURE_HEAD &h) { return JPG_Detected(h.Bytes); };
static constexpr auto IsTGA = [](const PICTURE_HEAD &h) {
    return h[0] == 0 && h[1] == 0 && h[2] != 0 && h[16] % 8 == 0;
};
static constexpr auto IsPNG = [](const PICTURE_HEAD &h) { return Begins(h, "\x89PNG\r\n\x1A\n"); };
static constexpr auto IsILBM = [](const PICTURE_HEAD &h) {
    return Begins(h, "FORM") && (h.Has(8, "ILBM") || h.Has(8, "PBM "));
};
static constexpr auto IsTIFF = [](const PICTURE_HEAD &h) { return Begins(h, "II", "MM"); };
static constexpr auto IsGIF = [](const PICTURE_HEAD &h) { return Begins(h, "GIF8"); };
static constexpr auto IsSPR = [](const PICTURE_HEAD &h) { return Begins(h, "SPRITES"); };

// Detected only by the format's rules.
static constexpr auto IsAnyILBM = [](const PICTURE_HEAD &h) {
    return IsILBM(h) || (Begins(h, "FORM") && h.Has(8, "ACBM"));
};

static constexpr std::array<PICTURE_ROW, PICTURE_FORMATS> formats = {{
    {PICTURE_UNKNOWN, "unknown", nullptr, nullptr, PICTURE_PLAUSIBLE, nullptr, nullptr, nullptr},
    {PICTURE_HAM68, "HAM", IsHAM, IsHAM, PICTURE_SIGNATURE, HAM68_Load, FillHAM68, HAM68_UnLoad},
    {PICTURE_BMP, "BMP", IsBMP, IsBMP, PICTURE_MAGIC, Load<BMP_Load>,
     [](Picture &p, uint16_t) { Fill(p, BMP_Header, BMP_Decoding); }, BMP_UnLoad},
    {PICTURE_PCX, "PCX", IsPCX, FormatPCX, PICTURE_PLAUSIBLE, Load<PCX_Load>,
     [](Picture &p, uint16_t) { Fill(p, PCX_Header, PCX_Decoding); }, PCX_UnLoad},
    {PICTURE_PNM, "PNM", IsPNM, FormatPNM, PICTURE_MAGIC, Load<PXM_Load>,
     [](Picture &p, uint16_t) { Fill(p, PXM_Header, PXM_Decoding); }, PXM_UnLoad},
    {PICTURE_JPEG, "JPEG", IsJPEG, IsJPEG, PICTURE_SIGNATURE, Load<JPG_Load>, FillJPG, JPG_UnLoad},
    {PICTURE_TGA, "TGA", IsTGA, FormatTGA, PICTURE_PLAUSIBLE, Load<TGA_Load>,
     [](Picture &p, uint16_t) { Fill(p, TGA_Header, TGA_Decoding); }, TGA_UnLoad},
    {PICTURE_PNG, "PNG", IsPNG, IsPNG, PICTURE_SIGNATURE, Load<PNG_Load>,
     [](Picture &p, uint16_t) { Fill(p, PNG_Header, PNG_Decoding); }, PNG_UnLoad},
    {PICTURE_ILBM, "ILBM", IsILBM, IsAnyILBM, PICTURE_SIGNATURE, Load<LBM_Load>, FillLBM,
     LBM_UnLoad},
    {PICTURE_XBM, "XBM", LooksLikeXBM, LooksLikeXBM, PICTURE_PLAUSIBLE, Load<XBM_Load>, FillXBM,
     XBM_UnLoad},
    {PICTURE_TIFF, "TIFF", IsTIFF, FormatTIFF, PICTURE_SIGNATURE, Load<TIF_Load>, FillTIF,
     TIF_UnLoad},
    {PICTURE_GIF, "GIF", IsGIF, IsGIF, PICTURE_SIGNATURE, Load<GIF_Load>, FillGIF, GIF_UnLoad,
     [](const Picture &p) { GIF_FreeFrames(p.Pixels); }},
    {PICTURE_SPRITES, "sprites", IsSPR, IsSPR, PICTURE_SIGNATURE, Load<SPR_Load>,
     [](Picture &p, uint16_t) { Fill(p, SPR_Header, SPR_Decoding); }, SPR_UnLoad,
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

namespace
{

// Possible formats of a file, in the order in which they are tried.
struct PICTURE_CANDIDATES {
    std::array<uint8_t, PICTURE_FORMATS> Formats{};
    size_t Count = 0;
};

}  // namespace

static PICTURE_CANDIDATES Candidates(const char *path, uint16_t rawPlanes)
{
    PICTURE_CANDIDATES found;
    const auto add = [&found](uint8_t format) { found.Formats[found.Count++] = format; };
    PICTURE_HEAD head;
    if (!Bytes_LoadHead(path, std::span(head.Bytes).first(256)))
        return found;
    if (rawPlanes == 6 || rawPlanes == 8) {
        add(PICTURE_HAM68);
    } else if (Picture_Rules == PICTURE_RULES_FORMAT) {
        for (const auto sureness : {PICTURE_SIGNATURE, PICTURE_MAGIC, PICTURE_PLAUSIBLE})
            for (const PICTURE_ROW &row : formats)
                if (row.Sureness == sureness && row.FormatDetected && row.FormatDetected(head))
                    add(row.Format);
    } else {
        uint8_t last = PICTURE_UNKNOWN;  // on purpose: the last signature that matches wins
        for (const PICTURE_ROW &row : formats)
            if (row.Detected && row.Detected(head))
                last = row.Format;
        if (last != PICTURE_UNKNOWN)
            add(last);
    }
    if (found.Count == 0)
        Reason_Set("not a picture of a known format");
    return found;
}

uint8_t Picture_Check(const char *path, uint16_t rawPlanes)
{
    return Candidates(path, rawPlanes).Formats[0];
}

uint8_t Picture_CheckBytes(std::span<const uint8_t> file, uint16_t rawPlanes)
{
    const BYTES_OPEN memory(file);
    return Picture_Check(memory.Path, rawPlanes);
}

static Picture LoadAs(const PICTURE_ROW &row, const char *path, uint16_t hint, uint16_t rawPlanes)
{
    Picture picture{};
    picture.Format = row.Format;
    row.Load(path, hint, static_cast<uint8_t>(rawPlanes));
    row.Fill(picture, hint);
    row.UnLoad();
    if (picture.Pixels)
        return picture;
    Reason_Set("damaged, or of a kind that is not supported");
    std::free(picture.ThumbPixels);  // callers do not unload a picture without pixels
    picture.ThumbPixels = nullptr;
    picture.ThumbWidth = picture.ThumbHeight = 0;
    return picture;
}

// Loads the file open under this path. If one candidate rejects it the next is tried; if all do,
// the result and the reason are those of the first.
static Picture LoadOpened(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    Reason_Clear();
    rawPlanes &= 0xFF;
    const PICTURE_CANDIDATES candidates = Candidates(path, rawPlanes);
    Picture first{};
    std::array<char, Reason_MaxSize> reason{};
    for (size_t i = 0; i < candidates.Count; i++) {
        if (i == 1)
            std::snprintf(reason.data(), reason.size(), "%s", Reason_Get());
        Reason_Clear();
        const Picture picture = LoadAs(RowOf(candidates.Formats[i]), path, hint, rawPlanes);
        if (picture.Pixels)
            return picture;
        if (i == 0)
            first = picture;
    }
    if (candidates.Count > 1) {
        Reason_Clear();
        Reason_Set("%s", reason.data());
    }
    return first;
}

Picture Picture_Load(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    const BYTES_OPEN file(path);
    std::array<uint8_t, 16384> room;  // small files are read once, not first for detection
    const auto size = Bytes_GetSize(file);
    const auto count =
        size && *size <= room.size() ? Bytes_ReadAt(file, 0, {room.data(), *size}) : std::nullopt;
    if (!count)
        return LoadOpened(path, hint, rawPlanes);
    const BYTES_OPEN memory({room.data(), *count}, path);
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
    Picture_UnLoad(picture);  // on purpose: callers get only the sizes
    return picture;
}

void Sprite_Put(int16_t, int16_t) {}

void Sprite_UnLoad() {}
