// The pointer's window on a display: above the window of the program that the pointer is in, and
// nothing of it is OpenGL's. While it is shown the X server keeps what that window shows, so that
// nothing has to be drawn again where the pointer was. One thread.
#pragma once

#include "overload/pointer/image.h"

#include <chrono>
#include <string>

/// What the display shows, from the wall's upper left, and the pointer there.
struct ShownPointer {
    xcb_connection_t* x = nullptr;
    PointerArea tile{};
    PointerShape shape{};
    std::vector<std::uint32_t> pixels; // of the shape
    bool isNewShape = false;

    xcb_window_t beneath = XCB_NONE; // the program's window that it stands above
    std::uint8_t depth = 0;          // of its colours,
    xcb_visualtype_t visual{};       // and how they are put together
    xcb_window_t own = XCB_NONE;     // the pointer's
    int width = 0, height = 0;
    bool isShown = false, keepsBeneath = false;
    std::chrono::steady_clock::time_point hiddenSince{};
};

/// Opens a display, `screen` of it; `tile` without a width is all of the screen. False, with the
/// reason, when it is not there or has not what is needed.
bool openPointerDisplay(ShownPointer& pointer, const char* display, int screen, std::string& why);

/// Shows the pointer at a place, above a window of the display, or nowhere where that is XCB_NONE.
/// Returns when that is to be seen. False when the window is not there yet.
bool showPointer(ShownPointer& pointer, const PointerPlace& place, xcb_window_t beneath);

/// Takes in what has happened to the window beneath: the pointer stays above it.
void followBeneath(ShownPointer& pointer);

/// Has the window beneath as it was, once the pointer has not been there for a while. Returns for
/// how many milliseconds that is not so yet; negative: for ever.
int letBeneathGo(ShownPointer& pointer);
