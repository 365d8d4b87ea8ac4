#include "capture/windows.h"

#include "capture/descriptors.h"

#include <X11/Xauth.h>

#include <cstddef>
#include <cstring>
#include <map>

#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

xcb_connection_t* connection;
OwnDescriptor descriptor; // of the connection
auto& known =
    *new std::map<xcb_window_t, WindowState>; // those of which nothing has been told since

int connectSocket(std::string path, bool isAbstract)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.insert(0, isAbstract ? 1 : 0, '\0');
    if (path.size() >= sizeof address.sun_path)
        return -1;
    path.copy(address.sun_path, path.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0)
        return fd;
    close(fd);
    return -1;
}

// A connection to a display of this machine, by a descriptor of this library's own. Null where that
// cannot be.
xcb_connection_t* connectHere(const char* displayName)
{
    char* host = nullptr;
    int number = 0;
    if (!xcb_parse_display(displayName, &host, &number, nullptr))
        return nullptr;
    const std::string machine = host;
    std::free(host);
    if (!machine.empty() && machine != "unix")
        return nullptr;
    const std::string digits = std::to_string(number);
    const std::string path = "/tmp/.X11-unix/X" + digits;
    int fd = connectSocket(path, true);
    if (fd < 0)
        fd = connectSocket(path, false);
    if (fd < 0)
        return nullptr;
    descriptor = ownDescriptor(fd);
    char own[256] = {};
    gethostname(own, sizeof own - 1);
    char kind[] = "MIT-MAGIC-COOKIE-1";
    const auto length = [](const auto& text) {
        return static_cast<unsigned short>(std::strlen(text));
    };
    Xauth* const right = XauGetAuthByAddr(FamilyLocal, length(own), own, length(digits.c_str()),
                                          digits.c_str(), length(kind), kind);
    xcb_auth_info_t info{};
    if (right)
        info = {right->name_length, right->name, right->data_length, right->data};
    xcb_connection_t* const made = xcb_connect_to_fd(descriptor.fd, right ? &info : nullptr);
    if (right)
        XauDisposeAuth(right);
    return made;
}

// The child must not talk on its parent's.
void closeInChild()
{
    if (isStillOwn(descriptor))
        close(descriptor.fd);
}

// One that the program has closed is left as it is: its number may be another's.
bool isConnected(const char* displayName)
{
    if (connection && descriptor.fd >= 0 && !isStillOwn(descriptor)) {
        connection = nullptr;
        known.clear();
    }
    if (!connection) {
        [[maybe_unused]] static const int watched = pthread_atfork(nullptr, nullptr, closeInChild);
        connection = connectHere(displayName);
        if (!connection)
            connection = xcb_connect(displayName, nullptr);
        const int fd = xcb_get_file_descriptor(connection);
        if (fd != descriptor.fd)
            descriptor = fd >= 0 ? identified(fd) : OwnDescriptor{};
    }
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
