// A job on a wall, from the checks to its end.
#pragma once

#include "client/playOptions.h"
#include "tools/chosenWall.h"
#include "tools/liveProgram.h"
#include "tools/wallRun.h"

struct JobOptions {
    PlayOptions play;
    std::string picture; // of the wall with the last frame; empty: none
    bool plain = false;  // without the project's overload libraries
    bool label = false;  // each line of output begins with its task's number
    bool stats = false;  // figures of every server at the end
    bool dryRun = false; // print the job and do nothing
    bool force = false;  // go on whatever the checks find
};

/// Asks the nodes, the way the job will reach them, and says what they are not ready for; counts
/// the faults.
WallAnswers askNodes(const ChosenWall& chosen, const Job& job, std::FILE* to, int& faults);

/// Plays stream files on a wall, or runs a program there where the live options have one. Returns
/// the exit status, or negative the signal that the program has died of. Throws std::runtime_error.
int playOnWall(const ChosenWall& chosen, const std::vector<std::string>& files,
               const JobOptions& options, LiveOptions live = {});
