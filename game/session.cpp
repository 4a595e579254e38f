#include "game/session.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <utility>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "audio/mp3.h"
#include "extra/heap.h"
#include "game/board.h"
#include "game/frame.h"
#include "game/hiscore.h"
#include "game/minefield.h"
#include "game/moves.h"
#include "platform/application.h"
#include "platform/glfew.h"
#include "platform/system.h"
#include "platform/timer.h"

AudioTrack *music;
std::array<char, 32> tmpStr;

constexpr char musicFile[] = "datas/ShadowOfTheBeast.mp3";
constexpr char noNameYet[] = "??????";  // name of a result before the player has answered
constexpr size_t MaxName = 16;
constexpr int EventPeriod = 50;  // milliseconds between polls of the window's events

static std::atomic<int> endSignal;  // the signal that asked the program to end; 0: none
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler stores it");

static int volume = 100;  // of the music, percent; 0: no stream is opened

// Reads the volume from the environment, and gives the sound servers the game's name.
static void ReadSoundSettings()
{
    for (const auto &[name, value] :
         {std::pair{"PULSE_PROP_OVERRIDE", "application.name=Tessaruvinel media.role=game"},
          std::pair{"PIPEWIRE_ALSA", "{ application.name = Tessaruvinel, media.role = Game }"}})
        setenv(name, value, 0);
    const char *text = std::getenv("TESSARUVINEL_VOLUME");
    if (!text)
        return;
    const char *end = text + std::strlen(text);
    int value = -1;
    const auto [rest, error] = std::from_chars(text, end, value);
    if (error == std::errc() && rest == end && value >= 0 && value <= 100)
        volume = value;
    else
        std::fprintf(stderr, "TESSARUVINEL_VOLUME is not 0 to 100: 100 is taken\n");
}

// The sound library aborts by assert() on machines without, say, a default device. So a child
// process tries to start it while the board is built. Returns the child, or 0 if nothing is to be
// tried.
static pid_t ProbeSound()
{
    const pid_t probe = volume != 0 ? fork() : 0;
    if (probe != 0 || volume == 0)
        return probe;
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    prctl(PR_SET_DUMPABLE, 0);
    std::signal(SIGABRT, SIG_DFL);
    if (!std::freopen("/dev/null", "w", stderr) || !std::freopen("/dev/null", "w", stdout))
        _exit(EXIT_FAILURE);
    Audio_Init(2);
    _exit(EXIT_SUCCESS);
}

static bool SoundStarts(pid_t probe)
{
    int status = 0;
    while (probe > 0 && waitpid(probe, &status, 0) < 0 && errno == EINTR)
        continue;
    return !WIFSIGNALED(status);
}

// The stream's callback: gapless music, scaled by the player's volume.
static int PlayAtVolume(const void *input, void *output, unsigned long frames,
                        const PaStreamCallbackTimeInfo *timing, unsigned long status, void *user)
{
    const int result = Audio_GaplessCallBack(input, output, frames, timing, status, user);
    for (int16_t &sample : std::span(static_cast<int16_t *>(output), frames * Audio_Channel))
        sample = static_cast<int16_t>(sample * volume / 100);
    return result;
}

static void StartMusic(bool sound)
{
    if (!sound)
        std::fprintf(stderr, "No sound: the sound system cannot be started\n");
    if (!sound || volume == 0)
        Audio_FirstPlay = 2;  // as if the stream could not be opened
    Audio_StreamCallBack = PlayAtVolume;
    Audio_Init(2);
    Audio_SetMixer(16, 44100, 32768, 32768);
    Audio_SetMode(1);
    Audio_SetLoop(0);
    music = Audio_Load(musicFile);
    // If the whole folder is missing, the tiles have already been reported.
    if (!music->Buffer[0] && System_DirectoryExists("datas")) {
        const std::string reason = Audio_Reason();
        std::fprintf(stderr, "%s: no music: %s\n", musicFile,
                     reason.empty() ? "it does not decode" : reason.c_str());
    }
    const MP3_HEADER *header = MP3_GetHeader(0);
    std::printf("Title: %s\n", header ? header->ID3v2.Title.data() : "");
    std::printf("Artist: %s\n", header ? header->ID3v2.Artist.data() : "");
    std::printf("Year: %s\n", header ? header->ID3v2.Year.data() : "");
    std::printf("Comment: %s\n\n", header ? header->ID3v2.Comment.data() : "");
    Audio_Play(music);
}

// The second signal of the same kind ends the process at once.
static void EndBySignal(int signal)
{
    endSignal = signal;
    Velmorandis_CloseApplication(1);
}

static void CatchSignals()
{
    struct sigaction action = {}, before;
    action.sa_handler = EndBySignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM})
        if (sigaction(signal, &action, &before) == 0 && before.sa_handler == SIG_IGN)
            sigaction(signal, &before, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // a closed console must not end the game
}

static void EndWithoutDisplay();

void Velmorandis()
{
    ReadSoundSettings();
    const pid_t probe = ProbeSound();
    const bool window = CreateApplication(
        0, 0, 1024, 768, "Tessaruvinel v3.23 - a VELMORANDIS production", "", "", 255, 255, 0, 255);
    if (!window)
        std::exit(EXIT_FAILURE);
    GLFEW_WhenDisplayIsLost(EndWithoutDisplay);
    System_RaNDomize();
    std::printf("\nWelcome to the latest VELMORANDIS production!\n\n");
    std::printf("Minefield properties:\n");
    ReadParameters();
    std::printf("X dimension : %d\n", xDim);
    std::printf("Y dimension : %d\n", yDim);
    std::printf("Mines       : %d\n\n", nMines);
    std::printf("BTW: Tessaruvinel.exe xDim yDim nMines\n\n");
    std::printf("Generate minefield...\n");
    GenerateMinefield();
    CreateBoard();
    std::printf("\n\nOK, let's play.\n\n");
    Extra_CreateHeap(0, xDim * yDim * 3);
    Extra_SetHeap(0, 0);
    ShowApplication();  // starting the sound system may take long
    StartMusic(SoundStarts(probe));
    CatchSignals();
    Timer_Create(0, 10000000);
}

// Reports that the table cannot be read or written, and why, once per error.
static void Complain(const char *what, int error)
{
    static int complained;
    if (error == 0 || error == complained)
        return;
    complained = error;
    std::fprintf(stderr, "%s: cannot be %s: %s\n", fnHiscore.data(), what, std::strerror(error));
}

static size_t Save(const char *name, const char *before)
{
    NameHiscoreFile();
    // On purpose, the record counts one step too many: `step` is the number of the next one.
    std::snprintf(tmpStr.data(), tmpStr.size(), "%02d:%02d:%02d:%04d, %05d", timeH, timeM, timeS,
                  timeMS * 10, static_cast<int>(step));
    const HISCORE_SAVED saved = SaveHiscore(tmpStr.data(), name, before);
    Complain("read", saved.ReadError);
    Complain("written", saved.WriteError);
    return saved.Place;
}

// The result is in the file under noNameYet.
static bool unnamed;

// Ends the game after the display was lost; no window function may be called any more.
static void EndWithoutDisplay()
{
    Timer_Destroy();
    std::fprintf(stderr, "The display is lost\n");
    if (mb == GAME_WON)
        Save("", unnamed ? noNameYet : nullptr);
    std::fflush(nullptr);
    std::_Exit(EXIT_FAILURE);
}

// The next byte of standard input, or EOF at its end or if the program is asked to end. The window
// system's events are processed meanwhile.
static int ReadByte()
{
    while (endSignal == 0) {
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, EventPeriod) <= 0) {
            GLFEW_AnswerEvents();
            continue;
        }
        unsigned char byte;
        const ssize_t size = read(STDIN_FILENO, &byte, 1);
        if (size == 1)
            return byte;
        if (size == 0 || (errno != EINTR && errno != EAGAIN))
            break;
    }
    return EOF;
}

static bool IsNameCharacter(int c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == ' ';
}

// Reads a line. The name is its leading digits, letters and spaces, at most MaxName.
static std::string ReadName()
{
    std::string name;
    bool more = true;
    for (int c = ReadByte(); c != EOF && c != '\n'; c = ReadByte()) {
        more = more && name.size() < MaxName && IsNameCharacter(c);
        if (more)
            name += static_cast<char>(c);
    }
    return endSignal == 0 ? name : "";
}

static void ShowLost()
{
    NameHiscoreFile();
    const int error = ReadHiscore();
    if (error == ENOENT)
        return;
    Complain("read", error);
    if (error != 0)
        return;
    PrintHiscore();
    std::printf("\n");
}

static void ShowWon()
{
    std::printf("WoW! You may be managed to climb up to the hiscore table...\n");
    const size_t place = Save(noNameYet, nullptr);
    PrintHiscore();
    if (place == NoPlace) {
        std::printf("It does not seem like that, sorry.\n\n");
        return;
    }
    unnamed = true;
    tcflush(STDIN_FILENO, TCIFLUSH);  // discards what was typed during the game
    std::printf("What is your name? ");
    std::fflush(stdout);
    const std::string name = ReadName();
    std::printf("Have a good day dear %s!\n\n", name.c_str());
    Save(name.c_str(), noNameYet);
    unnamed = false;
}

void Destroy()
{
    GLFEW_HideWindow();
    Timer_Destroy();
    Audio_Stop();
    std::printf("\nThank you for the playing. See U next time!\n\n");
    if (mb == GAME_WON)
        ShowWon();
    else
        ShowLost();
    Audio_SetMode(1);
    Audio_UnLoad(music);
    Extra_DestroyHeap(0);
    DestroyBoard();
    if (endSignal == 0)
        return;
    std::fflush(nullptr);
    std::signal(endSignal, SIG_DFL);
    std::raise(endSignal);
}
