#include "tools/viewer/convert.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "tools/viewer/shown.h"

static bool EndsIn(const std::string &path, const char *ending)
{
    return path.ends_with(ending);
}

static bool WritePAM(const VIEWER_IMAGE &image, const std::string &out)
{
    std::ofstream file(out, std::ios::binary);
    file << "P7\nWIDTH " << image.Width << "\nHEIGHT " << image.Height
         << "\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
    file.write(reinterpret_cast<const char *>(image.Pixels.data()),
               static_cast<std::streamsize>(image.Pixels.size()));
    file.close();
    return !file.fail();
}

static bool WriteHAM(VIEWER_IMAGE &image, uint8_t mode, const std::string &out)
{
    Picture picture{};
    picture.Width = picture.BufferWidth = static_cast<uint16_t>(image.Width);
    picture.Height = picture.BufferHeight = static_cast<uint16_t>(image.Height);
    picture.Pixels = image.Pixels.data();
    return Picture_Converter(mode, out.c_str(), picture) == 0;
}

std::string Viewer_Convert(const std::string &in, const std::string &out, uint32_t frame,
                           bool compress, std::string &wrong)
{
    wrong = in;
    const Picture picture = Viewer_Load(in);
    if (!picture.Pixels)
        return Viewer_Reason(in);
    VIEWER_IMAGE image = Viewer_Frame(picture, frame);
    const uint32_t frames = Viewer_FrameCount(picture);
    Picture_UnLoad(picture);
    if (image.Pixels.empty())
        return Viewer_FrameReason(frames);
    const bool pam = EndsIn(out, ".pam");
    const uint32_t kept = pam ? image.Width : image.Width / 8 * 8;  // planes are whole bytes
    if (kept == 0)
        return "it is less than 8 pixels wide, too narrow for .ham6 and .ham8";
    wrong = out;
    if (const std::string reason = Viewer_NoFile(out); !reason.empty())
        return reason;
    errno = 0;
    const bool written = pam                    ? WritePAM(image, out)
                         : EndsIn(out, ".ham6") ? WriteHAM(image, compress ? 3 : 1, out)
                                                : WriteHAM(image, compress ? 4 : 2, out);
    if (written && kept != image.Width)
        std::fprintf(stderr, "viewer: %s: it has the first %u of %u columns, a multiple of 8\n",
                     out.c_str(), kept, image.Width);
    return written ? "" : errno != 0 ? std::strerror(errno) : "it cannot be written";
}
