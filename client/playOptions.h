// The options of playing streams, for play itself and for the programs that start it.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

struct PlayOptions {
    int loop = 1;       // how often the frames play
    int ahead = 2;      // synchronised frames that may be on their way at once
    bool loose = false; // the first server alone holds the frames back
    std::string then;   // a shell command to run once the last frame is on the wall
    double hold = 0;    // seconds for which the last frame stays
};

/// Adds the options to a command line.
void addPlayOptions(CLI::App& app, PlayOptions& options);

/// Play's arguments for these options. What is to be done with the last frame is left out: with
/// `wait`, play waits for whoever started it to do that.
std::vector<std::string> playArguments(const PlayOptions& options, bool wait);
