// A picture file opened for the viewer: its record, and its frames as they are to be seen.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "picture/picture.h"

/// RGBA pixels without what a decoder's buffer has beyond them.
struct VIEWER_IMAGE {
    uint32_t Width = 0, Height = 0;
    std::vector<uint8_t> Pixels;
};

struct VIEWER_FILE {
    std::string Path;
    std::string Reason;        // why it cannot be shown; then it has no picture
    std::string Facts;         // format, size and depth, as Viewer_Facts tells them
    uint32_t Frames = 1;       // of a GIF or a sprite file
    VIEWER_IMAGE Picture;      // upright; the first frame
    VIEWER_IMAGE Thumbnail;    // upright; empty without one
    std::vector<double> Ends;  // of a GIF's frames, seconds from its start; empty for others
};

/// Picture_Load without what the decoders trace on standard output. A JPEG file's headers are its
/// picture's, not those of an embedded thumbnail.
Picture Viewer_Load(const std::string &path);

/// Format, size and bits a pixel of the picture that was loaded last, such as "PNG, 32x32, 4 bits".
/// Of a GIF these are the bits of its largest palette. `size` is how it is shown.
std::string Viewer_Facts(const Picture &picture, const VIEWER_IMAGE &size);

/// Width and height, such as "32x32".
std::string Viewer_Size(const VIEWER_IMAGE &image);

/// Why what is at the path is not even opened, for a person: a pipe, say, which may keep one
/// waiting for ever. Empty for files and folders, and where there is nothing.
std::string Viewer_NoFile(const std::string &path);

/// Why a file has no picture, for a person.
std::string Viewer_Reason(const std::string &path);

/// The pixels of a record, or of its thumbnail. Empty where there are none.
VIEWER_IMAGE Viewer_Image(const Picture &picture);
VIEWER_IMAGE Viewer_Thumbnail(const Picture &picture);

/// Frame `n` of the GIF or sprite file that was loaded last, as it was decoded; for other formats
/// frame 0 is the picture. Empty when there is no such frame.
VIEWER_IMAGE Viewer_Frame(const Picture &picture, uint32_t n);
uint32_t Viewer_FrameCount(const Picture &picture);

/// Why there is no frame beyond the first `frames`, for a person.
std::string Viewer_FrameReason(uint32_t frames);

/// Exif's orientation (1 to 8) of the JPEG file that was loaded last; 1 without one. And an image
/// turned upright by it.
int Viewer_Orientation();
VIEWER_IMAGE Viewer_Upright(VIEWER_IMAGE image, int orientation);

/// Opens a file to be seen and closes the one before. A picture with a side above `mostSide` is
/// refused.
VIEWER_FILE Viewer_Open(const std::string &path, uint32_t mostSide = UINT32_MAX);
void Viewer_Close();

/// What the file that was opened last, a GIF or a sprite file, shows at frame `n`: a GIF's screen,
/// its earlier frames laid down and disposed of, or an image. Counts up from the last call where it
/// can.
const VIEWER_IMAGE &Viewer_Screen(uint32_t n);
