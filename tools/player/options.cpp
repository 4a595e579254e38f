#include "tools/player/options.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "tools/player/convert.h"

const char *const Options_Keys =
    "Keys: left and right move by 5 seconds, down and up by a minute, PgDn and PgUp by\n"
    "ten, Home to the start, 0 to 9 to that tenth; - and + (or / and *) set the\n"
    "volume, m mutes; n or > and p or < go to the next and the previous file; space\n"
    "pauses, l repeats the file for ever, v shows a module's channels, q quits,\n"
    "? shows this.";

std::optional<double> Options_Time(const std::string &text)
{
    double seconds = 0;
    size_t at = 0;
    for (int parts = 0; parts < 3; parts++) {
        const size_t colon = text.find(':', at);
        const bool last = colon == std::string::npos;
        const std::string part = text.substr(at, last ? colon : colon - at);
        const char *allowed = last ? "0123456789." : "0123456789";
        const char *const end = part.data() + part.size();
        double value;
        if (part.empty() || part.size() > 12 ||
            part.find_first_not_of(allowed) != std::string::npos ||
            std::from_chars(part.data(), end, value).ptr != end)
            return std::nullopt;
        seconds = seconds * 60 + value;
        if (last)
            return seconds;
        at = colon + 1;
    }
    return std::nullopt;
}

static double TimeOf(const char *option, const std::string &text)
{
    const std::optional<double> seconds = Options_Time(text);
    if (!seconds)
        throw CLI::ValidationError(option, "needs a time: 83, 1:23.5 or 1:02:03");
    return *seconds;
}

static PLAYER_RAW RawOf(const std::string &text)
{
    unsigned bits = 0, channels = 0, hz = 0;
    char more;
    // NOLINTNEXTLINE(cert-err34-c): nine digits are no overflow
    if (std::sscanf(text.c_str(), "%9u,%9u,%9u%c", &bits, &channels, &hz, &more) != 3 ||
        (bits != 8 && bits != 16) || channels < 1 || channels > 32 || hz < 1 || hz > 768000)
        throw CLI::ValidationError("--raw", "needs 8 or 16 bits, 1 to 32 channels, 1 to 768000 Hz");
    return {static_cast<uint8_t>(bits), static_cast<uint8_t>(channels), hz};
}

// The command line's text arguments.
struct WORDS {
    std::string Raw, Start, Length;
};

static void AddOptions(CLI::App &app, OPTIONS &options, WORDS &words)
{
    app.add_option("FILE", options.Files,
                   "Sound files, folders, playlists (.m3u, .m3u8, .pls), - for standard input");
    CLI::Option *info = app.add_flag("--info", options.Info, "Print what the headers say");
    app.add_flag("--json", options.JSON, "Print it as one JSON object a line")->needs(info);
    CLI::Option *convert =
        app.add_flag("--convert", options.Convert,
                     "Convert the first file to the second: .wav, .raw or .pcm for bare samples, "
                     "- for WAVE on standard output")
            ->excludes(info);
    CLI::Option *bits =
        app.add_option("--bits", options.Bits, "Bits of the output: 8, 16, 24, 32 or float")
            ->needs(convert)
            ->check(CLI::IsMember({"8", "16", "24", "32", "float"}));
    app.add_flag("--dither", options.Dither, "Add noise where these are fewer than the sound's")
        ->needs(bits);
    app.add_option("--rate", options.Hz, "Sampling rate of the output, in Hz")
        ->type_name("HZ")
        ->check(CLI::Range(1000, 384000));
    app.add_option("--start", words.Start, "Start at this time in each file")->type_name("TIME");
    app.add_option("--length", words.Length, "Play or convert for this long")->type_name("TIME");
    app.add_option("--loop", options.Passes, "Play each file N times; 0: for ever")
        ->type_name("N")
        ->check(CLI::Range(0, 1000000));
    CLI::Option *shuffle =
        app.add_flag("--shuffle", options.Shuffle, "Play the files in random order");
    app.add_option("--seed", options.Seed, "Seed that makes the random order repeatable")
        ->type_name("N")
        ->needs(shuffle);
    app.add_option("--volume", options.Volume, "Volume in percent, 0 to 100")
        ->type_name("N")
        ->check(CLI::Range(0, 100));
    app.add_option("--device", options.Device, "Sound device, by number or part of its name")
        ->type_name("DEVICE");
    app.add_flag("--devices", options.Devices, "List the sound devices");
    app.add_option("--interpolation", options.Interpolation,
                   "Interpolation of modules: nearest, linear, cubic or sinc")
        ->check(CLI::IsMember({"nearest", "linear", "cubic", "sinc"}));
    app.add_option("--stereo", options.Separation,
                   "Stereo separation of modules in percent, 0 to 100")
        ->type_name("N")
        ->check(CLI::Range(0, 100));
    app.add_flag("--view", options.View, "Show a module's row and channels");
    app.add_option("--raw", words.Raw, "Read files of unknown format as such samples")
        ->type_name("BITS,CHANNELS,HZ");
    app.add_flag("-r,--recursive", options.Recursive, "Include subfolders");
    app.add_flag("--framework", options.Framework,
                 "Read files by the framework's own rules instead of their formats'");
    app.set_version_flag("--version", "tessplay " TESSPLAY_VERSION);
    app.footer(std::string(Options_Keys) +
               "\nWAVE, MOD, MP3, VOC, AU, 8SVX, 16SV and AIFF are recognised by their contents.");
}

static void CheckConversion(const OPTIONS &options)
{
    if (options.Files.size() != 2)
        throw CLI::ValidationError("--convert", "needs two files, IN and OUT");
    if (!Player_CanWrite(options.Files[1]))
        throw CLI::ValidationError("--convert", "writes only .wav, .raw and .pcm");
    if (options.Files[1] == "-" && isatty(STDOUT_FILENO))
        throw CLI::ValidationError("--convert", "standard output is a terminal");
    if (options.Passes == 0)
        throw CLI::ValidationError("--loop", "0 cannot be converted: a file has an end");
}

static void Parse(CLI::App &app, int argc, char **argv, OPTIONS &options)
{
    WORDS words;
    AddOptions(app, options, words);
    app.parse(argc, argv);
    PLAYER_SETTINGS &settings = options.Settings;
    if (!words.Raw.empty())
        settings.Raw = RawOf(words.Raw);
    if (!words.Start.empty())
        settings.Start = TimeOf("--start", words.Start);
    if (!words.Length.empty())
        settings.Length = TimeOf("--length", words.Length);
    settings.Hz = options.Hz;
    options.Devices = options.Devices || options.Device == "list";
    if (options.Convert)
        CheckConversion(options);
    else if (options.Files.empty() && !options.Devices)
        throw CLI::RequiredError("FILE");
}

std::optional<int> Options_Read(int argc, char **argv, OPTIONS &options)
{
    CLI::App app("Plays sound files, describes them, or converts one to WAVE.", "tessplay");
    try {
        Parse(app, argc, argv, options);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)  // asked for help or the version
            return Options_Printed(app.exit(error));
        std::fprintf(stderr, "tessplay: %s (see --help)\n", error.what());
        return Options_WrongUsage;
    }
    return std::nullopt;
}

int Options_Printed(int status)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    std::fprintf(stderr, "tessplay: standard output: %s\n", std::strerror(errno));
    return Options_Failure;
}
