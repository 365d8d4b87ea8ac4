// An overload library: shows the desk's mouse pointer on the display of its server.
//
// MOSA_POINTER is the host at which the client tells where the pointer is, MOSA_POINTER_SECRET the
// job's secret for it; the port comes in the stream (pointerMessages.h). A thread has the
// connection and one of its own to the X server: it waits for no frame, and the decode thread not
// for it. All that this one does is to say which local windows there are.
#include "coding/serverWindows.h"
#include "overload/library.h"
#include "overload/ownEntry.h"
#include "overload/pointer/window.h"
#include "overload/socket.h"
#include "shuffle/threads.h"
#include "wire/areaMessages.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

// The stream's windows, told by the decode thread. Nothing here is destroyed: the thread may still
// run when the process ends.
struct KnownWindows {
    std::mutex lock;
    std::array<std::pair<std::uint32_t, xcb_window_t>, tableSlots> all; // by their handles
    std::size_t count = 0;
    int changed = -1; // an eventfd
};
KnownWindows windows;

xcb_window_t localWindow(std::uint32_t handle)
{
    const std::scoped_lock guard(windows.lock);
    const auto* const end = windows.all.begin() + windows.count;
    const auto* const at = std::find_if(windows.all.cbegin(), end,
                                        [=](const auto& known) { return known.first == handle; });
    return at == end ? xcb_window_t{XCB_NONE} : at->second;
}

void noteWindow()
{
    if (!currDrawableInfo || !currDrawableInfo->localDrawable)
        return;
    const auto handle = static_cast<std::uint32_t>(currDrawableInfo->appDrawID);
    if (localWindow(handle) != XCB_NONE || windows.count == windows.all.size())
        return;
    const std::scoped_lock guard(windows.lock);
    windows.all[windows.count++] = {handle,
                                    static_cast<xcb_window_t>(currDrawableInfo->localDrawable)};
    eventfd_write(windows.changed, 1);
}

// ---- The thread --------------------------------------------------------------------------------

struct Client {
    std::string name, secret; // HOST:PORT
    int fd = -1;
    std::vector<char> bytes; // that have come and were not taken in yet
};

void say(const std::string& why)
{
    std::fprintf(stderr, "Attention MOSA: pointer: server %d shows none: %s\n", serverID,
                 why.c_str());
}

bool reachClient(Client& client, const PointerArea& tile)
{
    constexpr int longest = 5000; // milliseconds
    client.fd = net::connectWithin(client.name.c_str(), longest);
    if (client.fd < 0)
        return false;
    net::sendAtOnce(client.fd);
    PointerHello hello{
        .mark = pointerMark, .x = tile.x, .y = tile.y, .w = tile.w, .h = tile.h, .secret = {}};
    client.secret.copy(hello.secret, sizeof hello.secret);
    return net::sendRecord(client.fd, hello);
}

// False at the end.
bool receive(Client& client)
{
    char chunk[65536];
    ssize_t got = 0;
    while ((got = recv(client.fd, chunk, sizeof chunk, 0)) > 0)
        client.bytes.insert(client.bytes.end(), chunk, chunk + got);
    return got < 0 && (errno == EAGAIN || errno == EINTR);
}

template <class Record>
Record recordAt(const std::vector<char>& bytes, std::size_t at)
{
    Record record{};
    std::memcpy(&record, bytes.data() + at, sizeof record);
    return record;
}

// Takes in a shape that has come whole. False for what no client says.
bool takeShape(ShownPointer& pointer, const std::vector<char>& bytes, std::size_t at,
               std::size_t size)
{
    if (size < sizeof(PointerShape))
        return false;
    const auto shape = recordAt<PointerShape>(bytes, at);
    const auto isExtent = [](int pixels) { return pixels > 0 && pixels <= mostOfPointer; };
    if (!isExtent(shape.width) || !isExtent(shape.height) ||
        size - sizeof shape != 4 * static_cast<std::size_t>(shape.width * shape.height))
        return false;
    pointer.shape = shape;
    pointer.pixels.resize((size - sizeof shape) / 4);
    std::memcpy(pointer.pixels.data(), bytes.data() + at + sizeof shape, size - sizeof shape);
    pointer.isNewShape = true;
    return true;
}

// Takes in what has come whole; of places that have come together the last one counts. False for
// what no client says.
bool takeIn(Client& client, ShownPointer& pointer, PointerPlace& place)
{
    constexpr std::size_t most = sizeof(PointerShape) + 4 * mostOfPointer * mostOfPointer;
    std::size_t at = 0;
    const auto left = [&] { return client.bytes.size() - at; };
    while (left() >= sizeof(PointerHeader)) {
        const auto header = recordAt<PointerHeader>(client.bytes, at);
        if (header.bytes > most)
            return false;
        if (left() - sizeof header < header.bytes)
            break;
        const std::size_t body = at + sizeof header;
        if (header.word == PointerWord::place && header.bytes == sizeof place)
            place = recordAt<PointerPlace>(client.bytes, body);
        else if (header.word != PointerWord::shape ||
                 !takeShape(pointer, client.bytes, body, header.bytes))
            return false;
        at = body + header.bytes;
    }
    client.bytes.erase(client.bytes.begin(),
                       client.bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return true;
}

void showPlaces(Client& client, ShownPointer& pointer)
{
    PointerPlace place{};
    std::uint32_t answered = 0;
    constexpr int again = 10; // milliseconds: a window that is known may not be there yet
    bool isWaiting = false;
    while (!done) {
        pollfd events[] = {{client.fd, POLLIN, 0},
                           {windows.changed, POLLIN, 0},
                           {xcb_get_file_descriptor(pointer.x), POLLIN, 0}};
        poll(events, std::size(events), isWaiting ? again : letBeneathGo(pointer));
        if (events[0].revents && !receive(client))
            break;
        if (events[1].revents) {
            eventfd_t count = 0;
            eventfd_read(windows.changed, &count);
        }
        followBeneath(pointer);
        if (xcb_connection_has_error(pointer.x) || !takeIn(client, pointer, place))
            break;
        if (!isWaiting && !events[0].revents && !events[1].revents)
            continue;
        isWaiting =
            !showPointer(pointer, place, place.window ? localWindow(place.window) : XCB_NONE);
        if (place.number != answered)
            net::sendRecord(client.fd, PointerAnswer{answered = place.number});
    }
    xcb_disconnect(pointer.x); // and the pointer is gone
}

void watchPointer(Client client)
{
    WallEntry entry;
    if (!readOwnEntry(entry))
        return; // the server will say so
    const PixelArea tile = areaOf(entry);
    ShownPointer pointer;
    pointer.tile = {tile.x, entry.vHeight - tile.y - tile.h, tile.w, tile.h};
    std::string why;
    if (!openPointerDisplay(pointer, entry.dpyName.c_str(), entry.scrn, why))
        return say("the display " + entry.dpyName + ": " + why);
    if (reachClient(client, pointer.tile))
        return showPlaces(client, pointer);
    xcb_disconnect(pointer.x);
    say(client.name + " cannot be reached");
}

// ---- In place of the operations ----------------------------------------------------------------

int makeCurrent(Display* dpy, GLXDrawable drawable, GLXContext ctx)
{
    const int result = below<Op::glXMakeCurrent>(dpy, drawable, ctx);
    noteWindow();
    return result;
}

int makeContextCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext ctx)
{
    const int result = below<Op::glXMakeContextCurrent>(dpy, draw, read, ctx);
    noteWindow();
    return result;
}

void raiseWindow(Window window)
{
    if (!isAreaMessage(window) || wordOf(window) != AreaWord::pointer)
        return below<Op::MWRaiseWindow>(window);
    const char* const host = std::getenv(pointerVariable);
    const char* const secret = std::getenv(pointerSecretVariable);
    Client client;
    client.name = host + (":" + std::to_string(valueOf(window)));
    client.secret = secret ? secret : "";
    std::thread(watchPointer, client).detach();
}

} // namespace

extern "C" void Overload(glOp* table)
{
    const char* const host = std::getenv(pointerVariable);
    if (!host || !*host)
        return;
    windows.changed = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    replace<Op::glXMakeCurrent>(table, makeCurrent);
    replace<Op::glXMakeContextCurrent>(table, makeContextCurrent);
    replace<Op::MWRaiseWindow>(table, raiseWindow);
}
