// The locks of this library: this is the order in which they may be taken, none behind one that
// stands below it. docs/architecture.md has what each of them guards.
//
//   serialLock   (here)  around all the rest, where MOSA_CAPTURE_SERIAL asks for it
//   answersLock  (stream.cpp)  held while the wall is waited for, with none behind it
//   connectLock  (stream.cpp)  held while the wall answers the first time
//   streamLock   (here)  held for as long as nothing is waited for but the X server
//   buffersLock, listsLock, keptDrawsLock, keptImagesLock, drawablesLock, surfacesLock, textsLock,
//   toldLock  (here)
//                held for a look into what they guard, with nothing behind them
//
// A process that forks waits until no other thread holds any, and holds them itself meanwhile: in
// the child nobody would ever release them. Of answersLock and connectLock a child has no need.
#pragma once

#include <mutex>

/// One at a time in the whole library; recursive, for one entry may call another. Taken only where
/// captureOptions.serial is set.
extern std::recursive_mutex serialLock;

/// Guards the contexts and their groups, what is passed on, and what passOn.h, stream.h, windows.h
/// and wallSlots.h have, and which connections are watched. Taken by a StreamLock.
extern std::mutex streamLock;

/// For a look: into the names of buffer objects of all groups, not the contents, which are the
/// program's to guard; into the lists of all groups, not what they consist of; into the draws and
/// images that servers keep; into drawables of GLX; surfaces and displays of EGL; texts that were
/// handed out; reasons that were told.
extern std::mutex buffersLock, listsLock, keptDrawsLock, keptImagesLock, drawablesLock,
    surfacesLock, textsLock, toldLock;

/// Holds streamLock. What the wall does not take at once is waited for at the end, by the thread
/// that has sent it, without the lock: a wall that stands still holds up nobody else.
struct StreamLock {
    StreamLock() { streamLock.lock(); }
    ~StreamLock();
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;
};
