// The streams of captured programs, taken in one after the other: by play for the wall, by
// mosa-wall for a file.
#pragma once

#include "client/captureSocket.h"

#include <functional>

struct ReceiverWait {
    long microseconds = -1; // at most; negative: until something comes
    int otherFd = -1;       // can be read
};

/// What is to be done with them. All but `take` are asked after each arrival and each wait.
struct ProgramReceiver {
    std::function<void(const _hdr&, std::span<const unsigned char>)> take; // a command buffer
    std::function<void()> begins;                // a program has connected
    std::function<void(long frames)> ends;       // its stream has ended, and is taken in
    std::function<int()> shown;                  // frames since it was asked last
    std::function<ReceiverWait(bool busy)> wait; // `busy`: a buffer has just come
    std::function<bool()> isOver;                // nothing more is to be taken in
};

/// Takes streams in until that is over, or until endWaiting has been said and no program draws.
void receivePrograms(CaptureSocket& socket, const ProgramReceiver& receiver);
