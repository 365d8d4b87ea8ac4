// A running program on the wall, or into a recording: the capture library takes the place of its
// OpenGL, and its stream goes to play or to a file.
#pragma once

#include "tools/jobOutput.h"
#include "tools/wallLayout.h"

#include <optional>

/// How a program is run.
struct LiveOptions {
    std::vector<std::string> program; // and its arguments; none: streams are played
    std::string window = "largest";   // largest, all, or a title
    std::string showing;              // calls or pictures; empty: as the program needs
    std::string fit = "middle";       // middle, corner or stretch
    std::string enlarge = "auto";     // finished pictures: smooth, sharp or auto
    int patience = 10;                // seconds that it waits for the wall at most; 0: for ever
    int samples = 0;                  // of a pixel that the wall has at most
    double seconds = 0;               // after which it is ended; 0: it ends itself
    long frames = 0;                  // likewise
    std::optional<bool> pointer;      // the mouse pointer is shown; else where there is a desk
};

/// Runs a job whose client is `play --live`, and beside it the program. What the job's tasks write
/// is passed on or kept as by watchJob. Returns the exit status: the program's own, or negative the
/// signal that it has died of, unless it was ended as the options say and all else went well.
int runLive(Job job, const LiveOptions& options, Size wall, int ahead, const LastFrame& last,
            std::FILE* to, bool virtualDesk);

/// Runs the program and writes its stream to a file. Returns the exit status likewise.
int recordProgram(const LiveOptions& options, const std::string& file);
