// The player's terminal: keys as they are pressed, a line that changes, signals that end or stop.
#pragma once

#include <string>

enum PLAYER_KEY {
    KEY_NONE,
    KEY_QUIT,
    KEY_PAUSE,
    KEY_NEXT,
    KEY_PREVIOUS,
    KEY_LEFT,
    KEY_RIGHT,
    KEY_DOWN,
    KEY_UP,
    KEY_PAGEDOWN,
    KEY_PAGEUP,
    KEY_HOME,
    KEY_QUIETER,
    KEY_LOUDER,
    KEY_MUTE,
    KEY_LOOP,
    KEY_HELP,
    KEY_TENTH,  // the digit 0, then the other nine
    KEY_LASTTENTH = KEY_TENTH + 9
};

/// While it lives keys come without a return and an echo, and signals are caught: those that end
/// are noted, the one that stops (Ctrl-Z) stops with the terminal as it was before. Only where
/// standard input is a terminal are there keys.
class PLAYER_TERMINAL
{
public:
    explicit PLAYER_TERMINAL(bool keys);
    ~PLAYER_TERMINAL();
    PLAYER_TERMINAL(const PLAYER_TERMINAL &) = delete;
    PLAYER_TERMINAL &operator=(const PLAYER_TERMINAL &) = delete;
};

/// The next key, for which it waits that long.
PLAYER_KEY Terminal_Key(int milliseconds);

/// The signal that asks for the end; 0 when none came.
int Terminal_Signal();

/// 1 once the terminal was asked to stop the program, which Terminal_Stop then does until it is
/// continued.
bool Terminal_StopAsked();
void Terminal_Stop();

/// Shows `left`, a bar of the part done (0 to 1) and `right` over what was shown before, cut to the
/// terminal's width; an empty line clears it. Nothing where standard output is no terminal.
void Terminal_Show(const std::string &left, double done, const std::string &right);
void Terminal_Clear();

/// Whether standard output is a terminal.
bool Terminal_IsShown();
