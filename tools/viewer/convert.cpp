#include "tools/viewer/convert.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "tools/common/text.h"
#include "tools/common/write.h"
#include "tools/viewer/shown.h"

constexpr std::array<const char *, 3> Convert_Endings = {".ham6", ".ham8", ".pam"};

bool Viewer_CanWrite(const std::string &out)
{
    return std::ranges::any_of(Convert_Endings, [&](auto e) { return Text_EndsWith(out, e); });
}

static bool WritePAM(const VIEWER_IMAGE &image, FILE *file)
{
    std::fprintf(file,
                 "P7\nWIDTH %u\nHEIGHT %u\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                 image.Width, image.Height);
    return std::fwrite(image.Pixels.data(), 1, image.Pixels.size(), file) == image.Pixels.size();
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
    const bool pam = Text_EndsWith(out, ".pam");
    const uint32_t kept = pam ? image.Width : image.Width / 8 * 8;  // planes are whole bytes
    if (kept == 0)
        return "it is less than 8 pixels wide, too narrow for .ham6 and .ham8";
    wrong = out;
    const std::string reason = Write_File(out, [&](const REPLACE &file) -> std::string {
        errno = 0;
        const bool written = pam ? WritePAM(image, file.File)
                             : Text_EndsWith(out, ".ham6")
                                 ? WriteHAM(image, compress ? 3 : 1, file.Beside)
                                 : WriteHAM(image, compress ? 4 : 2, file.Beside);
        return written ? "" : Write_Reason(errno != 0 ? errno : EIO);
    });
    if (reason.empty() && kept != image.Width)
        std::fprintf(stderr, "tessview: %s: it has the first %u of %u columns, a multiple of 8\n",
                     Text_Harmless(out).c_str(), kept, image.Width);
    return reason;
}
