// X and GLX protocol errors. They arrive late and cost one request; Xlib's own handler would end
// the process at the first.
#pragma once

#include <atomic>

/// How many errors have passed without their line. Written by the decode thread.
inline std::atomic<long> xErrorsNotShown;

/// Installs the handlers: an error prints an "Attention MOSA: " line and the stream goes on; a lost
/// connection prints the display's name and ends the process with status 1.
void handleXErrors();
