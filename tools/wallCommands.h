// The commands of mosa-wall: each has the options that were given, returns an exit status, or
// negative the signal that a program has died of, and throws std::runtime_error with what keeps it
// from its work.
#pragma once

#include "tools/liveProgram.h"
#include "tools/wallDemo.h"
#include "tools/wallLayout.h"

#include <string>
#include <vector>

struct WallOptions {
    int (*command)(const WallOptions&) = nullptr; // the one given
    Grid grid;
    std::string wall, hosts, output, picture;
    std::vector<std::string> streams; // names of scenes or files
    PlayOptions play;
    int frames = 600;
    bool dryRun = false, force = false, label = false, list = false;
    bool stats = false;            // figures of every server at the end
    bool offline = false;          // the nodes are not asked
    std::vector<std::string> sums; // and the hosts, for probe
    bool plain = false;            // without the project's overload libraries
    DemoOptions demo;
    LiveOptions live;
};

/// The wall file that is meant: the one given, else that of MOSA_DISPLAY, else the user's own,
/// mosa/wall.conf among the settings. Empty when there is none.
std::string usualWall(const std::string& given);

int layoutCommand(const WallOptions& options);
int checkCommand(const WallOptions& options);
int runCommand(const WallOptions& options);
int recordCommand(const WallOptions& options);
int snapshotCommand(const WallOptions& options);
int patternCommand(const WallOptions& options);
int demoCommand(const WallOptions& options);

/// What `run` has mpiexec start on the nodes.
int probeCommand(const WallOptions& options);
