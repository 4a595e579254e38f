#include "tools/player/terminal.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

constexpr int EndSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

static volatile std::sig_atomic_t endSignal;
static volatile std::sig_atomic_t stopAsked;
static volatile std::sig_atomic_t continued;
static int input = -1;     // source of keys while the player is in the foreground; below 0: none
static bool taken;         // the terminal delivers keys at once
static std::string typed;  // keys received but not handled yet
static termios before;
static std::string shown;  // on the screen, including control sequences; empty: nothing
static winsize shownSize;
static size_t shownLines;

static void Note(int signal)
{
    if (signal == SIGCONT)
        continued = signal;
    else if (signal != SIGWINCH)  // SIGWINCH only interrupts the waiting
        (signal == SIGTSTP ? stopAsked : endSignal) = signal;
}

static void Catch(int signal)
{
    struct sigaction action = {};
    action.sa_handler = Note;  // without SA_RESTART: a signal interrupts waiting
    struct sigaction old;
    sigaction(signal, nullptr, &old);
    if (old.sa_handler != SIG_IGN)  // unless it is ignored, as with nohup
        sigaction(signal, &action, nullptr);
}

static bool IsInForeground(int terminal)
{
    return tcgetpgrp(terminal) == getpgrp();
}

static void TakeKeys()
{
    taken = input >= 0 && IsInForeground(input);
    if (!taken)
        return;
    termios raw = before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(input, TCSANOW, &raw);
}

static void GiveKeysBack()
{
    if (taken)
        tcsetattr(input, TCSANOW, &before);
}

PLAYER_TERMINAL::PLAYER_TERMINAL(int from)
{
    for (const int signal : EndSignals)
        Catch(signal);
    // In the background the terminal belongs to another process, which set it up for itself.
    const bool usable =
        from >= 0 && isatty(from) && IsInForeground(from) && tcgetattr(from, &before) == 0;
    input = usable ? from : -1;
    if (usable || Terminal_IsShown())
        Catch(SIGTSTP);
    Catch(SIGWINCH);
    Catch(SIGCONT);
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
        {"=", KEY_LOUDER},         {"/", KEY_QUIETER},      {"*", KEY_LOUDER},
        {"m", KEY_MUTE},           {"l", KEY_LOOP},         {"v", KEY_VIEW},
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

// Length of the first key, of which at least one byte is there; 0 while its control sequence
// (ECMA-48, 5.4) is incomplete.
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
    pollfd waiting = {taken ? input : -1, POLLIN, 0};
    if (poll(&waiting, 1, milliseconds) <= 0)
        return KEY_NONE;
    std::array<char, 16> bytes;
    const ssize_t count = read(input, bytes.data(), bytes.size());
    if (count == 0) {  // hung up
        input = -1;
        taken = false;
    }
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

// Whether standard output is a terminal that can move its cursor and show colours.
static bool IsCapable()
{
    const char *kind = std::getenv("TERM");
    return kind && *kind != 0 && std::string_view(kind) != "dumb";
}

static winsize Size()
{
    winsize size = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    if (size.ws_col == 0)
        size.ws_col = 80;
    if (size.ws_row == 0)
        size.ws_row = 24;
    return size;
}

static void Print(const std::string &text)
{
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

// The cursor is hidden and stands on the first character shown. It stays there when the terminal
// becomes narrower and wraps lines, so everything can be cleared from there.
void Terminal_Show(const SCREEN &screen)
{
    if (!Terminal_IsShown() || !IsInForeground(STDOUT_FILENO))
        return;
    if (continued) {  // another program may have used the terminal
        continued = 0;
        shown.clear();
        TakeKeys();
    }
    const winsize size = Size();
    const std::vector<std::string> lines =
        Screen_Lines(screen, size.ws_col, size.ws_row, Terminal_HasColours());
    std::string text;
    for (const std::string &line : lines)
        text += (text.empty() ? "" : "\n\r") + line + "\x1B[K";
    if (lines.size() > 1)
        text += "\x1B[" + std::to_string(lines.size() - 1) + "A";
    const bool resized = size.ws_col != shownSize.ws_col || size.ws_row != shownSize.ws_row ||
                         lines.size() != shownLines;
    if (text == shown && !resized)
        return;
    Print((shown.empty() ? "\x1B[?25l" : "") + std::string(resized ? "\r\x1B[J" : "\r") + text +
          "\r");
    shown = text;
    shownSize = size;
    shownLines = lines.size();
}

void Terminal_Clear()
{
    if (!shown.empty())
        Print("\r\x1B[J\x1B[?25h");
    shown.clear();
}

bool Terminal_IsShown()
{
    return isatty(STDOUT_FILENO) == 1 && IsCapable();
}

size_t Terminal_Columns()
{
    return Size().ws_col;
}

bool Terminal_HasColours()
{
    const char *unwanted = std::getenv("NO_COLOR");
    return !unwanted || *unwanted == 0;
}
