#include "capture/windows.h"

#include <map>

namespace {

xcb_connection_t* connection;
auto& known =
    *new std::map<xcb_window_t, WindowState>; // those of which nothing has been told since

bool isConnected(const char* displayName)
{
    if (!connection)
        connection = xcb_connect(displayName, nullptr);
    return !xcb_connection_has_error(connection);
}

// An event about a window makes what is known of it old.
void takeEvents()
{
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection)}) {
        switch (event->response_type & 0x7f) {
        case XCB_CONFIGURE_NOTIFY: {
            const auto* configure = reinterpret_cast<xcb_configure_notify_event_t*>(event.get());
            if (const auto found = known.find(configure->window); found != known.end()) {
                found->second.width = configure->width;
                found->second.height = configure->height;
            }
            break;
        }
        case XCB_MAP_NOTIFY:
            known.erase(reinterpret_cast<xcb_map_notify_event_t*>(event.get())->window);
            break;
        case XCB_UNMAP_NOTIFY:
            known.erase(reinterpret_cast<xcb_unmap_notify_event_t*>(event.get())->window);
            break;
        case XCB_DESTROY_NOTIFY:
            known.erase(reinterpret_cast<xcb_destroy_notify_event_t*>(event.get())->window);
            break;
        default:
            break;
        }
    }
}

WindowState ask(xcb_window_t window)
{
    constexpr std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection, window, XCB_CW_EVENT_MASK, &events);
    return askWindowState(connection, window);
}

} // namespace

const WindowState& windowState(const char* displayName, unsigned long window, bool anew)
{
    static const WindowState none;
    if (!isConnected(displayName))
        return none;
    takeEvents();
    const auto id = static_cast<xcb_window_t>(window);
    const auto found = known.find(id);
    if (found != known.end() && !anew)
        return found->second;
    const WindowState state = ask(id);
    if (!state.exists) { // or was closed before it was asked for: nobody would tell
        known.erase(id);
        return none;
    }
    return known[id] = state;
}

std::string windowTitle(const char* displayName, unsigned long window)
{
    if (!isConnected(displayName))
        return {};
    auto id = static_cast<xcb_window_t>(window);
    for (int depth = 0; id != XCB_NONE && depth < 16; ++depth) {
        const auto titleOf = xcb_get_property(connection, 0, id, XCB_ATOM_WM_NAME,
                                              XCB_GET_PROPERTY_TYPE_ANY, 0, 256);
        const auto treeOf = xcb_query_tree(connection, id);
        const Reply<xcb_get_property_reply_t> title{
            xcb_get_property_reply(connection, titleOf, nullptr)};
        const Reply<xcb_query_tree_reply_t> tree{xcb_query_tree_reply(connection, treeOf, nullptr)};
        if (title && xcb_get_property_value_length(title.get()) > 0)
            return {static_cast<const char*>(xcb_get_property_value(title.get())),
                    static_cast<std::size_t>(xcb_get_property_value_length(title.get()))};
        id = tree ? tree->parent : XCB_NONE;
    }
    return {};
}
