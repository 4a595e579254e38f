#include "tools/viewer/info.h"

#include <cstdio>
#include <string_view>

#include "picture/gif.h"
#include "picture/jpg.h"
#include "picture/png.h"
#include "tools/viewer/shown.h"

// Prints "  name: text" unless the text is empty; control characters, which could steer the
// terminal, as blanks.
static void Line(const char *name, std::string_view text)
{
    if (text.empty())
        return;
    std::printf("  %s: ", name);
    for (const char c : text)
        std::putchar(static_cast<unsigned char>(c) < 32 || c == 127 ? ' ' : c);
    std::putchar('\n');
}

static void Line(const char *name, uint32_t value)
{
    Line(name, std::to_string(value));
}

static void InfoOfPNG()
{
    const PNG_HEADER &h = PNG_Header;
    Line("colour", PNG_ColorType[h.ColorType < PNG_ColorType.size() ? h.ColorType : 1]);
    Line("interlacing", PNG_Interlace[h.Interlace == 1 ? 1 : 0]);
    for (size_t i = 0; i < h.TextCount; i++)
        Line(h.Texts[i].Keyword.data(), h.Texts[i].Text.data());
    for (size_t i = 0; i < h.InternationalTextCount; i++)
        Line(h.InternationalTexts[i].Keyword.data(), h.InternationalTexts[i].Text.data());
    if (h.Year != 0)
        Line("changed",
             std::to_string(h.Year) + "-" + std::to_string(h.Month) + "-" + std::to_string(h.Day));
}

static void InfoOfJPEG(const Picture &picture)
{
    const JPG_EXIF &exif = JPG_Exif;
    Line("identifier", JPG_Header.Identifier.data());
    Line("comment", JPG_Header.Comment.data());
    Line("description", exif.Description.data());
    Line("make", exif.Make.data());
    Line("model", exif.Model.data());
    Line("orientation", static_cast<uint32_t>(Viewer_Orientation()));
    if (exif.LatitudeReference > ' ' && exif.LatitudeReference != '0') {
        Line("latitude", std::to_string(exif.Latitude) + " " + exif.LatitudeReference);
        Line("longitude", std::to_string(exif.Longitude) + " " + exif.LongitudeReference);
    }
    if (picture.ThumbPixels)
        Line("thumbnail",
             std::to_string(picture.ThumbWidth) + "x" + std::to_string(picture.ThumbHeight));
}

static void InfoOfGIF()
{
    Line("frames", GIF_Header.FrameCount);
    uint32_t hundredths = 0;
    for (const GIF_FRAME &frame : GIF_Frames)
        hundredths += frame.Delay;
    if (GIF_Header.FrameCount > 1)
        Line("length", std::to_string(hundredths / 100) + "." +
                           std::to_string(100 + hundredths % 100).substr(1) + " s");
    Line("comment", GIF_Header.Comment.data());
}

std::string Viewer_Info(const std::string &path)
{
    const Picture picture = Picture_Load(path.c_str(), 0, 0);
    if (!picture.Pixels)
        return Viewer_Reason(path);
    std::printf("%s: %s, %dx%d, %d bits a pixel\n", path.c_str(), Viewer_FormatName(picture.Format),
                picture.Width, picture.Height, picture.Bits);
    switch (picture.Format) {
    case PICTURE_PNG:
        InfoOfPNG();
        break;
    case PICTURE_JPEG:
        InfoOfJPEG(picture);
        break;
    case PICTURE_GIF:
        InfoOfGIF();
        break;
    case PICTURE_SPRITES:
        Line("images", Viewer_FrameCount(picture));
        break;
    }
    Picture_UnLoad(picture);
    return "";
}
