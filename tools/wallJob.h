// A job on a wall, from the checks to its end.
#pragma once

#include "client/playOptions.h"
#include "tools/chosenWall.h"
#include "tools/liveProgram.h"
#include "tools/wallArea.h"
#include "tools/wallRun.h"

/// The displays around a job.
struct DisplayOptions {
    int blankAfter = -1;       // minutes after it; 0: never; -1: as they are set
    std::string before, after; // shell commands on this machine
};

struct JobOptions {
    PlayOptions play;
    DisplayOptions displays = {};
    AtOptions at = {};
    std::string name;    // for list, move, raise and stop; empty: what it shows
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

/// What a job shows, in a line.
std::string shownBy(const std::vector<std::string>& files, const LiveOptions& live);

/// What it says about itself, on the wall as the job has it. Its name is `name`, or what it shows.
About aboutJob(const ChosenWall& onto, const std::string& name, const std::string& shows, Size wall,
               const std::optional<JobArea>& area);

/// Plays stream files on a wall, or runs a program there where the live options have one. Returns
/// the exit status, or negative the signal that the program has died of. Throws std::runtime_error.
int playOnWall(const ChosenWall& chosen, const std::vector<std::string>& files,
               const JobOptions& options, LiveOptions live = {});
