// The end of a captured program's stream: a local socket on which its capture library connects,
// sends a stream as in a file, the handshake first, and hears of every frame that was shown.
#pragma once

#include "client/captureProtocol.h"
#include "client/captureRing.h"
#include "client/windowWatch.h"

#include <span>
#include <string>
#include <vector>

/// One program at a time: others are told that the wall is taken, and draw for themselves. One that
/// comes when the one before is gone waits until that one's stream is taken in. A connection is
/// none's until its handshake has come.
struct CaptureSocket {
    std::string path; // where it listens
    int listening = -1;
    int program = -1;
    std::vector<int> newcomers; // whose handshake has not come yet
    _handshake handshake{};
    RingReader ring{};
    Figures figures{};   // of the program that has ended last
    bool hungUp = false; // the program's side is closed; what is in the ring is still to be taken
    std::int32_t firstHandle = 0;     // that the next program may use, less 1
    bool endsAfter = false;           // endWaiting has been said
    std::vector<unsigned char> bytes; // of a buffer that comes in parts
    bool bytesTaken = false;          // they were handed out as a whole
    WindowWatch watch;
    CommandBuffer own;             // a frame that is not the program's
    int ownFrames = 0;             // of these, that have not been shown yet
    std::uint32_t wallCurrent = 0; // behind the last buffer
    bool betweenFrames = false;    // as the last buffer left it
    CaptureSocket() = default;
    CaptureSocket(const CaptureSocket&) = delete;
    CaptureSocket& operator=(const CaptureSocket&) = delete;
    ~CaptureSocket(); // closes it, and removes its file
};

/// Listens at a path, in the place of an old socket, but of nothing else. Throws
/// std::runtime_error.
void listenForProgram(CaptureSocket& socket, const std::string& path);

/// What waitForBuffer has found.
enum class Arrival {
    nothing, // within the time, or another file is ready
    program, // one has connected
    buffer,
    programEnd, // the program's stream has ended; what was received is whole
    end,        // endWaiting has been said, and there is no program
};

/// Waits for so many microseconds (negative: for ever), or until `otherFd` can be read. A buffer's
/// bytes stay until the next call. Where the window that is shown is gone, a buffer that says
/// so comes between two frames of the program's.
Arrival waitForBuffer(CaptureSocket& socket, long microseconds, int otherFd, _hdr& hdr,
                      std::span<const unsigned char>& bytes);

/// Tells the program that so many frames more have been shown.
void answerFrames(CaptureSocket& socket, int frames);

/// Ends whoever listens at a path, once it has no program: says so in the place of a handshake.
void endWaiting(const std::string& path);
