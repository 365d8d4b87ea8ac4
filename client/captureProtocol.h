// What a capture library and the process that takes its stream in say to each other over their
// local socket. The library begins with a handshake, as a stream does, and hands over memory that
// both share; then comes a message for each command buffer. It is answered with 4-byte integers:
// for the handshake how many handles programs before it have used up, later the number of frames
// that have been shown meanwhile.
#pragma once

#include "wire/framing.h"

#include <atomic>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

/// Before each command buffer. Small ones follow on the socket.
struct CaptureMessage {
    _hdr hdr;                  // `sync` is also showsAnother
    std::int32_t ringAt;       // where the bytes are in the ring; negative: they follow
    std::uint32_t wallCurrent; // the window on the wall that is current behind this buffer
    std::uint64_t ringEnd;     // bytes of the ring that are used up to and with this buffer, in all
};

inline constexpr std::int32_t ringBytes = 4 << 20;
inline constexpr std::int32_t leastInRing = 16 << 10; // smaller buffers are copied as fast

/// The memory that both share.
struct CaptureRing {
    std::atomic<std::uint64_t> released; // as ringEnd, by the reader, when it needs them no more
    alignas(64) unsigned char bytes[ringBytes];
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

/// In the place of a message's `sync`: no command buffer follows but a CaptureShown.
inline constexpr std::int32_t showsAnother = -1;

/// Another window of the program's is shown from here on, or, where `window` is 0, none: the wall's
/// process watches it, since a program that rests does not tell when it is closed.
struct CaptureShown {
    std::uint32_t window, wallWindow;
    std::int32_t doubleBuffered;
    char display[256];    // where the window is
    char authority[1024]; // the file with the way into it, or nothing
};

/// In the place of a handshake: no other program is going to connect.
inline constexpr _handshake endOfWaitingSign{-1, -1, -1};

inline constexpr std::int32_t captureAccepted = 0; // or more, where handles are used up
inline constexpr std::int32_t captureTaken = -1;

/// The address of a local socket. False when its path is too long for one.
inline bool localAddress(const char* path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    const bool fits = std::strlen(path) < sizeof address.sun_path;
    if (fits)
        std::strcpy(address.sun_path, path);
    return fits;
}
