#include "client/live.h"
#include "client/encoder.h"
#include "client/playReports.h"
#include "client/pointer.h"
#include "client/receivePrograms.h"
#include "wire/areaMessages.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>

void steerServers(Connection& connection, Steering& steering)
{
    if (steering.fd < 0)
        return;
    const auto said = takeSteering(steering);
    if (!said.empty())
        sendBuffer(connection, said.data(), {static_cast<std::int32_t>(said.size()), 0}, INT_MAX);
}

namespace {

// Whatever the program does meanwhile.
void showPointer(Connection& connection, Pointer& pointer, const PointerWall& wall)
{
    const int port = startPointer(pointer, wall);
    if (port == 0)
        return;
    CommandBuffer where;
    encode<Op::MWRaiseWindow>(where, Window{areaMessage(AreaWord::pointer, port)});
    sendBuffer(connection, where.data(), {static_cast<std::int32_t>(where.size()), 0}, INT_MAX);
}

} // namespace

namespace {

using Clock = std::chrono::steady_clock;

// What has been taken in of a program, for the line of figures at its end.
struct ProgramTotals {
    long frames = 0, bytes = 0, buffers = 0;
    Clock::time_point first{};
    Clock::duration sending{}; // to the servers
};

// On average, for each frame. The servers tell their part by themselves.
void printFigures(const ProgramTotals& taken, const Figures& figures)
{
    if (taken.frames == 0)
        return;
    const auto each = [&](double value) { return value / static_cast<double>(taken.frames); };
    const auto of = [&](Figure figure) {
        return each(static_cast<double>(figures[static_cast<std::size_t>(figure)]));
    };
    const auto milliseconds = [&](Clock::duration time) {
        return each(std::chrono::duration<double, std::milli>(time).count());
    };
    std::fprintf(stderr,
                 "MOSA: program: %ld frames, each: %.1f KB in %.1f buffers, of which %.1f KB were "
                 "copied; %.1f wake-ups; %.1f draws as calls of lists, %.1f KB not sent again\n",
                 taken.frames, each(1e-3 * static_cast<double>(taken.bytes)),
                 each(static_cast<double>(taken.buffers)), 1e-3 * of(Figure::copied),
                 of(Figure::wakeUps), of(Figure::listCalls), 1e-3 * of(Figure::kept));
    std::fprintf(stderr,
                 "MOSA: program: %.2f ms a frame, of which it waited %.2f for the wall and %.2f "
                 "for room; sending took %.2f\n",
                 milliseconds(Clock::now() - taken.first), 1e-3 * of(Figure::waited),
                 1e-3 * of(Figure::waitedForRoom), milliseconds(taken.sending));
    std::fflush(stderr);
}

} // namespace

void playLive(Connection& connection, const std::string& socketPath, Steering& steering,
              const PointerWall& wall)
{
    CaptureSocket socket;
    Pointer pointer;
    listenForProgram(socket, socketPath);
    showPointer(connection, pointer, wall);
    tell(PlayEvent::ready);

    const Clock::time_point start = Clock::now();
    const bool tellsFigures = std::getenv("MOSA_STATS");
    long frames = 0, bytes = 0;
    ProgramTotals ofProgram;
    long told = connection.acknowledged;
    // While frames are on their way both sides are looked after: the socket wakes at once, MPI's
    // messages are polled for, after a while seldom.
    constexpr long shortest = 10, longest = 500; // microseconds
    long pause = shortest;
    receivePrograms(socket, {.take =
                                 [&](const _hdr& hdr, std::span<const unsigned char> buffer) {
                                     const Clock::time_point begun = Clock::now();
                                     if (ofProgram.buffers++ == 0)
                                         ofProgram.first = begun;
                                     sendBuffer(connection, buffer.data(), hdr,
                                                INT_MAX); // it holds itself back
                                     ofProgram.sending += Clock::now() - begun;
                                     ofProgram.frames += hdr.sync != 0;
                                     ofProgram.bytes += hdr.size;
                                     frames += hdr.sync != 0;
                                     bytes += hdr.size;
                                 },
                             .begins = [] { tell(PlayEvent::drawing); },
                             .ends =
                                 [&](long shown) {
                                     // What the wall still owes is not the next one's.
                                     waitForAcknowledgements(connection, 0);
                                     told = connection.acknowledged;
                                     tell(PlayEvent::drawn, shown);
                                     if (tellsFigures)
                                         printFigures(ofProgram, socket.figures);
                                     ofProgram = {};
                                 },
                             .shown =
                                 [&] {
                                     while (pollAcknowledgements(connection))
                                         pause = shortest;
                                     const long more = connection.acknowledged - told;
                                     told = connection.acknowledged;
                                     return static_cast<int>(more);
                                 },
                             .wait =
                                 [&](bool busy) {
                                     steerServers(connection, steering);
                                     followWindow(pointer, socket.watch);
                                     pause = busy ? shortest : std::min(pause + shortest, longest);
                                     return ReceiverWait{
                                         .microseconds = connection.outstanding > 0 ? pause : -1,
                                         .otherFd = steering.fd};
                                 },
                             .isOver = [] { return false; }});
    finishServers(connection);
    tell({.event = PlayEvent::played,
          .isLive = 1,
          .frames = frames,
          .buffers = 0,
          .bytes = bytes,
          .seconds = std::chrono::duration<double>(Clock::now() - start).count(),
          .perSecond = 0});
}
