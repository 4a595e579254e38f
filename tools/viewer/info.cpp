#include "tools/viewer/info.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "picture/gif.h"
#include "picture/jpg.h"
#include "picture/png.h"
#include "tools/common/text.h"
#include "tools/viewer/shown.h"

// Prints "  name: text" unless the text is empty.
static void Line(std::string_view name, std::string_view text)
{
    if (!text.empty())
        std::printf("  %s: %s\n", Text_Harmless(name).c_str(), Text_Harmless(text).c_str());
}

static void Line(std::string_view name, uint32_t value)
{
    Line(name, std::to_string(value));
}

static void InfoOfPNG()
{
    const PNG_HEADER &h = PNG_Header;
    Line("colour", PNG_ColorType[h.ColorType < PNG_ColorType.size() ? h.ColorType : 1]);
    Line("interlacing", PNG_Interlace[h.Interlace == 1 ? 1 : 0]);
    for (size_t i = 0; i < h.TextCount; i++)
        Line(Text_FromLatin1(h.Texts[i].Keyword.data()), Text_FromLatin1(h.Texts[i].Text.data()));
    for (size_t i = 0; i < h.InternationalTextCount; i++)
        Line(Text_FromLatin1(h.InternationalTexts[i].Keyword.data()),
             h.InternationalTexts[i].Text.data());
    std::array<char, 32> changed;
    std::snprintf(changed.data(), changed.size(), "%04d-%02d-%02d", h.Year, h.Month, h.Day);
    if (h.Year != 0)
        Line("changed", changed.data());
}

// N, S, E or W of a GPS entry: 1 is the latitude's, 3 the longitude's. The decoder takes the letter
// from the top of the entry's field, where only big-endian data have it.
static char Reference(uint16_t tag, char decoded)
{
    constexpr uint16_t typeText = 2;
    if (JPG_Exif.ByteOrder != 'I')
        return decoded;
    for (const JPG_IFD &ifd : JPG_Exif.IFDs)
        for (size_t i = 0; i < std::min<size_t>(ifd.Count, ifd.Entries.size()); i++)
            if (ifd.Entries[i].Tag == tag && ifd.Entries[i].Type == typeText)
                return static_cast<char>(ifd.Entries[i].Value & 0xFF);
    return decoded;
}

// Prints degrees with their letter, unless there is none.
static void Line(std::string_view name, float degrees, char reference)
{
    if (std::string_view("NSEW").find(reference) != std::string_view::npos)
        Line(name, std::to_string(degrees) + " " + reference);
}

static void InfoOfJPEG(const Picture &picture)
{
    const JPG_EXIF &exif = JPG_Exif;
    Line("identifier", JPG_Header.Identifier.data());
    Line("comment", JPG_Header.Comment.data());
    Line("description", exif.Description.data());
    Line("make", exif.Make.data());
    Line("model", exif.Model.data());
    if (exif.IFDs[0].Count != 0)
        Line("orientation", static_cast<uint32_t>(Viewer_Orientation()));
    Line("latitude", exif.Latitude, Reference(1, exif.LatitudeReference));
    Line("longitude", exif.Longitude, Reference(3, exif.LongitudeReference));
    if (picture.ThumbPixels)
        Line("thumbnail", Viewer_Size({picture.ThumbWidth, picture.ThumbHeight, {}}));
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
    const Picture picture = Viewer_Load(path);
    if (!picture.Pixels)
        return Viewer_Reason(path);
    const std::string facts = Viewer_Facts(picture, {picture.Width, picture.Height, {}});
    std::printf("%s: %s a pixel\n", Text_Harmless(path).c_str(), facts.c_str());
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
