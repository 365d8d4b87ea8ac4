// How a task of the job waits for MPI, which has no wait that leaves the core to others.
#pragma once

#include <algorithm>
#include <chrono>
#include <sched.h>
#include <thread>

using PollClock = std::chrono::steady_clock;

/// Between two polls that found nothing, of a wait that began at `start`. A short wait keeps MPI going;
/// a long one is for the wall to draw, and on one machine its rasteriser needs the core.
inline void betweenPolls(PollClock::time_point start)
{
    constexpr std::chrono::microseconds shortWait{100}, longestPause{500};
    constexpr int share = 8; // of what has been waited, for the next pause
    const auto waited = PollClock::now() - start;
    if (waited < shortWait)
        sched_yield();
    else
        std::this_thread::sleep_for(std::min<PollClock::duration>(longestPause, waited / share));
}
