// MOSA_STATS: on standard error, how the stream is getting on.
#pragma once

#include "shuffle/mw.h"

#include <chrono>

using StatsClock = std::chrono::steady_clock;

/// Starts the clock: a line follows every `seconds` seconds. Not positive: no line, no summary.
/// Main thread, before the others exist.
void startStats(int seconds);

/// Counts a buffer that has been decoded, in so much time. Decode thread.
void countBuffer(const _buf& b, int operations, StatsClock::duration time);

/// Prints the line when it is due. Tick thread.
void statsTick();

/// Prints the totals. Main thread, once the others have ended.
void printStatsSummary();
