// A picture file opened for the viewer: its facts, its pixels in several sizes, and its frames as
// they are displayed. Any thread may open files and read what others opened.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "extra/bytes.h"
#include "picture/gif.h"
#include "picture/picture.h"
#include "tools/viewer/exif.h"

/// RGBA pixels without gaps between rows.
struct VIEWER_IMAGE {
    uint32_t Width = 0, Height = 0;
    BYTES_BUFFER Pixels;
};

/// RGBA pixels owned elsewhere; rows are Stride pixels apart.
struct VIEWER_PIXELS {
    uint32_t Width = 0, Height = 0, Stride = 0;
    const uint8_t *Pixels = nullptr;
};

struct VIEWER_FILE {
    uint64_t Serial = 0;  // unique for each file, not 0
    std::string Path;
    std::string Reason;  // why no picture could be loaded; or, with one, what is missing from it
    uint8_t Format = PICTURE_UNKNOWN;
    uint32_t Width = 0, Height = 0, Bits = 0;  // as stored; bits per pixel
    uint32_t Frames = 1;                       // or pages
    uint32_t Page = 0;                         // of a TIFF: the one loaded
    int Orientation = 1;                       // Exif's and TIFF's: 1 (as it is) to 8
    std::vector<double> Ends;                  // of a GIF's frames, seconds from the start
    uint32_t Rounds = 0;                       // of a GIF; 0: endless
    std::vector<VIEWER_FACT> Texts;            // the file's texts
    std::vector<VIEWER_FACT> Camera;           // of a photograph: camera, date, exposure, place
    VIEWER_IMAGE Thumbnail;                    // as stored; empty if it has none
    std::shared_ptr<const Picture> Record;     // null if no picture could be loaded
    std::vector<const uint8_t *> Sprites;      // a sprite file's images, owned by Record
    std::vector<VIEWER_IMAGE> Halves;          // the picture halved repeatedly
};

/// How much Viewer_Open prepares: the picture alone, its halves too, or, for a contact sheet, only
/// an upright copy in Thumbnail that fits a square of Viewer_SmallSide.
enum VIEWER_DEPTH : uint8_t { VIEWER_PLAIN, VIEWER_HALVED, VIEWER_SMALL };
constexpr uint32_t Viewer_SmallSide = 160;

/// Opens a file by the rules of Picture_Rules; "-" is what Viewer_KeepInput has read. Of a TIFF,
/// page `page` is loaded. Out of memory, or without such a page, it has no picture, and a reason.
std::shared_ptr<const VIEWER_FILE> Viewer_Open(const std::string &path, VIEWER_DEPTH depth,
                                               uint32_t page = 0);

/// Reads standard input to its end, for "-". Call before other threads open files. Returns why that
/// failed, or "".
std::string Viewer_KeepInput();

/// "32x32"; and format, size and bits per pixel, such as "PNG, 32x32, 4 bits".
std::string Viewer_Size(uint32_t width, uint32_t height);
std::string Viewer_Facts(const VIEWER_FILE &file);

/// Why a file with so many frames lacks the requested one, for people.
std::string Viewer_FrameReason(uint32_t frames);

/// The picture of a file that has one.
VIEWER_PIXELS Viewer_Pixels(const VIEWER_FILE &file);
VIEWER_PIXELS Viewer_Pixels(const VIEWER_IMAGE &image);
VIEWER_IMAGE Viewer_Copy(const VIEWER_PIXELS &pixels);

/// What frame `n` of a GIF or a sprite file shows, with a GIF's earlier frames drawn and disposed
/// of; for other files the picture. The pixels belong to the file or to the canvas, which serves
/// one file at a time and advances cheaply from frame to frame. No pixels, with a reason in
/// Picture_Reason, on failure.
VIEWER_PIXELS Viewer_Frame(const VIEWER_FILE &file, uint32_t n, GIF_CANVAS &canvas);

/// Frame `n` of a GIF without those before it, on an empty screen; otherwise as Viewer_Frame.
VIEWER_PIXELS Viewer_LoneFrame(const VIEWER_FILE &file, uint32_t n, GIF_CANVAS &canvas);

/// The image at half the size, rounded up: means of 2 by 2 pixels, weighted by their alpha.
VIEWER_IMAGE Viewer_Halve(const VIEWER_PIXELS &pixels);

/// The largest image of the same shape that fits a square: each pixel is the mean of the area that
/// it covers, weighted by alpha. A picture that fits is unchanged.
VIEWER_IMAGE Viewer_Fit(const VIEWER_PIXELS &pixels, uint32_t side);

/// The picture turned upright by its orientation.
VIEWER_IMAGE Viewer_Upright(const VIEWER_PIXELS &pixels, int orientation);
