// X displays without a screen, for a wall on one machine.
#pragma once

#include "client/process.h"

#include <string>
#include <vector>

/// A display and the X server behind it.
struct VirtualDisplay {
    Process server;
    std::string name; // ":71"
};

/// How to start one: Xvfb, or Xephyr for a display that is a window of another display.
struct DisplayOptions {
    std::vector<std::string> argv{"Xvfb"};
    std::vector<std::string> environment;
};

/// Starts a display with one screen of 24 bits and GLX. The X server picks a free number. Throws
/// std::runtime_error, with what the X server said, when it does not come up.
VirtualDisplay startDisplay(int width, int height, const DisplayOptions& options = {});

/// Starts n displays of one size.
std::vector<VirtualDisplay> startDisplays(int n, int width, int height);

void stopDisplays(std::vector<VirtualDisplay>& displays);
