#include "shuffle/stats.h"
#include "coding/display/xErrors.h"
#include "coding/serverProcess.h"
#include "shuffle/buf.h"

#include <atomic>
#include <cstdio>

namespace {

using Clock = StatsClock;

// Written by the decode thread alone, once per buffer; a reader may see one ahead of another.
std::atomic<long> frames, operations, bytes;
std::atomic<Clock::duration> decoding;

struct Counts {
    Clock::time_point time;
    long frames, operations, bytes, suppressed;
    Clock::duration decoding;
};

int interval; // seconds
Counts start; // all zero but the time
Counts last;  // at the latest line; tick thread

Counts countsNow() { return {Clock::now(), frames, operations, bytes, xErrorsNotShown, decoding}; }

void printCounts(const char* period, const Counts& from, const Counts& to)
{
    const double seconds = std::chrono::duration<double>(to.time - from.time).count();
    const long shown = to.frames - from.frames;
    std::fprintf(stderr,
                 "MOSA: server %d, %s %.1f s: %ld frames (%.1f per second), %ld operations, "
                 "%ld bytes, %ld messages suppressed, decoding %.0f%% of the time, "
                 "%d buffers waiting\n",
                 serverID, period, seconds, shown, static_cast<double>(shown) / seconds,
                 to.operations - from.operations, to.bytes - from.bytes,
                 to.suppressed - from.suppressed,
                 100 * std::chrono::duration<double>(to.decoding - from.decoding).count() / seconds,
                 buffersWaiting());
}

} // namespace

void startStats(int seconds)
{
    interval = seconds;
    start.time = last.time = Clock::now();
}

void countBuffer(const _buf& b, int count, StatsClock::duration time)
{
    constexpr auto relaxed = std::memory_order_relaxed;
    frames.fetch_add(b.sync != 0, relaxed);
    operations.fetch_add(count, relaxed);
    bytes.fetch_add(b.size, relaxed);
    decoding.store(decoding.load(relaxed) + time, relaxed);
}

void statsTick()
{
    if (interval <= 0 || Clock::now() - last.time < std::chrono::seconds(interval))
        return;
    const Counts now = countsNow();
    printCounts("last", last, now);
    last = now;
}

void printStatsSummary()
{
    if (interval > 0)
        printCounts("in all", start, countsNow());
}
