// What a capture library and the process that takes its stream in say to each other over their
// local socket. The library begins with a handshake, as a stream does, and hands over memory that
// both share, a CaptureRing: everything else goes through that. What it sends later are bytes that
// only wake whoever reads the ring. It is answered with 4-byte integers: for the handshake how many
// handles programs before it have used up, later the number of frames that have been shown
// meanwhile.
#pragma once

#include "wire/framing.h"

#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

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
