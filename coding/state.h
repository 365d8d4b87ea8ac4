// A current display and drawable, for overload libraries' use. The server itself keeps its state in
// serverWindows.h.
#pragma once

#include "wire/prototypes.h"

void _mwglSetCurrentState(Display* dpy, GLXDrawable win);

/// Stores what was set and returns 1, or returns 0 and stores nothing when nothing was.
int _mwglGetCurrentState(Display** dpy, GLXDrawable* win);
