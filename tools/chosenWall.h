// The wall that the operator means: a file, and the nodes of its servers.
#pragma once

#include "tools/wallLayout.h"

/// As the options name it; empty: they do not.
struct WallChoice {
    std::string wall, hosts;
};

struct ChosenWall {
    Wall wall;
    std::vector<Host> hosts; // the host file's, else the wall file's own
    std::vector<Place> places;
};

/// The wall file that is meant: the one given, else that of MOSA_DISPLAY, else the user's own,
/// mosa/wall.conf among the settings. Empty when there is none.
std::string usualWall(const std::string& given);

/// Reads it; `read` is readWall or readUsableWall. Says which file it is when it was not given, and
/// when the hosts have too many places. Throws std::runtime_error.
ChosenWall chooseWall(const WallChoice& choice, Wall (*read)(const std::string&));
