// How a task of the job waits for MPI, which has no wait that leaves the core to others.
#pragma once

#include <algorithm>
#include <sched.h>
#include <unistd.h>

/// Between two polls that found nothing; `polls` counts those of one wait, from 0. A short wait
/// keeps MPI going; a long one is for the wall to draw, and on one machine its rasteriser needs the
/// core.
inline void betweenPolls(int& polls)
{
    constexpr int shortWait = 10;                  // polls
    constexpr useconds_t step = 10, longest = 500; // microseconds
    if (++polls < shortWait)
        sched_yield();
    else
        usleep(std::min(longest, step * static_cast<useconds_t>(polls - shortWait)));
}
