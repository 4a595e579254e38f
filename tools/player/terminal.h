// The player's terminal: single keys, a line that is updated in place, signals that end or stop.
#pragma once

#include <cstddef>
#include <string>

#include "tools/player/screen.h"

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
    KEY_VIEW,
    KEY_HELP,
    KEY_TENTH,  // the digit 0, then the other nine
    KEY_LASTTENTH = KEY_TENTH + 9
};

/// While it lives, keys arrive one by one without echo, and signals are caught: ending ones are
/// recorded; the stopping one (Ctrl-Z) restores the terminal before it stops.
class PLAYER_TERMINAL
{
public:
    /// `keys`: the descriptor that they are read from; below 0: none.
    explicit PLAYER_TERMINAL(int keys);
    ~PLAYER_TERMINAL();
    PLAYER_TERMINAL(const PLAYER_TERMINAL &) = delete;
    PLAYER_TERMINAL &operator=(const PLAYER_TERMINAL &) = delete;
};

/// The next key, waiting at most that long.
PLAYER_KEY Terminal_Key(int milliseconds);

/// The signal that asked the program to end; 0 if none did.
int Terminal_Signal();

/// 1 once the terminal asked the program to stop. Terminal_Stop then stops it until it is
/// continued.
bool Terminal_StopAsked();
void Terminal_Stop();

/// Replaces what was shown before with the screen's lines, from the cursor's position;
/// Terminal_Clear clears them. Does nothing if standard output is not a terminal with cursor
/// control.
void Terminal_Show(const SCREEN &screen);
void Terminal_Clear();

/// Whether standard output is a terminal with cursor control; its columns; and whether colours are
/// wanted (NO_COLOR).
bool Terminal_IsShown();
size_t Terminal_Columns();
bool Terminal_HasColours();
