// The mouse pointer on the wall: a thread looks where it is in the window that the wall shows, and
// tells the servers, past the stream. The program has no part in it.
#pragma once

#include "client/pointerWall.h"
#include "client/windowWatch.h"

#include <mutex>
#include <string>
#include <thread>

/// The window that the pointer is looked for in.
struct PointerWindowShown {
    xcb_connection_t* x = nullptr; // new, to its display; null: as before
    std::uint32_t window = 0;      // 0: none
    std::uint32_t wallWindow = 0;  // its handle on the wall
};

struct Pointer {
    PointerWall wall;
    std::thread thread;
    int wake = -1; // an eventfd
    // For the thread, under the lock.
    std::mutex lock;
    PointerWindowShown shown;
    bool ends = false;
    // As the main thread has said last.
    std::string display;
    std::uint32_t window = 0, wallWindow = 0;
    Pointer() = default;
    Pointer(const Pointer&) = delete;
    Pointer& operator=(const Pointer&) = delete;
    ~Pointer(); // ends the thread
};

/// Starts the thread, and listens for servers as the environment says. Returns the port; 0, after a
/// line, when there is none.
int startPointer(Pointer& pointer, const PointerWall& wall);

/// The window that is shown may be another. Main thread.
void followWindow(Pointer& pointer, const WindowWatch& watch);
