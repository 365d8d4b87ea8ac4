// The commands of mosa-wall: each has the options that were given, returns an exit status and
// throws std::runtime_error with what keeps it from its work.
#pragma once

#include "client/wallDemo.h"
#include "client/wallLayout.h"

#include <string>
#include <vector>

struct WallOptions {
    int (*command)(const WallOptions&) = nullptr; // the one given
    Grid grid;
    std::string wall, hosts, output, picture;
    std::vector<std::string> streams; // names of scenes or files
    std::string hold, ahead, then;    // for play
    int loop = 1;
    int frames = 600;
    bool dryRun = false, force = false, label = false, list = false, loose = false;
    DemoOptions demo;
};

int layoutCommand(const WallOptions& options);
int checkCommand(const WallOptions& options);
int runCommand(const WallOptions& options);
int snapshotCommand(const WallOptions& options);
int patternCommand(const WallOptions& options);
int demoCommand(const WallOptions& options);

/// What `run` has mpiexec start on the nodes.
int probeCommand(const WallOptions& options);
