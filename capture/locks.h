// The locks of this library: this is the order in which they may be taken, none behind one that
// stands below it. docs/architecture.md has what each of them guards.
//
//   serialLock   (here)  around all the rest, where MOSA_CAPTURE_SERIAL asks for it
//   answersLock  (stream.cpp)  held while the wall is waited for, with none behind it
//   connectLock  (stream.cpp)  held while the wall answers the first time
//   streamLock   (here)  held for as long as nothing is waited for but the X server
//   buffersLock of a share group, listsLock (lists.cpp),
//   drawablesLock (glx.cpp), surfacesLock (egl.cpp), textsLock (strings.cpp),
//   toldLock (reasons.cpp)  held for a look into what they guard, with nothing behind them
#pragma once

#include <mutex>

/// One at a time in the whole library; recursive, for one entry may call another. Taken only where
/// captureOptions.serial is set.
extern std::recursive_mutex serialLock;

/// Guards the contexts and their groups, what is passed on, and what passOn.h, stream.h, windows.h
/// and wallSlots.h have, and which connections are watched. Taken by a StreamLock.
extern std::mutex streamLock;

/// Holds streamLock. What the wall does not take at once is waited for at the end, by the thread
/// that has sent it, without the lock: a wall that stands still holds up nobody else.
struct StreamLock {
    StreamLock() { streamLock.lock(); }
    ~StreamLock();
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;
};
