// X displays without a screen, for a wall on one machine.
#pragma once

#include "tools/process.h"

#include <string>
#include <vector>

/// A display and the X server behind it.
struct VirtualDisplay {
    Process server;
    std::string name; // ":71"
};

/// Starts a display with one screen of 24 bits and GLX. Its X server, with arguments of its own, is
/// Xvfb, or Xephyr for a display that is a window of another display; it picks a free number. Only
/// this process and what it starts can use the display (xAuthority.h).
/// Throws std::runtime_error, with what the X server said, when it does not come up.
VirtualDisplay startDisplay(int width, int height,
                            const std::vector<std::string>& xServer = {"Xvfb"});

/// Starts n displays of one size.
std::vector<VirtualDisplay> startDisplays(int n, int width, int height);

void stopDisplays(std::vector<VirtualDisplay>& displays);
