// Shows pictures in a window, prints what they say about themselves, or converts them.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "picture/charset.h"
#include "picture/pixels.h"
#include "tools/common/guard.h"
#include "tools/viewer/convert.h"
#include "tools/viewer/files.h"
#include "tools/viewer/info.h"
#include "tools/viewer/report.h"
#include "tools/viewer/shown.h"
#include "tools/viewer/window.h"

struct OPTIONS {
    std::vector<std::string> Files;
    bool Info = false, JSON = false, Convert = false;
    bool List = false, Recursive = false, Framework = false;
    std::string Frame;
    CONVERT_OPTIONS Writing;
    WINDOW_OPTIONS Window;
    int CharSet = -1;
};

constexpr int Failure = 1;
constexpr int WrongUsage = 2;

static std::string KeysText()
{
    std::string text = "Keys:\n";
    for (const auto &[keys, what] : Window_Keys())
        text.append("  ")
            .append(keys)
            .append(keys.size() < 28 ? 28 - keys.size() : 1, ' ')
            .append(what + "\n");
    return text;
}

namespace
{

// The help does not list which options exclude each other: using them together reports it.
class PLAIN_HELP : public CLI::Formatter
{
public:
    std::string make_option_opts(const CLI::Option *option) const override
    {
        const std::string type = option->get_type_name();  // a colon precedes its bounds
        return option->get_type_size() == 0 || option->get_positional()
                   ? ""
                   : " " + type.substr(0, type.find(':'));
    }
};

}  // namespace

static void AddOptions(CLI::App &app, OPTIONS &options)
{
    app.add_option("FILE", options.Files, "Pictures and folders; - is standard input");
    app.add_flag("-r,--recursive", options.Recursive, "Include subfolders");
    app.add_flag("-f,--files", options.List, "Read file names from standard input, one a line");
    app.add_flag("--framework", options.Framework,
                 "Read files by the framework's own rules instead of their formats'");

    CLI::Option *info = app.add_flag("--info", options.Info, "Print the files' facts");
    app.add_flag("--json", options.JSON, "Print it as one JSON object per line")->needs(info);
    CLI::Option *convert =
        app.add_flag("--convert", options.Convert,
                     "Write the last file from the one before, by its ending, or, if it is a "
                     "folder, all others into it: " +
                         std::string(Convert_Endings))
            ->excludes(info);
    app.add_option("--to", options.Writing.Format, "Format of the files in a folder: png, bmp ...")
        ->type_name("ENDING")
        ->default_val("png")
        ->needs(convert);
    app.add_flag("--compress", options.Writing.Compress, "Compress .ham6 and .ham8 by run lengths")
        ->needs(convert);
    app.add_flag("--upright", options.Writing.Upright, "Turn photographs upright")->needs(convert);
    app.add_flag("--compose", options.Writing.Compose,
                 "Write frames as they are seen, on top of those before them")
        ->needs(convert);
    CLI::Option *frame =
        app.add_option("--frame", options.Frame,
                       "Frame or page to show or convert, from 0; to convert: all, each to a "
                       "numbered file")
            ->type_name("N")
            ->excludes(info);

    app.add_option("--slideshow", options.Window.Slideshow, "Go on after so many seconds")
        ->type_name("S")
        ->check(CLI::Range(0.1, 86400.0))
        ->excludes(info)
        ->excludes(convert);
    app.add_flag("--grid", options.Window.Grid, "Start with the contact sheet")
        ->excludes(info)
        ->excludes(convert);
    app.add_flag("--fullscreen", options.Window.FullScreen, "Start in full screen")
        ->excludes(info)
        ->excludes(convert);
    app.add_option("--charset", options.CharSet, "Show a character set")
        ->type_name("N")
        ->check(CLI::Range(0, CharSet_Sets - 1))
        ->excludes(info)
        ->excludes(convert)
        ->excludes(frame);
    app.set_version_flag("--version", "tessview " TESSVIEW_VERSION);
    app.formatter(std::make_shared<PLAIN_HELP>());
    app.footer(KeysText);
}

// --frame takes a number or "all".
static void ReadFrame(OPTIONS &options)
{
    if (options.Frame.empty())
        return;
    options.Writing.AllFrames = options.Frame == "all";
    if (options.Writing.AllFrames && !options.Convert)
        throw CLI::ValidationError("--frame", "takes all only with --convert");
    if (options.Writing.AllFrames)
        return;
    uint32_t number = 0;
    if (options.Frame.starts_with('-') || !CLI::detail::lexical_cast(options.Frame, number))
        throw CLI::ValidationError("--frame", "needs a number from 0 on, or all");
    options.Writing.Frame = options.Window.Frame = number;
}

static void CheckConversion(OPTIONS &options)
{
    const std::vector<std::string> &files = options.Files;
    if (files.size() < 2)
        throw CLI::ValidationError("--convert", "needs at least two files, IN and OUT");
    if (options.Writing.Format.starts_with('.'))
        options.Writing.Format.erase(0, 1);
    std::error_code unknown;
    const bool folder = std::filesystem::is_directory(files.back(), unknown);
    if (files.size() > 2 && !folder)
        throw CLI::ValidationError("--convert", "writes several files only into a folder");
    if (!Convert_CanWrite(folder ? "." + options.Writing.Format : files.back()))
        throw CLI::ValidationError("--convert", std::string("writes ") + Convert_Endings);
}

static void ReadOptions(CLI::App &app, int argc, char **argv, OPTIONS &options)
{
    AddOptions(app, options);
    app.parse(argc, argv);
    ReadFrame(options);
    if ((options.Files.empty() && !options.List) == (options.CharSet < 0))
        throw CLI::ValidationError("FILE", "needs files, or --charset without any");
    if (options.List && std::ranges::count(options.Files, "-") > 0)
        throw CLI::ValidationError("--files", "standard input cannot be the list and a picture");
    if (options.Convert)
        CheckConversion(options);
}

static std::vector<std::string> Paths(const std::vector<FILES_ENTRY> &entries)
{
    std::vector<std::string> paths;
    paths.reserve(entries.size());
    for (const FILES_ENTRY &entry : entries)
        paths.push_back(entry.Path);
    return paths;
}

static int OutputFailure()
{
    Report("standard output", std::strerror(errno));
    return Failure;
}

using OUTPUT = std::unique_ptr<FILE, int (*)(FILE *)>;

static OUTPUT OpenOutput()
{
    const int copy = dup(STDOUT_FILENO);
    FILE *out = copy >= 0 ? fdopen(copy, "w") : nullptr;
    if (!out && copy >= 0)
        close(copy);
    return {out, std::fclose};
}

static int Run(OPTIONS &options)
{
    if (options.CharSet >= 0)
        return Window_ShowSheet(static_cast<uint8_t>(options.CharSet));
    if (options.List) {
        for (std::string &line : Files_ReadList())
            options.Files.insert(options.Files.end() - (options.Convert ? 1 : 0), std::move(line));
        if (std::ferror(stdin)) {
            Report("standard input", std::strerror(errno));
            return Failure;
        }
    }
    if (std::ranges::count(options.Files, "-") > 0)
        if (const std::string reason = Viewer_KeepInput(); !reason.empty())
            Report("-", reason);

    // By the framework's rules decoders may trace on standard output.
    const OUTPUT out = OpenOutput();
    if (!out || (options.Framework && !std::freopen("/dev/null", "w", stdout)))
        return OutputFailure();
    if (options.Convert) {
        std::vector<std::string> words(options.Files.begin(), options.Files.end() - 1);
        words = Paths(Files_Expand(words, options.Recursive));
        words.push_back(options.Files.back());
        return Convert_Files(words, options.Writing) ? 0 : Failure;
    }
    std::vector<FILES_ENTRY> entries = Files_Expand(options.Files, options.Recursive);
    if (options.Info)
        return Info_Print(Paths(entries), options.JSON, out.get()) ? 0 : Failure;
    size_t at = 0;
    if (entries.size() == 1 && entries[0].Named && !options.List)
        entries = Files_Around(entries[0].Path, at);
    return Window_ShowFiles(std::move(entries), at, options.Window);
}

static int ReadAndRun(int argc, char **argv)
{
    OPTIONS options;
    CLI::App app("Shows pictures, prints what they say about themselves, or converts them.",
                 "tessview");
    try {
        ReadOptions(app, argc, argv, options);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) {  // asked for help or the version
            const int status = app.exit(error);
            return std::cout.flush() && std::fflush(stdout) == 0 ? status : OutputFailure();
        }
        std::fprintf(stderr, "tessview: %s (see --help)\n", error.what());
        return WrongUsage;
    }
    Picture_Rules = options.Framework ? PICTURE_RULES_FRAMEWORK : PICTURE_RULES_FORMAT;
    return Run(options);
}

int main(int argc, char **argv)
{
    return Guard_Run("tessview", [&] { return ReadAndRun(argc, argv); });
}
