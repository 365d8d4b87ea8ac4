// The terminal that a program uses.
#pragma once

#include <termios.h>

/// A terminal's settings, to be put back when the program is done.
struct Terminal {
    int fd = -1; // -1: there is none, or this process is in the background
    termios settings{};
};

Terminal keepTerminal();

/// Puts the settings back, unless somebody else has the terminal by now.
void restoreTerminal(Terminal& terminal);
