#include "client/live.h"
#include "client/encoder.h"
#include "client/playReports.h"
#include "client/pointer.h"
#include "client/receivePrograms.h"
#include "wire/areaMessages.h"

#include <algorithm>
#include <chrono>
#include <climits>

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

void playLive(Connection& connection, const std::string& socketPath, Steering& steering,
              const PointerWall& wall)
{
    using Clock = std::chrono::steady_clock;
    CaptureSocket socket;
    Pointer pointer;
    listenForProgram(socket, socketPath);
    showPointer(connection, pointer, wall);
    tell(PlayEvent::ready);

    const Clock::time_point start = Clock::now();
    long frames = 0, bytes = 0;
    long told = connection.acknowledged;
    // While frames are on their way both sides are looked after: the socket wakes at once, MPI's
    // messages are polled for, after a while seldom.
    constexpr long shortest = 10, longest = 500; // microseconds
    long pause = shortest;
    receivePrograms(socket, {.take =
                                 [&](const _hdr& hdr, std::span<const unsigned char> buffer) {
                                     sendBuffer(connection, buffer.data(), hdr,
                                                INT_MAX); // it holds itself back
                                     frames += hdr.sync != 0;
                                     bytes += hdr.size;
                                 },
                             .begins = [] { tell(PlayEvent::drawing); },
                             .ends =
                                 [&](long ofProgram) {
                                     // What the wall still owes is not the next one's.
                                     waitForAcknowledgements(connection, 0);
                                     told = connection.acknowledged;
                                     tell(PlayEvent::drawn, ofProgram);
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
