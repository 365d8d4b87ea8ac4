// The program's windows as the X server knows them, asked over a connection of the library's own:
// the program's may be busy in another thread. Any thread, one at a time.
#pragma once

#include "client/windowState.h"

#include <string>

/// The state of a window. Asks the server when it is new or an event has told of a change, or when
/// `anew`.
const WindowState& windowState(const char* displayName, unsigned long window, bool anew);

/// The title of a window or of the nearest window around it that has one.
std::string windowTitle(const char* displayName, unsigned long window);
