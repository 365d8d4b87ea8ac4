// An overload library: a swap group over the network, for graphics without hardware for it. Every
// server's swap waits until all servers have drawn what comes before it.
//
// The server asks for swap groups when MOSA_SWAP_ON_RETRACE is set. Where MOSA_FRAMELOCK names the
// hub, HOST:PORT on the first server's node, this library answers in the place of hardware; where
// every node has hardware, that is used. MOSA_FRAMELOCK_SECRET is known to the servers of the job
// alone; MOSA_FRAMELOCK_HOLD is how many milliseconds one server may hold the others.
#include "coding/serverProcess.h"
#include "coding/serverWindows.h"
#include "overload/frameLock/hub.h"
#include "overload/frameLock/wire.h"
#include "overload/library.h"
#include "overload/socket.h"
#include "shuffle/threads.h"
#include "wire/areaMessages.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>

#include <poll.h>
#include <unistd.h>

namespace {

using namespace frameLock;
using namespace net;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// For servers whose displays take their time; the banner is over on all of them at once.
constexpr Milliseconds joinTime{10000};
constexpr Milliseconds usualHold{3000};
constexpr Milliseconds roundTrip{2000}; // at most, on top of what the hub waits itself
constexpr Milliseconds retryAfter{1000};
constexpr int look = 10; // milliseconds, after which a waiting server sees the end of the stream

struct Lock {
    std::string hubName, secret;
    Address hub;
    Milliseconds hold = usualHold;
    int fd = -1;
    bool isGreeted = false; // the hub has this server's Hello
    Incoming<Word> incoming;
    Clock::time_point begun; // the latest attempt to connect
    bool hasHardware = false, byHardware = false;
    bool isBound = false;    // swaps wait
    std::uint64_t swaps = 0; // of the stream, this one counted
};

Lock lock;

void disconnect()
{
    if (lock.fd >= 0)
        close(lock.fd);
    lock.fd = -1;
    lock.isGreeted = false;
    lock.incoming = {};
}

void goOnAlone()
{
    static Clock::time_point nextLine;
    disconnect();
    if (done || Clock::now() < nextLine)
        return;
    char host[hostBytes] = "";
    gethostname(host, sizeof host - 1);
    std::fprintf(stderr,
                 "Attention MOSA: framelock: server %d on %s hears nothing from %s: it goes on by "
                 "itself\n",
                 serverID, host, lock.hubName.c_str());
    nextLine = Clock::now() + std::chrono::seconds(10);
}

Hello ownHello()
{
    Hello hello{.mark = helloMark,
                .server = serverID,
                .hasHardware = lock.hasHardware,
                .zero = 0,
                .secret = {},
                .host = {}};
    lock.secret.copy(hello.secret, sizeof hello.secret);
    gethostname(hello.host, sizeof hello.host - 1);
    return hello;
}

// Goes on with connecting, without waiting. True once the hub knows this server.
bool reachHub(Milliseconds retry)
{
    if (lock.isGreeted)
        return true;
    const Clock::time_point now = Clock::now();
    if (lock.fd < 0) {
        if (now - lock.begun < retry)
            return false;
        lock.begun = now;
        lock.fd = beginConnection(lock.hub);
    }
    bool failed = false;
    if (lock.fd >= 0 && isConnected(lock.fd, failed)) {
        sendAtOnce(lock.fd);
        lock.isGreeted = sendRecord(lock.fd, ownHello());
        failed = !lock.isGreeted;
    }
    if (failed || (!lock.isGreeted && now - lock.begun > roundTrip + retry))
        disconnect();
    return lock.isGreeted;
}

// Waits a little for a word of the hub.
Heard hear(Word& word)
{
    pollfd readable{lock.fd, POLLIN, 0};
    if (poll(&readable, 1, look) <= 0)
        return Heard::nothing;
    return receiveRecord(lock.fd, lock.incoming, word);
}

// True once the hub has said which way swaps are held together.
bool join()
{
    constexpr Milliseconds soon{20};
    const Clock::time_point until = Clock::now() + joinTime + roundTrip;
    while (!done && Clock::now() < until) {
        Word word{};
        if (!reachHub(soon)) {
            usleep(1000 * look / 2);
            continue;
        }
        const Heard heard = hear(word);
        if (heard == Heard::end)
            disconnect();
        if (heard == Heard::record) {
            lock.byHardware = word.kind == Kind::byHardware;
            return true;
        }
    }
    return false;
}

void joinHub()
{
    if (!join())
        goOnAlone();
}

void waitForOthers()
{
    if (!reachHub(retryAfter))
        return;
    if (!sendRecord(lock.fd, Word{Kind::swapReady, 0, lock.swaps}))
        return goOnAlone();
    const Clock::time_point until = Clock::now() + lock.hold + roundTrip;
    while (!done) {
        Word word{};
        const Heard heard = hear(word);
        if (heard == Heard::record && word.kind == Kind::swapNow && word.number == lock.swaps)
            return;
        if (heard == Heard::end || Clock::now() > until)
            return goOnAlone();
    }
}

// ---- In place of the operations ----------------------------------------------------------------

const char* queryExtensionsString(Display* dpy, int screen)
{
    static std::string extensions;
    const char* own = below<Op::glXQueryExtensionsString>(dpy, screen);
    extensions = own ? own : "";
    lock.hasHardware = extensions.find("GLX_NV_swap_group") != std::string::npos;
    if (!lock.hasHardware)
        extensions += " GLX_NV_swap_group";
    return extensions.c_str();
}

Bool queryMaxSwapGroups(Display* dpy, int screen, GLuint* groups, GLuint* barriers)
{
    lock.hasHardware = lock.hasHardware &&
                       below<Op::glXQueryMaxSwapGroupsNV>(dpy, screen, groups, barriers) &&
                       *groups > 0 && *barriers > 0;
    joinHub();
    if (!lock.byHardware)
        *groups = *barriers = 1;
    return True;
}

Bool joinSwapGroup(Display* dpy, GLXDrawable drawable, GLuint group)
{
    return lock.byHardware ? below<Op::glXJoinSwapGroupNV>(dpy, drawable, group) : True;
}

// All windows swap together from here on, as far as the stream has several.
Bool bindSwapBarrier(Display* dpy, GLuint group, GLuint barrier)
{
    if (lock.byHardware)
        return below<Op::glXBindSwapBarrierNV>(dpy, group, barrier);
    lock.isBound = true;
    return True;
}

// What comes next is done by all at the same moment.
void awaitMoment()
{
    ++lock.swaps;
    if (!lock.isBound)
        return;
    if (currDrawableInfo && currDrawableInfo->lctx)
        callSystem<Op::glFinish>(); // nothing else is left to do
    waitForOthers();
}

void swapBuffers(Display* dpy, GLXDrawable drawable)
{
    // A stream of glXMakeContextCurrent alone asks for no group.
    if (swapOnRetrace && !lock.isBound && !lock.byHardware) {
        joinHub();
        lock.isBound = !lock.byHardware;
    }
    awaitMoment();
    below<Op::glXSwapBuffers>(dpy, drawable);
}

// A move of the job's area counts as a swap: no tile shows the old place when another shows the new
// one.
void raiseWindow(Window window)
{
    if (isAreaMessage(window) && isSeen(window))
        awaitMoment();
    below<Op::MWRaiseWindow>(window);
}

// ---- Start and end -----------------------------------------------------------------------------

std::string fromEnvironment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool startHere(int port)
{
    try {
        startHub({.host = lock.hubName.substr(0, lock.hubName.rfind(':')),
                  .port = port,
                  .servers = nServers,
                  .secret = lock.secret,
                  .joinTime = joinTime,
                  .holdTime = lock.hold,
                  .summary = !fromEnvironment("MOSA_STATS").empty()});
        std::atexit(printHubSummary);
        return true;
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "Attention MOSA: framelock: port %d: %s\n", port, error.what());
        return false;
    }
}

} // namespace

extern "C" void Overload(glOp* table)
{
    lock.hubName = fromEnvironment("MOSA_FRAMELOCK");
    lock.secret = fromEnvironment("MOSA_FRAMELOCK_SECRET");
    if (lock.hubName.empty())
        return;
    if (lock.secret.empty()) {
        std::fputs("Attention MOSA: framelock: MOSA_FRAMELOCK_SECRET is not set\n", stderr);
        return;
    }
    if (!resolve(lock.hubName, lock.hub)) {
        std::fprintf(stderr, "Attention MOSA: framelock: there is no host %s\n",
                     lock.hubName.c_str());
        return;
    }
    if (const std::string hold = fromEnvironment("MOSA_FRAMELOCK_HOLD"); !hold.empty())
        lock.hold = Milliseconds(std::max(1, std::atoi(hold.c_str())));
    const int port = std::atoi(lock.hubName.c_str() + lock.hubName.rfind(':') + 1);
    if (serverID == 0 && !startHere(port))
        return;
    replace<Op::glXQueryExtensionsString>(table, queryExtensionsString);
    replace<Op::glXQueryMaxSwapGroupsNV>(table, queryMaxSwapGroups);
    replace<Op::glXJoinSwapGroupNV>(table, joinSwapGroup);
    replace<Op::glXBindSwapBarrierNV>(table, bindSwapBarrier);
    replace<Op::glXSwapBuffers>(table, swapBuffers);
    replace<Op::MWRaiseWindow>(table, raiseWindow);
}
