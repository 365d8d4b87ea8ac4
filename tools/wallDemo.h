// A wall of virtual displays on this machine, with a recorded program on it.
#pragma once

#include "client/playOptions.h"
#include "tools/liveProgram.h"
#include "tools/virtualDisplays.h"
#include "tools/wallArea.h"

#include <string>

struct DemoOptions {
    std::string scene = "gears"; // a scene's name or a stream file
    Size screens{2, 2};
    Size screen;       // of a tile; 0: as large as the program's own window
    int gap = 0;       // pixels of bezel between tiles
    bool show = false; // tiles in a window of the user's display, not only in the picture
    std::string picture = "wall.png";
    PlayOptions play = {};
    LiveOptions live = {};
    bool plain = false; // without the project's overload libraries
    AtOptions at = {};
    std::string name = {}; // for list, move, raise and stop; empty: what it shows
};

/// Starts a virtual display for each screen of a grid; with `show` they are in a window of the
/// user's display. Throws std::runtime_error.
std::vector<VirtualDisplay> openVirtualWall(const Grid& grid, bool show);

/// The wall file of such a wall.
std::string virtualWallText(const Grid& grid, const std::vector<VirtualDisplay>& displays);

/// Plays the scene, or runs the program where the live options have one, writes a picture of the
/// wall with the last frame and prints its path. Returns the exit status, or negative the signal
/// that the program has died of; throws std::runtime_error when something cannot be started.
int runDemo(const DemoOptions& options);

/// Prints the scenes that come with the system, one a line: name, window, frames and bytes.
void listScenes();
