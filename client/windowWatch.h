// Watches the program's window that the wall shows, over a connection of its own to the program's X
// display: a program that rests makes no call when its window is closed or hidden. Any one thread.
#pragma once

#include "client/captureProtocol.h"
#include "client/encoder.h"

#include <chrono>
#include <string>
#include <vector>

struct xcb_connection_t;

/// The windows of the program that the wall has shown.
struct WindowWatch {
    struct Window {
        std::uint32_t window, wallWindow;
        bool doubleBuffered;
    };
    xcb_connection_t* connection = nullptr;
    std::string display;         // that it leads to,
    std::string authority;       // and the file with the way into it, or nothing
    std::vector<Window> windows; // the shown one last
    bool isShown = false;        // that one
    bool programSaysSo = false;  // that it is gone: it draws nothing of it
    bool gone = false;           // and it is to be taken from the wall, a while after this:
    std::chrono::steady_clock::time_point goneSince{};
    WindowWatch() = default;
    WindowWatch(const WindowWatch&) = delete;
    WindowWatch& operator=(const WindowWatch&) = delete;
    ~WindowWatch();
};

/// A connection to a display; null when there is none. `authority` as in the watch.
xcb_connection_t* connectToDisplay(const std::string& display, const std::string& authority);

/// Another is shown, or none. A display that does not answer is not watched.
void showsWindow(WindowWatch& watch, const CaptureShown& shown);

/// The file that can be read when something has happened to a window; negative: none.
int watchFd(const WindowWatch& watch);

/// Looks what has happened.
void lookAtWindow(WindowWatch& watch);

/// For how many microseconds more a window that is gone stays on the wall: a program that closes it
/// may be about to end, with its last picture, or to open another.
long stillShown(const WindowWatch& watch);

/// What the wall is to do since the window is gone: it shows the largest of those that can still be
/// seen, with the picture that it had last, or is black. Empty where neither can be said without
/// the window that was shown being current on the wall. `gone` is settled.
CommandBuffer takeWindowAway(WindowWatch& watch, std::uint32_t wallCurrent);
