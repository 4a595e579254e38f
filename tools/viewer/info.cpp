#include "tools/viewer/info.h"

#include <array>
#include <cstdio>

#include "tools/common/text.h"
#include "tools/viewer/report.h"
#include "tools/viewer/shown.h"

static void Line(FILE *out, const std::string &name, const std::string &text)
{
    if (!text.empty())
        std::fprintf(out, "  %s: %s\n", Text_Harmless(name).c_str(), Text_Harmless(text).c_str());
}

static void Lines(FILE *out, const std::vector<VIEWER_FACT> &facts)
{
    for (const VIEWER_FACT &fact : facts)
        Line(out, fact.Name, fact.Text);
}

static std::string Seconds(double seconds)
{
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%.2f", seconds);
    return text.data();
}

static const char *FramesName(const VIEWER_FILE &file)
{
    return file.Format == PICTURE_TIFF      ? "pages"
           : file.Format == PICTURE_SPRITES ? "images"
                                            : "frames";
}

static void PrintLines(FILE *out, const VIEWER_FILE &file)
{
    std::fprintf(out, "%s: %s a pixel\n", Text_Harmless(file.Path).c_str(),
                 Viewer_Facts(file).c_str());
    if (file.Frames > 1)
        Line(out, FramesName(file), std::to_string(file.Frames));
    if (file.Ends.size() > 1)
        Line(out, "duration", Seconds(file.Ends.back()) + " s");
    if (file.Orientation != 1)
        Line(out, "orientation", std::to_string(file.Orientation));
    Lines(out, file.Texts);
    Lines(out, file.Camera);
    if (file.Thumbnail.Width != 0)
        Line(out, "thumbnail", Viewer_Size(file.Thumbnail.Width, file.Thumbnail.Height));
    Line(out, "incomplete", file.Reason);
}

// The facts as an array, since names may repeat and the order may matter.
static std::string Array(const std::vector<VIEWER_FACT> &facts)
{
    std::string text;
    for (const VIEWER_FACT &fact : facts)
        text += std::string(text.empty() ? "" : ",") + "{\"name\":" + Text_JSON(fact.Name) +
                ",\"text\":" + Text_JSON(fact.Text) + "}";
    return "[" + text + "]";
}

static std::string Object(const std::vector<VIEWER_FACT> &facts)
{
    std::string text;
    for (const VIEWER_FACT &fact : facts)
        text += std::string(text.empty() ? "" : ",") + Text_JSON(fact.Name) + ":" +
                Text_JSON(fact.Text);
    return "{" + text + "}";
}

static void PrintJSON(FILE *out, const VIEWER_FILE &file)
{
    std::fprintf(out, "{\"path\":%s", Text_JSON(file.Path).c_str());
    if (file.Record) {
        std::fprintf(out, ",\"format\":\"%s\",\"width\":%u,\"height\":%u,\"depth\":%u,\"%s\":%u",
                     Picture_FormatName(file.Format), file.Width, file.Height, file.Bits,
                     file.Format == PICTURE_TIFF ? "pages" : "frames", file.Frames);
        if (file.Ends.size() > 1)
            std::fprintf(out, ",\"duration\":%s", Seconds(file.Ends.back()).c_str());
        std::fprintf(out, ",\"orientation\":%d,\"texts\":%s,\"exif\":%s", file.Orientation,
                     Array(file.Texts).c_str(), Object(file.Camera).c_str());
        if (file.Thumbnail.Width != 0)
            std::fprintf(out, ",\"thumbnail\":{\"width\":%u,\"height\":%u}", file.Thumbnail.Width,
                         file.Thumbnail.Height);
        std::fprintf(out, ",\"truncated\":%s", file.Reason.empty() ? "false" : "true");
    }
    if (!file.Reason.empty())
        std::fprintf(out, ",\"reason\":%s", Text_JSON(file.Reason).c_str());
    std::fprintf(out, "}\n");
}

bool Info_Print(const std::vector<std::string> &paths, bool json, FILE *out)
{
    bool all = true;
    for (const std::string &path : paths) {
        const auto file = Viewer_Open(path, VIEWER_PLAIN);
        if (!file->Record)
            all = Report(path, file->Reason);
        if (json)
            PrintJSON(out, *file);
        else if (file->Record)
            PrintLines(out, *file);
    }
    if (std::fflush(out) != 0 || std::ferror(out))
        all = Report("standard output", "it cannot be written");
    return all;
}
