#include "client/windowWatch.h"
#include "client/programWindow.h"
#include "client/windowState.h"

#include <algorithm>
#include <cstdlib>

namespace {

void disconnect(WindowWatch& watch)
{
    if (watch.connection)
        xcb_disconnect(watch.connection);
    watch.connection = nullptr;
}

void connectTo(WindowWatch& watch, const CaptureShown& shown)
{
    if (watch.connection && watch.display == shown.display)
        return;
    disconnect(watch);
    watch.display = shown.display;
    watch.authority = shown.authority;
    watch.connection = connectToDisplay(watch.display, watch.authority);
}

// Its size in pixels if it can be seen, 0 if not.
std::int64_t seenPixels(xcb_connection_t* connection, xcb_window_t window)
{
    const WindowState state = askWindowState(connection, window);
    return state.viewable ? std::int64_t{state.width} * state.height : 0;
}

// Hears of the window, and of those around it: it goes with them.
void listen(xcb_connection_t* connection, xcb_window_t window)
{
    constexpr std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    constexpr int deepest = 16;
    for (int depth = 0; window != XCB_NONE && depth < deepest; ++depth) {
        xcb_change_window_attributes(connection, window, XCB_CW_EVENT_MASK, &events);
        const Reply<xcb_query_tree_reply_t> tree{
            xcb_query_tree_reply(connection, xcb_query_tree(connection, window), nullptr)};
        window = tree && tree->parent != tree->root ? tree->parent : XCB_NONE;
    }
}

void setGone(WindowWatch& watch, bool gone)
{
    if (gone && !watch.gone)
        watch.goneSince = std::chrono::steady_clock::now();
    watch.gone = gone;
}

} // namespace

WindowWatch::~WindowWatch() { disconnect(*this); }

xcb_connection_t* connectToDisplay(const std::string& display, const std::string& authority)
{
    const char* const before = std::getenv("XAUTHORITY");
    const std::string own = before ? before : "";
    if (!authority.empty())
        setenv("XAUTHORITY", authority.c_str(), 1);
    xcb_connection_t* const x = xcb_connect(display.c_str(), nullptr);
    if (before)
        setenv("XAUTHORITY", own.c_str(), 1);
    else
        unsetenv("XAUTHORITY");
    if (!xcb_connection_has_error(x))
        return x;
    xcb_disconnect(x);
    return nullptr;
}

void showsWindow(WindowWatch& watch, const CaptureShown& shown)
{
    watch.programSaysSo = shown.window == 0;
    if (watch.programSaysSo)
        return setGone(watch, watch.isShown);
    connectTo(watch, shown);
    std::erase_if(watch.windows, [&shown](const WindowWatch::Window& one) {
        return one.window == shown.window || one.wallWindow == shown.wallWindow;
    });
    watch.windows.push_back({shown.window, shown.wallWindow, shown.doubleBuffered != 0});
    watch.isShown = true;
    watch.gone = false;
    if (watch.connection) {
        listen(watch.connection, shown.window);
        setGone(watch, seenPixels(watch.connection, shown.window) == 0);
        lookAtWindow(watch);
    }
}

int watchFd(const WindowWatch& watch)
{
    return watch.connection ? xcb_get_file_descriptor(watch.connection) : -1;
}

namespace {

// Takes in what has been heard: whether it is to be asked what can be seen.
bool takeEvents(WindowWatch& watch)
{
    bool changed = false;
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(watch.connection)})
        switch (event->response_type & 0x7f) {
        case XCB_REPARENT_NOTIFY:
            listen(watch.connection,
                   reinterpret_cast<xcb_reparent_notify_event_t*>(event.get())->window);
            [[fallthrough]];
        case XCB_UNMAP_NOTIFY:
        case XCB_MAP_NOTIFY:
        case XCB_DESTROY_NOTIFY:
            changed = true;
            break;
        default:
            break;
        }
    return changed && watch.isShown;
}

} // namespace

// An event that comes along with an answer leaves nothing to be read: it is looked for behind each.
void lookAtWindow(WindowWatch& watch)
{
    if (!watch.connection)
        return;
    while (takeEvents(watch))
        setGone(watch, seenPixels(watch.connection, watch.windows.back().window) == 0);
    if (xcb_connection_has_error(watch.connection))
        disconnect(watch);
}

long stillShown(const WindowWatch& watch)
{
    using std::chrono::microseconds;
    constexpr std::chrono::milliseconds grace(300);
    const auto left = std::chrono::duration_cast<microseconds>(watch.goneSince + grace -
                                                               std::chrono::steady_clock::now());
    return std::max(0L, static_cast<long>(left.count()));
}

CommandBuffer takeWindowAway(WindowWatch& watch, std::uint32_t wallCurrent)
{
    CommandBuffer out;
    watch.gone = false;
    if (!watch.isShown)
        return out;
    const WindowWatch::Window before = watch.windows.back();
    watch.isShown = false;
    std::int64_t most = 0;
    auto next = watch.windows.end();
    for (auto one = watch.windows.begin(); watch.connection && one != watch.windows.end(); ++one)
        if (const std::int64_t pixels = seenPixels(watch.connection, one->window); pixels > most) {
            most = pixels;
            next = one;
        }
    if (next != watch.windows.end()) {
        std::rotate(next, next + 1, watch.windows.end());
        watch.isShown = true;
        const WindowWatch::Window& now = watch.windows.back();
        encode<Op::MWRaiseWindow>(out, Window{now.wallWindow});
        encode<Op::glXSwapBuffers>(out, asParameter<Display*>(capturedDisplay),
                                   GLXDrawable{now.wallWindow});
        lookAtWindow(watch);
    } else if (wallCurrent == before.wallWindow)
        encodeBlack(out, capturedDisplay, AppDrawable(before.wallWindow), before.doubleBuffered);
    return out;
}
