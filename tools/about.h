// What a job says about itself to whoever asks (presence.h).
#pragma once

#include "tools/wallLayout.h"

#include <optional>
#include <string>
#include <vector>

/// A job's part of a wall.
struct JobArea {
    PixelArea area{};
    bool isMovable = false; // to any place on the wall: every server draws all of it
    std::vector<int> tiles; // of the wall, for each server
};

/// A server, as others see it.
struct PresentServer {
    std::string display, host; // the host empty on this machine
    int tile = 0;              // of the wall, that it draws
};

struct About {
    std::string name;  // by which it is asked for, as no other's
    std::string shows; // the program or the streams
    Size wall{};
    std::optional<JobArea> area = {}; // without one it has all of the wall
    std::vector<PresentServer> servers = {};
};
