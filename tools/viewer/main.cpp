// Shows pictures in a window, tells what their headers say, or converts one.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "picture/charset.h"
#include "picture/pixels.h"
#include "tools/common/text.h"
#include "tools/viewer/convert.h"
#include "tools/viewer/info.h"
#include "tools/viewer/sheet.h"
#include "tools/viewer/window.h"

struct OPTIONS {
    std::vector<std::string> Files;
    bool Info = false, Convert = false, Compress = false;
    std::optional<uint32_t> Frame;
    int CharSet = -1;
};

constexpr int Failure = 1;
constexpr int WrongUsage = 2;

static void ReadOptions(CLI::App &app, int argc, char **argv, OPTIONS &options)
{
    app.add_option("FILE", options.Files, "Picture files");
    CLI::Option *info = app.add_flag("--info", options.Info, "Print what the headers say");
    CLI::Option *convert =
        app.add_flag("--convert", options.Convert,
                     "Convert the first file to the second: .ham6, .ham8 or .pam (RGBA)")
            ->excludes(info);
    app.add_flag("--compress", options.Compress, "Write .ham6 and .ham8 with runs")->needs(convert);
    CLI::Option *frame =
        app.add_option("--frame", options.Frame,
                       "Frame of a GIF or a sprite file, from 0, to be converted or shown")
            ->type_name("N")
            ->excludes(info);
    app.add_option("--charset", options.CharSet, "Show a character set")
        ->type_name("N")
        ->check(CLI::Range(0, CharSet_Sets - 1))
        ->excludes(info)
        ->excludes(convert)
        ->excludes(frame);
    app.add_flag_callback(
        "--framework", [] { Picture_Rules = PICTURE_RULES_FRAMEWORK; },
        "Read files by the framework's own rules, not those of their formats");
    app.set_version_flag("--version", "tessview " TESSVIEW_VERSION);
    app.footer(
        "Keys: left, right and space go to another picture, page up and page down to another\n"
        "frame, + - 0 and the wheel zoom, dragging moves, t shows the thumbnail, c the\n"
        "caption, h helps, escape ends.");
    app.parse(argc, argv);
    if (options.Files.empty() == (options.CharSet < 0))
        throw CLI::ValidationError("FILE", "wants files, or --charset without any");
    if (options.Convert && options.Files.size() != 2)
        throw CLI::ValidationError("--convert", "wants two files, IN and OUT");
    if (options.Convert && !Viewer_CanWrite(options.Files[1]))
        throw CLI::ValidationError("--convert", "writes .ham6, .ham8 and .pam");
}

static void Report(const std::string &file, const std::string &reason)
{
    std::fprintf(stderr, "tessview: %s: %s\n", Text_Harmless(file).c_str(),
                 Text_Harmless(reason).c_str());
}

static int Info(const OPTIONS &options)
{
    int status = 0;
    for (const std::string &file : options.Files) {
        const std::string reason = Viewer_Info(file);
        if (!reason.empty()) {
            Report(file, reason);
            status = Failure;
        }
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        Report("standard output", "it cannot be written");
        status = Failure;
    }
    return status;
}

static int Convert(const OPTIONS &options)
{
    std::string wrong;
    const std::string reason = Viewer_Convert(options.Files[0], options.Files[1],
                                              options.Frame.value_or(0), options.Compress, wrong);
    if (!reason.empty())
        Report(wrong, reason);
    return reason.empty() ? 0 : Failure;
}

int main(int argc, char **argv)
{
    Picture_Rules = PICTURE_RULES_FORMAT;
    OPTIONS options;
    CLI::App app("Shows pictures, tells what they are, or converts one.", "tessview");
    try {
        ReadOptions(app, argc, argv, options);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)  // asked for help
            return app.exit(error);
        std::fprintf(stderr, "tessview: %s (--help tells more)\n", error.what());
        return WrongUsage;
    }
    if (options.CharSet >= 0) {
        const auto set = static_cast<uint8_t>(options.CharSet);
        return Viewer_ShowImage(Viewer_Sheet(set), "character set " + std::to_string(set));
    }
    return options.Info      ? Info(options)
           : options.Convert ? Convert(options)
                             : Viewer_ShowFiles(options.Files, options.Frame);
}
