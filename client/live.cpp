#include "client/live.h"
#include "client/captureSocket.h"
#include "client/playOptions.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;

struct Totals {
    long frames = 0, bytes = 0;
    Clock::time_point start = Clock::now();
};

void say(const char* line)
{
    std::puts(line);
    std::fflush(stdout);
}

} // namespace

void playLive(Connection& connection, const std::string& socketPath)
{
    CaptureSocket socket;
    listenForProgram(socket, socketPath);
    say(readyLine);

    Totals totals;
    _hdr hdr{};
    std::span<const unsigned char> bytes;
    long told = connection.acknowledged;
    // While frames are on their way both sides are looked after: the socket wakes at once, MPI's
    // messages are polled for, after a while seldom.
    constexpr long shortest = 10, longest = 500; // microseconds
    long pause = shortest;
    for (;;) {
        const bool due = connection.outstanding > 0;
        const Arrival arrival = waitForBuffer(socket, due ? pause : -1, -1, hdr, bytes);
        if (arrival == Arrival::end)
            break;
        if (arrival == Arrival::program)
            say(drawsLine);
        if (arrival == Arrival::buffer) {
            sendBuffer(connection, bytes.data(), hdr, INT_MAX); // the program holds itself back
            totals.frames += hdr.sync != 0;
            totals.bytes += hdr.size;
            pause = shortest;
        } else
            pause = std::min(pause + shortest, longest);
        while (pollAcknowledgements(connection))
            pause = shortest;
        answerFrames(socket, static_cast<int>(connection.acknowledged - told));
        told = connection.acknowledged;
    }
    finishServers(connection);
    const double seconds = std::chrono::duration<double>(Clock::now() - totals.start).count();
    std::printf("play: %ld bytes, %ld frames, %.1f seconds\n", totals.bytes, totals.frames,
                seconds);
    std::fflush(stdout);
}
