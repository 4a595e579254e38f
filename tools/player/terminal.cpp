#include "tools/player/terminal.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <string_view>

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "tools/player/text.h"

constexpr int EndSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

static volatile std::sig_atomic_t endSignal;
static volatile std::sig_atomic_t stopAsked;
static bool hasKeys;       // the terminal's keys are for the player, while it is in the foreground
static bool taken;         // and come at once now
static std::string typed;  // and not taken yet
static termios before;

static void Note(int signal)
{
    (signal == SIGTSTP ? stopAsked : endSignal) = signal;
}

static void Catch(int signal)
{
    struct sigaction action = {};
    action.sa_handler = Note;  // without SA_RESTART: waiting ends
    struct sigaction old;
    sigaction(signal, nullptr, &old);
    if (old.sa_handler != SIG_IGN)  // as with nohup
        sigaction(signal, &action, nullptr);
}

static bool IsInForeground()
{
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

static void TakeKeys()
{
    taken = hasKeys && IsInForeground();
    if (!taken)
        return;
    termios raw = before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
}

static void GiveKeysBack()
{
    if (taken)
        tcsetattr(STDIN_FILENO, TCSANOW, &before);
}

PLAYER_TERMINAL::PLAYER_TERMINAL(bool keys)
{
    for (const int signal : EndSignals)
        Catch(signal);
    // In the background the terminal is another's, and is as that one wants it.
    hasKeys =
        keys && isatty(STDIN_FILENO) && IsInForeground() && tcgetattr(STDIN_FILENO, &before) == 0;
    if (hasKeys)
        Catch(SIGTSTP);
    TakeKeys();
}

PLAYER_TERMINAL::~PLAYER_TERMINAL()
{
    Terminal_Clear();
    GiveKeysBack();
}

static PLAYER_KEY KeyOf(std::string_view bytes)
{
    // A cursor key is ESC [ and its letter, or ESC O in application mode.
    const std::pair<std::string_view, PLAYER_KEY> keys[] = {
        {"q", KEY_QUIT},           {"Q", KEY_QUIT},         {" ", KEY_PAUSE},
        {">", KEY_NEXT},           {"n", KEY_NEXT},         {"<", KEY_PREVIOUS},
        {"p", KEY_PREVIOUS},       {"-", KEY_QUIETER},      {"+", KEY_LOUDER},
        {"=", KEY_LOUDER},         {"m", KEY_MUTE},         {"l", KEY_LOOP},
        {"?", KEY_HELP},           {"\x1B[D", KEY_LEFT},    {"\x1BOD", KEY_LEFT},
        {"\x1B[C", KEY_RIGHT},     {"\x1BOC", KEY_RIGHT},   {"\x1B[B", KEY_DOWN},
        {"\x1BOB", KEY_DOWN},      {"\x1B[A", KEY_UP},      {"\x1BOA", KEY_UP},
        {"\x1B[6~", KEY_PAGEDOWN}, {"\x1B[5~", KEY_PAGEUP}, {"\x1B[H", KEY_HOME},
        {"\x1BOH", KEY_HOME},      {"\x1B[1~", KEY_HOME},
    };
    if (bytes.size() == 1 && bytes[0] >= '0' && bytes[0] <= '9')
        return static_cast<PLAYER_KEY>(KEY_TENTH + (bytes[0] - '0'));
    for (const auto &[sequence, key] : keys)
        if (bytes == sequence)
            return key;
    return KEY_NONE;
}

// Bytes of the first key, of which there is at least one; 0 while its control sequence (ECMA-48,
// 5.4) is not whole.
static size_t KeyLength(std::string_view bytes)
{
    if (bytes.size() == 1)
        return bytes[0] == '\x1B' ? 0 : 1;
    if (bytes[0] != '\x1B' || (bytes[1] != '[' && bytes[1] != 'O'))
        return 1;
    const auto ends = [](char byte) { return byte < ' ' || byte > '?'; };
    const auto last = std::find_if(bytes.begin() + 2, bytes.end(), ends);
    return last == bytes.end() ? 0 : static_cast<size_t>(last - bytes.begin()) + 1;
}

static PLAYER_KEY TakeKey()
{
    PLAYER_KEY key = KEY_NONE;
    while (key == KEY_NONE && !typed.empty()) {
        const size_t length = KeyLength(typed);
        if (length == 0)
            break;
        key = KeyOf(std::string_view(typed).substr(0, length));
        typed.erase(0, length);
    }
    return key;
}

PLAYER_KEY Terminal_Key(int milliseconds)
{
    if (const PLAYER_KEY key = TakeKey())
        return key;
    if (!taken)
        TakeKeys();
    pollfd input = {taken ? STDIN_FILENO : -1, POLLIN, 0};
    if (poll(&input, 1, milliseconds) <= 0)
        return KEY_NONE;
    std::array<char, 16> bytes;
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count == 0)
        hasKeys = taken = false;  // hung up
    if (typed.size() > bytes.size())
        typed.clear();  // no key is that long
    typed.append(bytes.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return TakeKey();
}

int Terminal_Signal()
{
    return endSignal;
}

bool Terminal_StopAsked()
{
    return stopAsked != 0;
}

void Terminal_Stop()
{
    stopAsked = 0;
    Terminal_Clear();
    GiveKeysBack();
    raise(SIGSTOP);
    TakeKeys();
}

static size_t Columns()
{
    winsize size;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

void Terminal_Show(const std::string &left, double done, const std::string &right)
{
    if (!Terminal_IsShown())
        return;
    constexpr size_t width = 20;
    const auto filled = static_cast<size_t>(std::clamp(done, 0.0, 1.0) * width);
    const std::string line =
        left + " [" + std::string(filled, '=') + std::string(width - filled, ' ') + "] " + right;
    std::printf("\r\x1B[K%s", Player_Cut(line, Columns() - 1).c_str());
    std::fflush(stdout);
}

void Terminal_Clear()
{
    if (!Terminal_IsShown())
        return;
    std::fputs("\r\x1B[K", stdout);
    std::fflush(stdout);
}

bool Terminal_IsShown()
{
    return isatty(STDOUT_FILENO) == 1;
}
