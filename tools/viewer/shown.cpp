#include "tools/viewer/shown.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "picture/gif.h"
#include "picture/jpg.h"
#include "picture/spr.h"
#include "picture/tif.h"

Picture Viewer_Load(const std::string &name)
{
    // A '*' in front has a meaning of its own for JPG_Load.
    const std::string path = name.starts_with('*') ? "./" + name : name;
    std::fflush(stdout);
    const int out = dup(STDOUT_FILENO), nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    const Picture picture = Picture_Load(path.c_str(), 0, 0);
    if (picture.Format == PICTURE_JPEG && JPG_Decoder.Embedded) {
        JPG_Load(path.c_str());  // the headers stand there as its thumbnail has left them
        JPG_UnLoad();
    }
    std::fflush(stdout);
    dup2(out, STDOUT_FILENO);
    close(nowhere);
    close(out);
    return picture;
}

static const char *FormatName(uint8_t format)
{
    constexpr std::array names = {"unknown", "HAM",  "BMP", "PCX",  "PNM", "JPEG",   "TGA",
                                  "PNG",     "ILBM", "XBM", "TIFF", "GIF", "sprites"};
    return names[format < names.size() ? format : 0];
}

std::string Viewer_NoFile(const std::string &path)
{
    std::error_code unknown;
    return std::filesystem::is_other(path, unknown) ? "it is not a regular file" : "";
}

std::string Viewer_Reason(const std::string &path)
{
    if (const std::string reason = Viewer_NoFile(path); !reason.empty())
        return reason;
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    char byte;
    if (!file.read(&byte, 1))
        return errno != 0 ? std::strerror(errno) : "it is empty";
    const uint8_t format = Picture_Check(path.c_str(), 0);
    return format == PICTURE_UNKNOWN
               ? "its format is not known"
               : std::string("it is no picture that can be decoded, though it begins like ") +
                     FormatName(format);
}

// What the record calls bits is another field of a GIF, and of one sample of a TIFF.
static uint32_t BitsOf(const Picture &picture)
{
    if (picture.Format == PICTURE_TIFF)
        return uint32_t{picture.Bits} * TIF_Header.Samples;
    if (picture.Format != PICTURE_GIF)
        return picture.Bits;
    unsigned colors = GIF_Header.HasGlobalPalette ? GIF_Header.GlobalColors : 2;
    for (const GIF_FRAME &frame : GIF_Frames)
        if (frame.HasLocalPalette)
            colors = std::max<unsigned>(colors, frame.LocalColors);
    return static_cast<uint32_t>(std::bit_width(colors - 1));
}

std::string Viewer_Size(const VIEWER_IMAGE &image)
{
    return std::to_string(image.Width) + "x" + std::to_string(image.Height);
}

std::string Viewer_Facts(const Picture &picture, const VIEWER_IMAGE &size)
{
    const uint32_t bits = BitsOf(picture);
    return std::string(FormatName(picture.Format)) + ", " + Viewer_Size(size) + ", " +
           std::to_string(bits) + (bits == 1 ? " bit" : " bits");
}

static VIEWER_IMAGE Crop(const uint8_t *pixels, uint32_t width, uint32_t height, size_t stride)
{
    VIEWER_IMAGE image;
    if (!pixels)
        return image;
    image = {width, height, std::vector<uint8_t>(size_t{width} * height * 4)};
    for (size_t y = 0; y < height; y++)
        std::memcpy(image.Pixels.data() + y * width * 4, pixels + y * stride * 4,
                    size_t{width} * 4);
    return image;
}

VIEWER_IMAGE Viewer_Image(const Picture &picture)
{
    return Crop(picture.Pixels, picture.Width, picture.Height, picture.BufferWidth);
}

VIEWER_IMAGE Viewer_Thumbnail(const Picture &picture)
{
    return Crop(picture.ThumbPixels, picture.ThumbWidth, picture.ThumbHeight,
                picture.ThumbBufferWidth);
}

uint32_t Viewer_FrameCount(const Picture &picture)
{
    if (picture.Format == PICTURE_SPRITES)  // a file cut short has fewer than it says
        return static_cast<uint32_t>(std::ranges::find(SPR_Header.Images, nullptr) -
                                     SPR_Header.Images.begin());
    return picture.Format == PICTURE_GIF ? GIF_Header.FrameCount : 1;
}

std::string Viewer_FrameReason(uint32_t frames)
{
    return "it has " + std::to_string(frames) + " frames, counted from 0";
}

VIEWER_IMAGE Viewer_Frame(const Picture &picture, uint32_t n)
{
    if (n >= Viewer_FrameCount(picture))
        return {};
    if (picture.Format == PICTURE_GIF)
        return Crop(GIF_Frames[n].Data, picture.Width, picture.Height, picture.BufferWidth);
    if (picture.Format == PICTURE_SPRITES)
        return Crop(SPR_Header.Images[n], picture.Width, picture.Height, picture.BufferWidth);
    return Viewer_Image(picture);
}

int Viewer_Orientation()
{
    constexpr uint16_t tag = 274, typeShort = 3;
    const JPG_IFD &ifd = JPG_Exif.IFDs[0];
    for (size_t i = 0; i < std::min<size_t>(ifd.Count, ifd.Entries.size()); i++) {
        const JPG_EXIF_ENTRY &entry = ifd.Entries[i];
        // A short stands in the first bytes of its field.
        const bool high = JPG_Exif.ByteOrder == 'M' && entry.Type == typeShort;
        const uint32_t value = high ? entry.Value >> 16 : entry.Value & 0xFFFF;
        if (entry.Tag == tag && value >= 1 && value <= 8)
            return static_cast<int>(value);
    }
    return 1;
}

// Exif 2.3, 4.6.4 A: where row 0 and column 0 of the file's picture are to be seen.
VIEWER_IMAGE Viewer_Upright(VIEWER_IMAGE image, int orientation)
{
    if (orientation < 2 || orientation > 8)
        return image;
    const bool turned = orientation >= 5;
    const bool right = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool bottom =
        orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    VIEWER_IMAGE upright = image;
    if (turned)
        std::swap(upright.Width, upright.Height);
    for (uint32_t y = 0; y < upright.Height; y++)
        for (uint32_t x = 0; x < upright.Width; x++) {
            uint32_t column = turned ? y : x, row = turned ? x : y;
            column = right ? image.Width - 1 - column : column;
            row = bottom ? image.Height - 1 - row : row;
            std::memcpy(upright.Pixels.data() + 4 * (size_t{y} * upright.Width + x),
                        image.Pixels.data() + 4 * (size_t{row} * image.Width + column), 4);
        }
    return upright;
}

// Delays of less than two hundredths are taken for a tenth of a second, as is usual.
static std::vector<double> Ends()
{
    std::vector<double> ends;
    double end = 0;
    for (const GIF_FRAME &frame : GIF_Frames) {
        end += frame.Delay < 2 ? 0.1 : frame.Delay / 100.0;
        ends.push_back(end);
    }
    return ends;
}

// The screen of the GIF that was loaded last: what is on it, and what the frame on top of it will
// leave behind.
static VIEWER_IMAGE screen, below;
static uint32_t onTop;

// Lays what a frame shows over an image of the screen's size. The decoder's picture of an
// interlaced frame runs on from its first pixel to its last, as far as a screen holds them.
static void LayOver(VIEWER_IMAGE &image, const GIF_FRAME &frame)
{
    const size_t right = std::min<size_t>(image.Width, size_t{frame.Left} + frame.Width);
    const size_t bottom = std::min<size_t>(image.Height, size_t{frame.Top} + frame.Height);
    for (size_t y = frame.Top; frame.Data && y < bottom; y++)
        for (size_t x = frame.Left; x < right; x++) {
            const size_t to = 4 * (y * image.Width + x);
            const size_t from =
                frame.Interlaced ? 4 * ((y - frame.Top) * frame.Width + x - frame.Left) : to;
            if (from < image.Pixels.size() && frame.Data[from + 3] != 0)
                std::memcpy(image.Pixels.data() + to, frame.Data + from, 4);
        }
}

static void LayFrame(uint32_t n)
{
    const GIF_FRAME &frame = GIF_Frames[n];
    if (n == 0)
        std::ranges::fill(below.Pixels, uint8_t{0});
    screen = below;
    LayOver(screen, frame);
    if (frame.Disposal != 3)
        below = screen;
    for (size_t y = frame.Top; frame.Disposal == 2 && y < frame.Top + size_t{frame.Height}; y++)
        for (size_t x = frame.Left; x < frame.Left + size_t{frame.Width}; x++)
            if (x < screen.Width && y < screen.Height)
                std::memset(below.Pixels.data() + 4 * (y * screen.Width + x), 0, 4);
    onTop = n;
}

// The file that was opened last; its frames are wanted until the next one.
static Picture last;

const VIEWER_IMAGE &Viewer_Screen(uint32_t n)
{
    if (last.Format == PICTURE_SPRITES)
        return screen = Viewer_Frame(last, n);
    if (n < onTop)
        LayFrame(0);
    while (onTop < n)
        LayFrame(onTop + 1);
    return screen;
}

void Viewer_Close()
{
    Picture_UnLoad(std::exchange(last, {}));
}

VIEWER_FILE Viewer_Open(const std::string &path, uint32_t mostSide)
{
    Viewer_Close();
    last = Viewer_Load(path);
    VIEWER_FILE file;
    file.Path = path;
    if (!last.Pixels)
        file.Reason = Viewer_Reason(path);
    else if (std::max(last.Width, last.Height) > mostSide)
        file.Reason = "it is too large for this display";
    if (!file.Reason.empty())
        return file;
    file.Picture = Viewer_Image(last);
    file.Frames = Viewer_FrameCount(last);
    const int orientation = last.Format == PICTURE_JPEG ? Viewer_Orientation() : 1;
    file.Picture = Viewer_Upright(std::move(file.Picture), orientation);
    file.Facts = Viewer_Facts(last, file.Picture);
    file.Thumbnail = Viewer_Upright(Viewer_Thumbnail(last), orientation);
    if (last.Format == PICTURE_GIF) {
        file.Ends = Ends();
        screen = below = file.Picture;
        LayFrame(0);
        file.Picture = screen;
    }
    return file;
}
