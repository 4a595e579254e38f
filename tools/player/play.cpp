#include "tools/player/play.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "audio/audio.h"
#include "audio/mod.h"
#include "tools/common/text.h"
#include "tools/player/output.h"
#include "tools/player/terminal.h"
#include "tools/player/text.h"

using CLOCK = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int WaitMilliseconds = 50;
constexpr uint32_t CallsPerSecond = 10;                 // of the stream's callback
constexpr int VolumeStep = 5;                           // percent
constexpr auto MaxStall = std::chrono::seconds(3);      // without a callback: the device is lost
constexpr auto MaxAttempts = std::chrono::seconds(10);  // to reopen a lost device

// What plays; the stream's callback takes from it unless hushed. position: where the sound will be,
// in seconds, once all that was taken has been heard; heardAt: when that will be, by the stream's
// clock. calls: the stream's callbacks; silentCalls: those after the end that carried only silence.
static const PLAYER_SOUND *nowPlaying;
static PLAYER_OUTPUT output;
static std::atomic<bool> hushed, repeated, muted;
static std::atomic<int> volume = 100;  // percent
static std::atomic<double> position, heardAt;
static std::atomic<uint32_t> calls, silentCalls;
static bool viewed;                // show what a module's channels play
static std::atomic<double> level;  // of the last block taken, 0 to 1

void Play_Report(const std::string &file, const std::string &reason)
{
    Terminal_Clear();
    std::fprintf(stderr, "tessplay: %s: %s\n", Player_Text(file).c_str(), reason.c_str());
}

static double SecondsOf(size_t bytes)
{
    return static_cast<double>(bytes) / output.To.FrameBytes() / output.To.Hz;
}

// Half the perceived loudness is at about half the range.
static double Gain()
{
    const double part = muted ? 0 : volume / 100.0;
    return part * part * part;
}

static size_t Take(std::span<uint8_t> out)
{
    const uint32_t passes = output.Passes;
    if (repeated)
        output.Passes = 0;
    const size_t taken = Output_Take(output, out);
    if (repeated && output.Passes == 0)
        output.Passes = passes;
    return taken;
}

// Silence follows the sound before the stream completes: not every back end plays what is still
// buffered then.
static int PlayFeed(const void *, void *room, unsigned long frames,
                    const PaStreamCallbackTimeInfo *timing, unsigned long, void *)
{
    const uint32_t bits = output.To.Bits;
    const std::span out(static_cast<uint8_t *>(room), frames * output.To.FrameBytes());
    const size_t taken = hushed ? 0 : Take(out);
    if (muted || volume != 100)
        Samples_Scale(out.first(taken), bits, Gain());
    if (taken != 0) {
        position = Player_Seconds(*nowPlaying, nowPlaying->Track->Taken) -
                   SecondsOf(output.Ready.size() - output.Used);
        heardAt = Audio_HeardAt(*timing) + SecondsOf(taken);
    }
    level = Samples_Peak(out.first(taken), bits);
    std::ranges::fill(out.subspan(taken), bits == 8 ? uint8_t{128} : uint8_t{0});
    calls++;
    if (hushed || Output_HasEnded(output))
        silentCalls++;
    return silentCalls < CallsPerSecond ? Audio_Continue : Audio_Complete;
}

// Seconds of what was taken but not heard yet.
static double Unheard()
{
    return std::max(heardAt - Audio_StreamTime(*nowPlaying->Track), 0.0);
}

// The position in the sound that is heard now.
static double Now()
{
    return std::max(position - Unheard(), 0.0);
}

static bool HasEnded()
{
    return silentCalls >= CallsPerSecond || (silentCalls != 0 && Unheard() == 0);
}

// What a module's channels play at a time, as lines of text.
static std::vector<std::string> View(double now)
{
    const AudioTrack &track = *nowPlaying->Track;
    if (!viewed || track.Type != AUDIO_MOD)
        return {};
    const MOD_HEADER &header = *static_cast<const MOD_HEADER *>(track.Record.get());
    const auto view = MOD_GetView(header, static_cast<uint64_t>(now * nowPlaying->Hz));
    if (!view)
        return {};
    std::array<char, 100> text;
    std::snprintf(text.data(), text.size(), "row %02d of pattern %d, %d/%d, speed %d at %d",
                  view->Row, view->Pattern, view->Position + 1, header.SongLength, view->Speed,
                  view->Tempo);
    std::vector<std::string> lines = {Player_Cut(text.data(), Terminal_Columns() - 1)};
    const std::span levels = std::span(view->Levels).first(header.SongChannels);
    for (std::string &line : Screen_Channels(levels, Terminal_Columns(), Terminal_HasColours()))
        lines.push_back(std::move(line));
    return lines;
}

static void Show(const std::string &state, double now, const std::string &place)
{
    const PLAYER_SOUND &sound = *nowPlaying;
    SCREEN screen;
    const std::string loudness = std::to_string(volume) + "%";
    const struct {
        bool Is;
        std::string State, Brief;
    } states[] = {{!state.empty(), state, state.substr(0, 1)},
                  {muted, "muted: ", "m"},
                  {!muted && volume != 100, loudness + ": ", loudness},
                  {repeated, "repeated: ", "r"}};
    for (const auto &row : states) {
        screen.State += row.Is ? row.State : "";
        screen.Brief += row.Is ? row.Brief : "";
    }
    if (!screen.Brief.empty())
        screen.Brief += ": ";
    screen.Title = sound.Title.empty() ? sound.Name : sound.Title;
    screen.Place = place;
    screen.Now = now;
    screen.Total = Player_Seconds(sound, sound.Bytes);
    screen.Level = state.empty() ? level.load() : 0;
    screen.View = View(now);
    Terminal_Show(screen);
}

// Stopping waits until what was taken has been heard, so nothing is lost.
static void TurnPause(bool &paused)
{
    paused = !paused;
    hushed = paused;
    if (paused) {
        while (Terminal_Signal() == 0 && !HasEnded() && Audio_IsStreaming(*nowPlaying->Track))
            std::this_thread::sleep_for(milliseconds(WaitMilliseconds / 5));
        Audio_AbortStream(*nowPlaying->Track);
        Audio_Pause();
    } else {
        silentCalls = 0;
        Audio_Pause();
        Audio_StartStream(*nowPlaying->Track);
    }
}

static void SeekTo(double target, bool paused)
{
    const PLAYER_SOUND &sound = *nowPlaying;
    if (!paused)
        Audio_AbortStream(*sound.Track);
    Output_Seek(output, std::clamp(target, 0.0, Player_Seconds(sound, sound.Bytes)));
    position = Player_Seconds(sound, sound.Track->Taken);
    heardAt = 0;
    silentCalls = 0;
    if (!paused)
        Audio_StartStream(*sound.Track);
}

// Where a key seeks to from `now`; below 0: nowhere.
static double TargetOf(PLAYER_KEY key, double now, double total)
{
    const std::pair<PLAYER_KEY, int> ways[] = {{KEY_LEFT, -5},       {KEY_RIGHT, 5},
                                               {KEY_DOWN, -60},      {KEY_UP, 60},
                                               {KEY_PAGEDOWN, -600}, {KEY_PAGEUP, 600}};
    for (const auto &[pressed, seconds] : ways)
        if (key == pressed)
            return std::max(now + seconds, 0.0);
    if (key == KEY_HOME)
        return 0;
    return key >= KEY_TENTH && key <= KEY_LASTTENTH ? total * (key - KEY_TENTH) / 10 : -1;
}

// Handles a key that does not leave the file.
static void Obey(PLAYER_KEY key)
{
    if (key == KEY_LOUDER || key == KEY_QUIETER)
        volume = std::clamp(volume + (key == KEY_LOUDER ? VolumeStep : -VolumeStep), 0, 100);
    else if (key == KEY_MUTE)
        muted = !muted;
    else if (key == KEY_LOOP)
        repeated = !repeated;
    else if (key == KEY_VIEW)
        viewed = !viewed;
    else if (key == KEY_HELP && Terminal_IsShown()) {
        Terminal_Clear();
        std::puts(Screen_Wrap(Options_Keys, Terminal_Columns()).c_str());
    }
}

static std::string Lower(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// Makes streams open on the device with that number, or on the first with this text in its name.
// False if no such device exists.
static bool ChooseDevice(const std::string &wanted)
{
    const std::vector<AUDIO_DEVICE> devices = Audio_GetDevices();
    const bool isNumber = wanted.find_first_not_of("0123456789") == std::string::npos;
    Audio_OnlyDevice = -1;
    for (size_t i = 0; i < devices.size() && Audio_OnlyDevice < 0; i++)
        if (devices[i].Outputs > 0 &&
            (isNumber ? wanted == std::to_string(i)
                      : Lower(devices[i].Name).find(Lower(wanted)) != std::string::npos))
            Audio_OnlyDevice = static_cast<int32_t>(i);
    return wanted.empty() || Audio_OnlyDevice >= 0;
}

// The stream's name in sound servers: what plays, not only that something does. ALSA's plug-ins
// read it from the environment; PipeWire's names the stream so, PulseAudio's the client.
static void NameStream(const PLAYER_SOUND &sound)
{
    const std::string &title = sound.Title.empty() ? sound.Name : sound.Title;
    const std::string name = Text_JSON(title);
    setenv("PULSE_PROP_media.title", title.c_str(), 1);
    setenv("PULSE_PROP_media.role", "music", 1);
    setenv("PIPEWIRE_ALSA",
           ("{ application.name = tessplay, media.role = Music, media.name = " + name +
            ", node.description = " + name + " }")
               .c_str(),
           1);
}

// Has the engine open and start a stream of this format. Returns its error, 0: none.
static int32_t OpenStream(const SAMPLES_FORMAT &to)
{
    Audio_AnyDevice = true;
    Audio_Init(static_cast<uint8_t>(to.Channels));
    Audio_SetMixer(static_cast<uint8_t>(to.Bits), to.Hz, 0, 0);
    silentCalls = 0;
    heardAt = 0;
    Audio_StreamCallBack = PlayFeed;
    Audio_StreamFrames = std::max(to.Hz / CallsPerSecond, 1u);
    Audio_FirstPlay = 1;  // an earlier stream was closed with its track
    Audio_Play(nowPlaying->Track.get());
    if (Audio_Error != 0)
        Audio_CloseStream(*nowPlaying->Track);
    return Audio_Error;
}

// Opens the stream in the sound's own format or, if the device rejects that, in the nearest one
// that it accepts. Returns the first error; 0: none.
static int32_t StartStream(const PLAYER_SOUND &sound, const OPTIONS &options)
{
    const SAMPLES_FORMAT own = Player_Format(sound);
    const uint32_t hz = options.Hz != 0 ? options.Hz : own.Hz;
    int32_t first = 0;
    nowPlaying = &sound;
    position = Player_Seconds(sound, sound.From);
    NameStream(sound);
    for (const uint32_t channels : {own.Channels, 2u, 1u})
        for (const uint32_t rate : {hz, 48000u, 44100u})
            for (const uint32_t bits : {own.Bits, 16u}) {
                Output_Start(output, sound, options.Passes, {bits, channels, rate});
                const int32_t error = OpenStream(output.To);
                if (error == 0 || !Audio_IsFormatError(error))
                    return error;
                first = first != 0 ? first : error;
            }
    return first;
}

// When to give up on a lost device; a device that is lost again at once does not extend the time.
static CLOCK::time_point AttemptsEnd()
{
    static CLOCK::time_point end;
    const auto now = CLOCK::now();
    if (now > end + MaxStall)
        end = now + MaxAttempts;
    return end;
}

// Reopens the devices and the stream on one of them, until that succeeds, a key or a signal
// interrupts, or the time is over. Playing continues at `now`. Returns whether it does; `key`
// receives the key that interrupted.
static bool Recover(double now, const OPTIONS &options, const std::string &place, PLAYER_KEY &key)
{
    const auto end = AttemptsEnd();
    const SAMPLES_FORMAT to = output.To;
    Audio_CloseStream(*nowPlaying->Track);
    while (CLOCK::now() < end && Terminal_Signal() == 0) {
        Audio_CloseDevices();
        Audio_Init(static_cast<uint8_t>(to.Channels));
        if (ChooseDevice(options.Device)) {
            Output_Seek(output, now);
            if (OpenStream(to) == 0)
                return true;
        }
        Show("device lost, trying again: ", now, place);
        key = Terminal_Key(5 * WaitMilliseconds);
        if (key == KEY_QUIT || key == KEY_NEXT || key == KEY_PREVIOUS)
            return false;
    }
    key = Terminal_Signal() != 0 ? KEY_QUIT : KEY_NONE;
    return false;
}

namespace
{

// Whether the stream's callback is still being called.
struct PULSE {
    uint32_t Calls = calls;
    CLOCK::time_point Since = CLOCK::now();

    bool IsLost(const AudioTrack &track)
    {
        if (Calls != calls)
            *this = {};
        return !Audio_IsStreaming(track) || CLOCK::now() - Since > MaxStall;
    }
};

// How a file ended: the key that ended it (KEY_NEXT at its end), whether it could be played, and
// whether the device is lost.
struct OUTCOME {
    PLAYER_KEY Key = KEY_NEXT;
    bool Played = false, NoDevice = false;
};

}  // namespace

static void StopTerminal(bool paused)
{
    const bool playing = !paused;
    if (playing)
        TurnPause(paused);
    Terminal_Stop();
    if (playing)
        TurnPause(paused);
}

// Plays until the sound ends or a key leaves it.
static OUTCOME Watch(const OPTIONS &options, const std::string &place)
{
    const PLAYER_SOUND &sound = *nowPlaying;
    const double total = Player_Seconds(sound, sound.Bytes);
    bool paused = false;
    double now = Now();
    PULSE pulse;
    while (Terminal_Signal() == 0 && (paused || !HasEnded())) {
        PLAYER_KEY key = KEY_NONE;
        if (!paused && pulse.IsLost(*sound.Track) && !HasEnded()) {
            if (!Recover(now, options, place, key))
                return {key, true, key == KEY_NONE};
            pulse = {};
        }
        if (!paused)
            now = Now();
        Show(paused ? "paused: " : "", now, place);
        key = Terminal_Key(WaitMilliseconds);
        if (key == KEY_PAUSE)
            TurnPause(paused);
        else if (key == KEY_QUIT || key == KEY_NEXT || key == KEY_PREVIOUS)
            return {key, true};
        else if (const double target = TargetOf(key, now, total); target >= 0) {
            SeekTo(target, paused);
            now = Now();
        } else
            Obey(key);
        if (Terminal_StopAsked())
            StopTerminal(paused);
        if (paused || key != KEY_NONE)
            pulse = {};
    }
    return {Terminal_Signal() == 0 ? KEY_NEXT : KEY_QUIT, true};
}

static std::string WhyRefused(const PLAYER_SOUND &sound, int32_t error)
{
    return "the sound device refuses " + std::to_string(sound.Channels) + " channels of " +
           std::to_string(sound.Bits) + " bits at " + std::to_string(sound.Hz) +
           " Hz: " + Audio_ErrorText(error);
}

static OUTCOME PlayFile(const std::string &path, const OPTIONS &options, const std::string &place)
{
    PLAYER_SOUND sound;
    std::string reason = Player_Open(path, options.Settings, sound);
    if (reason.empty())
        reason = Player_WhySilent(sound);
    if (!reason.empty()) {
        Play_Report(path, reason);
        return {};
    }
    if (!sound.Incomplete.empty())
        Play_Report(path, sound.Incomplete);
    const int32_t error = StartStream(sound, options);
    if (Audio_IsFormatError(error)) {
        Play_Report(path, WhyRefused(sound, error));
        return {};
    }
    if (error != 0) {
        std::fprintf(stderr, "tessplay: no sound device: %s\n", Audio_ErrorText(error));
        return {.NoDevice = true};
    }
    if (!Terminal_IsShown()) {
        const std::string title = sound.Title.empty() ? "" : sound.Title + ", ";
        std::printf("%s: %s%s\n", Player_Text(path).c_str(), title.c_str(),
                    Player_Time(Player_Seconds(sound, sound.Bytes)).c_str());
        std::fflush(stdout);
    }
    const OUTCOME outcome = Watch(options, place);
    if (outcome.NoDevice)
        Play_Report(path, "the sound device was lost and did not come back in ten seconds");
    return outcome;
}

// Where keys are read: the terminal, even if standard input is the sound. Below 0: nowhere.
static int KeysFrom(const std::vector<std::string> &files)
{
    if (isatty(STDIN_FILENO))
        return STDIN_FILENO;
    const bool isInput = std::ranges::find(files, Player_Input) != files.end();
    return isInput ? open("/dev/tty", O_RDWR | O_CLOEXEC) : -1;
}

int Play_Files(const OPTIONS &options)
{
    std::vector<std::string> files = options.Files;  // without those that could not be played
    if (options.Shuffle) {
        std::mt19937 random(options.Seed != 0 ? options.Seed : std::random_device()());
        std::ranges::shuffle(files, random);
    }
    const PLAYER_TERMINAL terminal(KeysFrom(files));
    volume = options.Volume;
    viewed = options.View;
    Audio_Init(2);
    if (!ChooseDevice(options.Device)) {
        std::fprintf(stderr, "tessplay: no sound device \"%s\" (--devices lists them)\n",
                     Player_Text(options.Device).c_str());
        return Options_Failure;
    }
    int status = 0;
    size_t i = 0;
    while (i < files.size()) {
        const std::string number = std::to_string(i + 1) + " of " + std::to_string(files.size());
        const OUTCOME outcome =
            PlayFile(files[i], options, files.size() > 1 ? "(" + number + ")" : "");
        if (outcome.NoDevice)
            return Options_Failure;
        if (outcome.Key == KEY_QUIT)
            break;
        if (!outcome.Played) {
            status = Options_Failure;
            files.erase(files.begin() + static_cast<ptrdiff_t>(i));
        } else if (outcome.Key == KEY_PREVIOUS)
            i -= i != 0;
        else
            i++;
    }
    return status;
}

int Play_ListDevices()
{
    Audio_Init(2);
    const std::vector<AUDIO_DEVICE> devices = Audio_GetDevices();
    for (size_t i = 0; i < devices.size(); i++)
        if (devices[i].Outputs > 0)
            std::printf("%zu: %s%s\n", i, Player_Text(devices[i].Name).c_str(),
                        devices[i].Default ? " (default)" : "");
    return Options_Printed(0);
}
