// The player's terminal: keys as they are pressed, a line that changes, signals that end or stop.
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

/// While it lives keys come without a return and an echo, and signals are caught: those that end
/// are noted, the one that stops (Ctrl-Z) stops with the terminal as it was before.
class PLAYER_TERMINAL
{
public:
    /// `keys`: where they come from, a descriptor; below 0: there are none.
    explicit PLAYER_TERMINAL(int keys);
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

/// Shows the screen in place of what was shown before, in lines where the cursor stands;
/// Terminal_Clear clears it. Nothing where standard output is no terminal that can do so.
void Terminal_Show(const SCREEN &screen);
void Terminal_Clear();

/// Whether standard output is a terminal with a cursor that moves; its columns; and whether colours
/// are wanted there (NO_COLOR).
bool Terminal_IsShown();
size_t Terminal_Columns();
bool Terminal_HasColours();
