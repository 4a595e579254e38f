// A picture file opened for the viewer: what it says of itself, its pixels in several sizes, and
// its frames as they are to be seen. Any thread may open files and look at what others opened.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "extra/bytes.h"
#include "picture/gif.h"
#include "picture/picture.h"
#include "tools/viewer/exif.h"

/// RGBA pixels without gaps.
struct VIEWER_IMAGE {
    uint32_t Width = 0, Height = 0;
    BYTES_BUFFER Pixels;
};

/// RGBA pixels that belong to something else; Stride pixels from row to row.
struct VIEWER_PIXELS {
    uint32_t Width = 0, Height = 0, Stride = 0;
    const uint8_t *Pixels = nullptr;
};

struct VIEWER_FILE {
    uint64_t Serial = 0;  // no two files have the same; not 0
    std::string Path;
    std::string Reason;  // why no picture could be loaded; with one, what it lacks, if anything
    uint8_t Format = PICTURE_UNKNOWN;
    uint32_t Width = 0, Height = 0, Bits = 0;  // as stored; bits a pixel
    uint32_t Frames = 1;                       // or pages
    uint32_t Page = 0;                         // of a TIFF: the one that was loaded
    int Orientation = 1;                       // Exif's and TIFF's: 1 (as it is) to 8
    std::vector<double> Ends;                  // of a GIF's frames, seconds from its start
    uint32_t Rounds = 0;                       // of a GIF; 0: without end
    std::vector<VIEWER_FACT> Texts;            // what the file says in words
    std::vector<VIEWER_FACT> Camera;           // of a photograph: camera, date, exposure, place
    VIEWER_IMAGE Thumbnail;                    // as stored; empty without one
    std::shared_ptr<const Picture> Record;     // null when no picture could be loaded
    std::vector<const uint8_t *> Sprites;      // a sprite file's images, which Record owns
    std::vector<VIEWER_IMAGE> Halves;          // the picture halved, halved again, and so on
};

/// How much Viewer_Open prepares: the picture alone, its halves too, or, for a contact sheet, only
/// a copy that fits a square of Viewer_SmallSide, in Thumbnail and upright.
enum VIEWER_DEPTH : uint8_t { VIEWER_PLAIN, VIEWER_HALVED, VIEWER_SMALL };
constexpr uint32_t Viewer_SmallSide = 160;

/// Opens a file by the rules of Picture_Rules; "-" is what Viewer_KeepInput has read. Of a TIFF
/// page `page` is loaded. Without memory or such a page it has no picture, and a reason.
std::shared_ptr<const VIEWER_FILE> Viewer_Open(const std::string &path, VIEWER_DEPTH depth,
                                               uint32_t page = 0);

/// Reads standard input to its end, for "-". To be called before other threads open files. Returns
/// why that failed, or "".
std::string Viewer_KeepInput();

/// "32x32"; and format, size and bits a pixel, such as "PNG, 32x32, 4 bits".
std::string Viewer_Size(uint32_t width, uint32_t height);
std::string Viewer_Facts(const VIEWER_FILE &file);

/// Why a file of so many frames does not have the one that was asked for, for a person.
std::string Viewer_FrameReason(uint32_t frames);

/// The picture of a file that has one.
VIEWER_PIXELS Viewer_Pixels(const VIEWER_FILE &file);
VIEWER_PIXELS Viewer_Pixels(const VIEWER_IMAGE &image);
VIEWER_IMAGE Viewer_Copy(const VIEWER_PIXELS &pixels);

/// What is seen at frame `n` of a GIF or a sprite file, a GIF's earlier frames laid down and
/// disposed of; for other files the picture. Lies in the file or on the canvas, which serves one
/// file and goes on from frame to frame cheaply. No pixels, with a reason in Picture_Reason, when
/// it cannot be.
VIEWER_PIXELS Viewer_Frame(const VIEWER_FILE &file, uint32_t n, GIF_CANVAS &canvas);

/// Frame `n` of a GIF without those before it, on an empty screen; else as Viewer_Frame.
VIEWER_PIXELS Viewer_LoneFrame(const VIEWER_FILE &file, uint32_t n, GIF_CANVAS &canvas);

/// Half the size, rounded up: means of 2 by 2 pixels, weighted by their alpha.
VIEWER_IMAGE Viewer_Halve(const VIEWER_PIXELS &pixels);

/// The largest picture of the same shape that fits a square: means of the areas that its pixels
/// cover, weighted by their alpha. A picture that fits stays as it is.
VIEWER_IMAGE Viewer_Fit(const VIEWER_PIXELS &pixels, uint32_t side);

/// The picture turned upright by an orientation.
VIEWER_IMAGE Viewer_Upright(const VIEWER_PIXELS &pixels, int orientation);
