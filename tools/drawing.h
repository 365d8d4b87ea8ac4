// What is known of programs that draw on a wall or into a file.
#pragma once

#include "tools/process.h"

/// How programs draw, one after the other.
struct Drawing {
    int begun = 0;                   // that have connected so far
    bool now = false;                // one is connected
    long frames = 0;                 // of the one before
    JobClock::time_point since = {}; // the last change
};

inline void beginsToDraw(Drawing& drawing)
{
    ++drawing.begun;
    drawing.now = true;
    drawing.since = JobClock::now();
}

inline void hasDrawn(Drawing& drawing, long frames)
{
    drawing.now = false;
    drawing.frames = frames;
    drawing.since = JobClock::now();
}
