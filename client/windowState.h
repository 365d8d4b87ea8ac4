// What an X server knows of a window, asked over a connection of xcb's.
#pragma once

#include <cstdlib>
#include <memory>

#include <xcb/xcb.h>

struct FreedReply {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Reply = std::unique_ptr<T, FreedReply>;

/// A window's state; its size in pixels.
struct WindowState {
    bool exists = false, viewable = false;
    int width = 0, height = 0;
};

/// Asks for a window's state. One that is not there does not exist. Waits for the answer.
inline WindowState askWindowState(xcb_connection_t* connection, xcb_window_t window)
{
    const auto attributesOf = xcb_get_window_attributes(connection, window);
    const auto geometryOf = xcb_get_geometry(connection, window);
    const Reply<xcb_get_window_attributes_reply_t> attributes{
        xcb_get_window_attributes_reply(connection, attributesOf, nullptr)};
    const Reply<xcb_get_geometry_reply_t> geometry{
        xcb_get_geometry_reply(connection, geometryOf, nullptr)};
    if (!attributes || !geometry)
        return {};
    return {true, attributes->map_state == XCB_MAP_STATE_VIEWABLE, geometry->width,
            geometry->height};
}
