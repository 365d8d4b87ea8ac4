// The program's connections to X servers.
#pragma once

#include <X11/Xlib.h>

/// Hears of the end of a connection of the program's own, which the calling thread is using:
/// connectionIsGone is called then. Any thread.
void watchConnection(Display* dpy);
