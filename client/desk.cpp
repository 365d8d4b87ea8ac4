#include "client/desk.h"
#include "overload/xRequest.h"

#include <X11/Xmd.h>
#include <X11/extensions/xfixesproto.h>

namespace {

xcb_extension_t fixes{"XFIXES", 0};

// The top-level window that a window is in, with a frame around it or not; or its root.
xcb_window_t topOf(xcb_connection_t* x, xcb_window_t window, xcb_window_t& root)
{
    constexpr int deepest = 64;
    for (int depth = 0; depth < deepest; ++depth) {
        const Reply<xcb_query_tree_reply_t> tree{
            xcb_query_tree_reply(x, xcb_query_tree(x, window), nullptr)};
        if (!tree)
            return XCB_NONE;
        root = tree->root;
        if (tree->parent == root || tree->parent == XCB_NONE)
            return window;
        window = tree->parent;
    }
    return XCB_NONE;
}

// True when what is seen at the pointer's place is the program's; a window manager may have put a
// frame around it meanwhile.
bool isOurs(DeskPointer& desk, xcb_window_t seen)
{
    if (seen != desk.top && seen != desk.another) {
        desk.another = seen;
        desk.top = topOf(desk.x, desk.window, desk.root);
    }
    return seen == desk.top || desk.window == desk.root;
}

} // namespace

bool lookAtDesk(DeskPointer& desk, xcb_connection_t* x)
{
    if (desk.x)
        xcb_disconnect(desk.x);
    desk = {.x = x};
    if (!x || !isThere(x, fixes))
        return !x;
    xXFixesQueryVersionReq version{};
    version.majorVersion = 4;
    std::free(ask<xXFixesQueryVersionReply>(x, fixes, X_XFixesQueryVersion, version));
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(x));
    for (; screens.rem > 0; xcb_screen_next(&screens)) {
        xXFixesSelectCursorInputReq request{};
        request.window = screens.data->root;
        request.eventMask = XFixesDisplayCursorNotifyMask;
        tell(x, fixes, X_XFixesSelectCursorInput, request);
    }
    desk.cursorEvent = xcb_get_extension_data(x, &fixes)->first_event + XFixesCursorNotify;
    desk.isNewShape = true;
    return true;
}

void lookInWindow(DeskPointer& desk, xcb_window_t window)
{
    desk.window = window;
    desk.top = desk.another = desk.root = XCB_NONE;
    if (desk.x && window != XCB_NONE)
        desk.top = topOf(desk.x, window, desk.root);
}

PointerSeen seePointer(DeskPointer& desk)
{
    if (!desk.x || desk.window == XCB_NONE || desk.top == XCB_NONE)
        return {};
    const auto atRoot = xcb_query_pointer(desk.x, desk.root);
    const auto atWindow = xcb_query_pointer(desk.x, desk.window);
    const auto geometryOf = xcb_get_geometry(desk.x, desk.window);
    const Reply<xcb_query_pointer_reply_t> onDesk{xcb_query_pointer_reply(desk.x, atRoot, nullptr)};
    const Reply<xcb_query_pointer_reply_t> there{
        xcb_query_pointer_reply(desk.x, atWindow, nullptr)};
    const Reply<xcb_get_geometry_reply_t> geometry{
        xcb_get_geometry_reply(desk.x, geometryOf, nullptr)};
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(desk.x)})
        desk.isNewShape |= (event->response_type & 0x7f) == desk.cursorEvent;
    if (!onDesk || !there || !geometry)
        return {};
    const int x = there->win_x, y = there->win_y;
    const bool isInside = there->same_screen && x >= 0 && y >= 0 && x < geometry->width &&
                          y < geometry->height && isOurs(desk, onDesk->child);
    return {isInside, x, y, geometry->width, geometry->height};
}

bool takeShape(DeskPointer& desk, PointerShape& shape, std::vector<std::uint32_t>& pixels)
{
    if (!desk.isNewShape)
        return false;
    desk.isNewShape = false;
    const Reply<xXFixesGetCursorImageReply> image{ask<xXFixesGetCursorImageReply>(
        desk.x, fixes, X_XFixesGetCursorImage, xXFixesGetCursorImageReq{})};
    if (!image || image->width == 0 || image->height == 0 || image->width > mostOfPointer ||
        image->height > mostOfPointer)
        return false;
    shape = {image->width, image->height, image->xhot, image->yhot};
    const auto* const first = reinterpret_cast<const std::uint32_t*>(image.get() + 1);
    pixels.assign(first, first + std::size_t{image->width} * image->height);
    return true;
}
