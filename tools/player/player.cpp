// Plays sound files through the engine, tells what their headers say, or converts one.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "audio/audio.h"
#include "tools/common/text.h"
#include "tools/player/convert.h"
#include "tools/player/sound.h"
#include "tools/player/terminal.h"
#include "tools/player/text.h"

struct OPTIONS {
    std::vector<std::string> Files;
    bool Info = false, JSON = false, Convert = false, Framework = false;
    uint32_t Passes = 1;
    PLAYER_RAW Raw = {};
};

constexpr int Failure = 1;
constexpr int WrongUsage = 2;
constexpr int WaitMilliseconds = 50;
constexpr uint32_t CallsPerSecond = 10;  // of the stream's callback

// What plays, of which the stream's callback takes so many passes (0: for ever) unless it is to be
// silent; when all that was taken has been heard, in seconds of the stream's clock; and the calls
// since then that were not filled.
static PLAYER_SOUND *nowPlaying;
static uint32_t passes, frameBytes;
static std::atomic<bool> hushed;
static std::atomic<double> heardAt;
static std::atomic<uint32_t> silentCalls;

static void Report(const std::string &file, const std::string &reason)
{
    Terminal_Clear();
    std::fprintf(stderr, "tessplay: %s: %s\n", Player_Text(file).c_str(), reason.c_str());
}

static double SecondsOf(uint64_t bytes)
{
    return static_cast<double>(bytes) / frameBytes / static_cast<double>(Audio_Hz);
}

// Silence follows the sound before the stream completes: not every back end lets what is buffered
// be heard then.
static int PlayFeed(const void *, void *output, unsigned long frames,
                    const PaStreamCallbackTimeInfo *timing, unsigned long, void *)
{
    const std::span out(static_cast<uint8_t *>(output), frames * frameBytes);
    const size_t taken = hushed ? 0 : Player_Take(*nowPlaying, passes, out);
    if (taken != 0)
        heardAt = Audio_HeardAt(*timing) + SecondsOf(taken);
    std::ranges::fill(out.subspan(taken), uint8_t{Audio_BPS == 8 ? uint8_t{128} : uint8_t{0}});
    if (hushed || nowPlaying->Track->Ended)
        silentCalls++;
    return silentCalls < CallsPerSecond ? Audio_Continue : Audio_Complete;
}

// Seconds of what was taken that are not heard yet.
static double Unheard()
{
    return std::max(heardAt - Audio_StreamTime(*nowPlaying->Track), 0.0);
}

// Where the sound is that is heard now.
static double Now()
{
    return std::max(SecondsOf(nowPlaying->Track->Taken) - Unheard(), 0.0);
}

static bool HasEnded()
{
    return !Audio_IsStreaming(*nowPlaying->Track) || (silentCalls != 0 && Unheard() == 0);
}

static void ShowProgress(const PLAYER_SOUND &sound, double now, bool paused, const std::string &of)
{
    const double total = Player_Seconds(sound);
    const std::string &title = sound.Title.empty() ? sound.Name : sound.Title;
    Terminal_Show(Player_Time(now) + " / " + Player_Time(total), now / total,
                  (paused ? "paused: " : "") + title + of);
}

// Stopping waits until what was taken has been heard, and so loses nothing.
static void TurnPause(bool &paused)
{
    paused = !paused;
    hushed = paused;
    if (paused) {
        while (Terminal_Signal() == 0 && !HasEnded())
            std::this_thread::sleep_for(std::chrono::milliseconds(WaitMilliseconds / 5));
        Audio_AbortStream(*nowPlaying->Track);
        Audio_Pause();
    } else {
        silentCalls = 0;
        Audio_Pause();
        Audio_StartStream(*nowPlaying->Track);
    }
}

// Plays until the sound ends or a key says what is next: KEY_NEXT at the end.
static PLAYER_KEY Watch(const PLAYER_SOUND &sound, const std::string &of)
{
    bool paused = false;
    double now = 0;
    while (Terminal_Signal() == 0 && (paused || !HasEnded())) {
        if (!paused)
            now = Now();
        ShowProgress(sound, now, paused, of);
        const PLAYER_KEY key = Terminal_Key(WaitMilliseconds);
        if (key == KEY_PAUSE)
            TurnPause(paused);
        else if (key != KEY_NONE)
            return key;
        if (Terminal_StopAsked()) {
            const bool playing = !paused;
            if (playing)
                TurnPause(paused);
            Terminal_Stop();
            if (playing)
                TurnPause(paused);
        }
    }
    return Terminal_Signal() == 0 ? KEY_NEXT : KEY_QUIT;
}

// Has the engine open a stream of the sound's own format, and start it. Returns its error, 0: none.
static int32_t StartStream(PLAYER_SOUND &sound, uint32_t wanted)
{
    Audio_AnyDevice = true;
    Audio_Init(static_cast<uint8_t>(sound.Channels));
    Audio_SetMixer(static_cast<uint8_t>(sound.Bits), sound.Hz, 0, 0);
    nowPlaying = &sound;
    passes = wanted;
    frameBytes = Player_FrameBytes(sound);
    Player_Start(sound);
    silentCalls = 0;
    Audio_StreamCallBack = PlayFeed;
    Audio_StreamFrames = std::max(sound.Hz / CallsPerSecond, 1u);
    Audio_FirstPlay = 1;  // the stream before, if any, went with its track
    Audio_Play(sound.Track.get());
    return Audio_Error;
}

static std::string WhyRefused(const PLAYER_SOUND &sound, int32_t error)
{
    return "the sound device refuses " + std::to_string(sound.Channels) + " channels of " +
           std::to_string(sound.Bits) + " bits at " + std::to_string(sound.Hz) +
           " Hz: " + Audio_ErrorText(error);
}

// What became of a file: the key that ended it, or that it cannot be played.
struct OUTCOME {
    PLAYER_KEY Key = KEY_NEXT;
    bool Played = false, NoDevice = false;
};

static OUTCOME PlayFile(const std::string &path, const OPTIONS &options, const std::string &of)
{
    PLAYER_SOUND sound;
    std::string reason = Player_Open(path, options.Raw, sound);
    if (reason.empty())
        reason = Player_WhySilent(sound);
    if (!reason.empty()) {
        Report(path, reason);
        return {};
    }
    if (!sound.Incomplete.empty())
        Report(path, sound.Incomplete);
    const int32_t error = StartStream(sound, options.Passes);
    if (error == 0)
        return {Watch(sound, of), true};
    if (Audio_IsFormatError(error)) {
        Report(path, WhyRefused(sound, error));
        return {};
    }
    std::fprintf(stderr, "tessplay: no sound device: %s\n", Audio_ErrorText(error));
    return {.NoDevice = true};
}

static int Play(const OPTIONS &options)
{
    const PLAYER_TERMINAL terminal(true);
    std::vector<std::string> files = options.Files;  // without those that cannot be played
    int status = 0;
    size_t i = 0;
    while (i < files.size()) {
        const std::string number = std::to_string(i + 1) + " of " + std::to_string(files.size());
        const OUTCOME outcome =
            PlayFile(files[i], options, files.size() > 1 ? " (" + number + ")" : "");
        if (outcome.NoDevice)
            return Failure;
        if (outcome.Key == KEY_QUIT)
            break;
        if (!outcome.Played) {
            status = Failure;
            files.erase(files.begin() + static_cast<ptrdiff_t>(i));
        } else if (outcome.Key == KEY_PREVIOUS)
            i -= i != 0;
        else
            i++;
    }
    return status;
}

// The status, unless standard output could not be written.
static int Printed(int status)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    std::fprintf(stderr, "tessplay: standard output: %s\n", std::strerror(errno));
    return Failure;
}

// Prints what a file says, in words or as a line of JSON, which also has what cannot be opened.
// Returns whether it was opened.
static bool PrintInfo(const std::string &file, const OPTIONS &options)
{
    PLAYER_SOUND sound;
    const std::string reason = Player_Open(file, options.Raw, sound);
    if (!reason.empty())
        Report(file, reason);
    if (options.JSON && !reason.empty())
        std::printf("{\"path\":%s,\"reason\":%s}\n", Text_JSON(file).c_str(),
                    Text_JSON(reason).c_str());
    else if (options.JSON)
        std::printf("%s}\n", Player_JSON(sound).c_str());
    else if (reason.empty())
        std::fputs(Player_Info(sound).c_str(), stdout);
    return reason.empty();
}

static int Info(const OPTIONS &options)
{
    int status = 0;
    for (const std::string &file : options.Files)
        if (!PrintInfo(file, options))
            status = Failure;
    return Printed(status);
}

static int Convert(const OPTIONS &options)
{
    const PLAYER_TERMINAL terminal(false);
    PLAYER_SOUND sound;
    std::string reason = Player_Open(options.Files[0], options.Raw, sound);
    if (reason.empty())
        reason = Player_WhySilent(sound);
    if (!reason.empty()) {
        Report(options.Files[0], reason);
        return Failure;
    }
    if (!sound.Incomplete.empty())
        Report(options.Files[0], sound.Incomplete);
    reason = Player_Convert(sound, options.Passes, options.Files[1]);
    if (!reason.empty())
        Report(options.Files[sound.Track->Error != 0 ? 0 : 1], reason);
    return reason.empty() ? 0 : Failure;
}

static PLAYER_RAW RawOf(const std::string &text)
{
    unsigned bits = 0, channels = 0, hz = 0;
    char more;
    if (std::sscanf(text.c_str(), "%9u,%9u,%9u%c", &bits, &channels, &hz, &more) != 3 ||
        (bits != 8 && bits != 16) || channels < 1 || channels > 32 || hz < 1 || hz > 768000)
        throw CLI::ValidationError("--raw", "wants 8 or 16 bits, 1 to 32 channels, 1 to 768000 Hz");
    return {static_cast<uint8_t>(bits), static_cast<uint8_t>(channels), hz};
}

static void ReadOptions(CLI::App &app, int argc, char **argv, OPTIONS &options)
{
    std::string raw;
    app.add_option("FILE", options.Files, "Sound files")->required();
    CLI::Option *info = app.add_flag("--info", options.Info, "Print what the headers say");
    app.add_flag("--json", options.JSON, "Print it as one JSON object a line")->needs(info);
    app.add_flag("--convert", options.Convert,
                 "Convert the first file to the second: .wav, or .raw for samples alone")
        ->excludes(info);
    app.add_option("--loop", options.Passes, "Play each file N times, 0: for ever")
        ->type_name("N")
        ->check(CLI::Range(0, 1000000));
    app.add_option("--raw", raw, "What files of unknown format are taken for")
        ->type_name("BITS,CHANNELS,HZ");
    app.add_flag("--framework", options.Framework,
                 "Read files by the framework's own rules, not by those of their formats");
    app.set_version_flag("--version", "tessplay " TESSPLAY_VERSION);
    app.footer("Keys: space pauses, arrows go to the next or the previous file, q quits.\n"
               "WAVE, MOD, MP3, VOC, AU, 8SVX, 16SV and AIFF are known by their contents.");
    app.parse(argc, argv);
    if (!raw.empty())
        options.Raw = RawOf(raw);
    if (options.Convert && options.Files.size() != 2)
        throw CLI::ValidationError("--convert", "wants two files, IN and OUT");
    if (options.Convert && !Player_CanWrite(options.Files[1]))
        throw CLI::ValidationError("--convert", "writes .wav and .raw");
    if (options.Convert && options.Passes == 0)
        throw CLI::ValidationError("--loop", "a file is no place for ever");
}

int main(int argc, char **argv)
{
    OPTIONS options;
    CLI::App app("Plays sound files, tells what they are, or converts one to WAVE.", "tessplay");
    try {
        ReadOptions(app, argc, argv, options);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)  // asked for help or the version
            return Printed(app.exit(error));
        std::fprintf(stderr, "tessplay: %s (--help tells more)\n", error.what());
        return WrongUsage;
    }
    Audio_Rules = options.Framework ? AUDIO_RULES_FRAMEWORK : AUDIO_RULES_FORMAT;
    const int status = options.Info      ? Info(options)
                       : options.Convert ? Convert(options)
                                         : Play(options);
    if (const int signal = Terminal_Signal()) {
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    return status;
}
