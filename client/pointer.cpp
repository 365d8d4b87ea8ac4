#include "client/pointer.h"
#include "client/desk.h"
#include "client/pointerServers.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// Often enough for a pointer that moves to be less than a frame of 60 Hz late; one that rests, or
// is elsewhere, begins with such a frame at most.
constexpr std::chrono::milliseconds lookEvery(8), lookSometimes(16);
constexpr std::chrono::seconds restsAfter(1);

struct Watching {
    PointerServers servers;
    DeskPointer desk;
    PointerWall wall;
    std::uint32_t wallWindow = 0;
    PointerSeen seen = {};
    Clock::time_point next = {}, moved = {};
};

void say(const char* why) { std::fprintf(stderr, "play: no pointer on the wall: %s\n", why); }

// False at the end.
bool takeOrders(Pointer& pointer, Watching& watching)
{
    eventfd_t count = 0;
    if (eventfd_read(pointer.wake, &count) != 0)
        return true;
    const std::scoped_lock guard(pointer.lock);
    if (pointer.ends)
        return false;
    const PointerWindowShown shown = pointer.shown;
    pointer.shown.x = nullptr;
    if (shown.x && !lookAtDesk(watching.desk, shown.x))
        say("the program's display has no XFIXES extension");
    if (watching.desk.cursorEvent != 0)
        lookInWindow(watching.desk, shown.window);
    watching.wallWindow = shown.wallWindow;
    return true;
}

void look(Watching& watching)
{
    PointerServers& servers = watching.servers;
    DeskPointer& desk = watching.desk;
    const PointerSeen seen = seePointer(desk);
    if (seen.isInside && (seen.x != watching.seen.x || seen.y != watching.seen.y))
        watching.moved = Clock::now();
    watching.seen = seen;
    servers.place.window = 0;
    if (!seen.isInside)
        return;
    servers.place = placeOnWall(watching.wall, seen.x, seen.y, seen.width, seen.height);
    servers.place.window = watching.wallWindow;
    PointerShape shape{};
    if (std::vector<std::uint32_t> pixels; takeShape(desk, shape, pixels))
        setShape(servers, shape, pixels);
}

void watchPointer(Pointer& pointer, Watching& watching)
{
    std::vector<pollfd> events;
    do {
        const bool looks = watching.desk.window != XCB_NONE;
        const bool isDue = looks && Clock::now() >= watching.next;
        if (isDue || !looks) {
            look(watching);
            const bool rests = Clock::now() - watching.moved > restsAfter;
            watching.next =
                std::max(watching.next + (rests ? lookSometimes : lookEvery), Clock::now());
        }
        tellServers(watching.servers);
        events.assign(1, {pointer.wake, POLLIN, 0});
        addDescriptors(watching.servers, events);
        const auto left = std::max(Clock::duration{}, watching.next - Clock::now());
        const timespec time{0, std::chrono::duration_cast<std::chrono::nanoseconds>(left).count()};
        ppoll(events.data(), events.size(), looks ? &time : nullptr, nullptr);
    } while (takeOrders(pointer, watching));
    closeServers(watching.servers);
    lookAtDesk(watching.desk, nullptr);
}

} // namespace

int startPointer(Pointer& pointer, const PointerWall& wall)
{
    const char* const host = std::getenv(pointerVariable);
    const char* const secret = std::getenv(pointerSecretVariable);
    if (wall.width <= 0 || wall.height <= 0 || !host)
        return 0;
    try {
        Watching watching;
        watching.wall = wall;
        watching.servers.secret = secret ? secret : "";
        watching.servers.listening = net::listenOn(host, 0);
        const int port = net::portOf(watching.servers.listening.front());
        pointer.wall = wall;
        pointer.wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        pointer.thread = std::thread([&pointer, watching = std::move(watching)]() mutable {
            watchPointer(pointer, watching);
        });
        return port;
    } catch (const std::system_error& error) {
        say(error.what());
        return 0;
    }
}

void followWindow(Pointer& pointer, const WindowWatch& watch)
{
    if (pointer.wake < 0)
        return;
    const bool isSeen = watch.isShown && !watch.gone && watch.connection;
    const std::uint32_t window = isSeen ? watch.windows.back().window : 0;
    const std::uint32_t wallWindow = isSeen ? watch.windows.back().wallWindow : 0;
    if (window == pointer.window && wallWindow == pointer.wallWindow &&
        (!isSeen || watch.display == pointer.display))
        return;
    const bool isAnotherDesk = isSeen && watch.display != pointer.display;
    xcb_connection_t* const x =
        isAnotherDesk ? connectToDisplay(watch.display, watch.authority) : nullptr;
    if (isAnotherDesk && !x)
        return;
    if (isAnotherDesk)
        pointer.display = watch.display;
    pointer.window = window;
    pointer.wallWindow = wallWindow;
    const std::scoped_lock guard(pointer.lock);
    if (x && pointer.shown.x)
        xcb_disconnect(pointer.shown.x); // it was not taken yet
    pointer.shown = {x ? x : pointer.shown.x, window, wallWindow};
    eventfd_write(pointer.wake, 1);
}

Pointer::~Pointer()
{
    if (wake < 0)
        return;
    {
        const std::scoped_lock guard(lock);
        ends = true;
    }
    eventfd_write(wake, 1);
    thread.join();
    close(wake);
    if (shown.x)
        xcb_disconnect(shown.x);
}
