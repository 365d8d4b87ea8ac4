// The mouse pointer on the program's display, looked at over a connection of its own. One thread.
#pragma once

#include "client/windowState.h"
#include "wire/pointerMessages.h"

#include <vector>

/// A window of the program's, in which the pointer is looked for.
struct DeskPointer {
    xcb_connection_t* x = nullptr;
    xcb_window_t window = XCB_NONE;
    xcb_window_t root = XCB_NONE, top = XCB_NONE, another = XCB_NONE; // top-level windows
    int cursorEvent = 0;                                              // 0: shapes are not told
    bool isNewShape = false;
};

/// Begins to look, over a connection that is its own from here on; null: nowhere any more. False
/// when the display does not tell the pointer's shape.
bool lookAtDesk(DeskPointer& desk, xcb_connection_t* x);

/// In which window.
void lookInWindow(DeskPointer& desk, xcb_window_t window);

struct PointerSeen {
    bool isInside = false;     // in a part of the window that is not under others
    int x = 0, y = 0;          // there, from the upper left
    int width = 0, height = 0; // of the window
};
PointerSeen seePointer(DeskPointer& desk);

/// Takes in a shape that has not been taken in yet. False when there is none.
bool takeShape(DeskPointer& desk, PointerShape& shape, std::vector<std::uint32_t>& pixels);
