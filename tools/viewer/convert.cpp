#include "tools/viewer/convert.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include <unistd.h>

#include "picture/ham68.h"
#include "tools/common/text.h"
#include "tools/common/write.h"
#include "tools/viewer/encode.h"
#include "tools/viewer/report.h"
#include "tools/viewer/shown.h"

const char *const Convert_Endings = ".bmp, .ham6, .ham8, .pam, .png";

// `pixels` without gaps between rows.
static std::string EncodeHAM(const VIEWER_PIXELS &pixels, const std::string &path, int planes,
                             bool compress)
{
    errno = 0;
    if (HAM68_Encoding(pixels.Pixels, static_cast<uint16_t>(pixels.Width),
                       static_cast<uint16_t>(pixels.Height), path.c_str(),
                       static_cast<uint16_t>(compress ? planes << 8 : planes)) == 0)
        return "";
    return Write_Reason(errno != 0 ? errno : EIO);
}

bool Convert_CanWrite(const std::string &out)
{
    return std::ranges::any_of(std::array{".bmp", ".ham6", ".ham8", ".pam", ".png"},
                               [&](const char *ending) { return Text_EndsWith(out, ending); });
}

static std::string WriteOne(const VIEWER_PIXELS &pixels, const std::string &out, bool compress)
{
    const bool ham6 = Text_EndsWith(out, ".ham6"), ham8 = Text_EndsWith(out, ".ham8");
    const uint32_t kept = ham6 || ham8 ? pixels.Width / 8 * 8 : pixels.Width;  // whole bytes
    if (kept == 0)
        return "the picture is less than 8 pixels wide, too narrow for .ham6 and .ham8";
    std::string reason = Write_File(out, [&](const REPLACE &file) {
        return ham6                         ? EncodeHAM(pixels, file.Beside, 6, compress)
               : ham8                       ? EncodeHAM(pixels, file.Beside, 8, compress)
               : Text_EndsWith(out, ".png") ? Encode_PNG(pixels, file.File)
               : Text_EndsWith(out, ".bmp") ? Encode_BMP(pixels, file.File)
                                            : Encode_PAM(pixels, file.File);
    });
    if (reason.empty() && kept != pixels.Width)
        Report(out, "only the first " + std::to_string(kept) + " of " +
                        std::to_string(pixels.Width) + " columns were written, a multiple of 8");
    return reason;
}

// Removes the gaps between the rows of a picture that is used only here.
static VIEWER_PIXELS WithoutGaps(const VIEWER_FILE &file)
{
    VIEWER_PIXELS pixels = Viewer_Pixels(file);
    for (size_t y = 1; y < pixels.Height; y++)
        std::memmove(file.Record->Pixels + y * pixels.Width * 4,
                     pixels.Pixels + y * pixels.Stride * 4, size_t{pixels.Width} * 4);
    pixels.Stride = pixels.Width;
    return pixels;
}

// Writes one frame of a file.
static bool WriteFrame(const VIEWER_FILE &file, uint32_t n, const std::string &out,
                       const CONVERT_OPTIONS &options, GIF_CANVAS &canvas)
{
    const bool asIs = !options.AllFrames && !options.Frame;
    VIEWER_PIXELS pixels = asIs              ? Viewer_Pixels(file)
                           : options.Compose ? Viewer_Frame(file, n, canvas)
                                             : Viewer_LoneFrame(file, n, canvas);
    if (!pixels.Pixels)
        return Report(file.Path, Picture_Reason());
    VIEWER_IMAGE upright;
    if (options.Upright && file.Orientation != 1) {
        upright = Viewer_Upright(pixels, file.Orientation);
        pixels = Viewer_Pixels(upright);
    } else if (pixels.Stride != pixels.Width) {
        pixels = WithoutGaps(file);
    }
    const std::string reason = WriteOne(pixels, out, options.Compress);
    return reason.empty() || Report(out, reason);
}

// "name-007.png": the number has as many digits as the last one.
static std::string Numbered(const std::string &out, uint32_t n, uint32_t count)
{
    std::string digits = std::to_string(n);
    digits.insert(0, std::to_string(count - 1).size() - digits.size(), '0');
    const size_t point = out.rfind('.');
    return out.substr(0, point) + "-" + digits + out.substr(point);
}

static bool ConvertFile(const std::string &in, const std::string &out,
                        const CONVERT_OPTIONS &options)
{
    auto file = Viewer_Open(in, VIEWER_PLAIN);
    if (!file->Record)
        return Report(in, file->Reason);
    const uint32_t frames = file->Frames, wanted = options.Frame.value_or(0);
    if (wanted >= frames)
        return Report(in, Viewer_FrameReason(frames));
    if (!file->Reason.empty())
        Report(in, file->Reason);
    const uint32_t first = options.AllFrames ? 0 : wanted;
    const uint32_t end = options.AllFrames ? frames : first + 1;
    GIF_CANVAS canvas;
    bool written = true;
    for (uint32_t n = first; n < end && written; n++) {
        if (file->Format == PICTURE_TIFF && n != file->Page) {
            file = Viewer_Open(in, VIEWER_PLAIN, n);
            if (!file->Record) {
                written = Report(in, "page " + std::to_string(n) + ": " + file->Reason);
                continue;
            }
        }
        written = WriteFrame(*file, n, options.AllFrames ? Numbered(out, n, frames) : out, options,
                             canvas);
    }
    return written;
}

bool Convert_Files(const std::vector<std::string> &paths, const CONVERT_OPTIONS &options)
{
    const std::string &out = paths.back();
    std::error_code unknown;
    if (!std::filesystem::is_directory(out, unknown))
        return ConvertFile(paths[0], out, options);
    bool all = true;
    std::set<std::string> names;
    const size_t count = paths.size() - 1;
    for (size_t i = 0; i < count; i++) {
        const std::filesystem::path in = paths[i] == "-" ? "standard-input" : paths[i];
        // Of two names that differ only in the ending, the second keeps its own within the new
        // name.
        std::string name = in.stem().string() + "." + options.Format;
        if (!names.insert(name).second)
            name = in.filename().string() + "." + options.Format;
        names.insert(name);
        Progress(i + 1, count, paths[i]);
        all &= ConvertFile(paths[i], std::filesystem::path(out) / name, options);
    }
    ProgressEnd();
    return all;
}
