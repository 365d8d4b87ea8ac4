// An overload library: ends a server that its job has lost. Without it a node that is cut off goes
// on waiting for MPI's messages, on a core of its own, until somebody finds it.
//
// MOSA_LIFELINE names the address, HOST:PORT, at which mosa-wall listens while it runs the job.
// The server says who it is, and the job's secret, MOSA_LIFELINE_SECRET, then every second how it
// goes. The connection breaks when mosa-wall ends, however it does, and when nothing of that host
// has been heard for a while: the kernels ask each other.
#include "overload/lifeline.h"
#include "coding/serverProcess.h"
#include "overload/library.h"
#include "overload/socket.h"
#include "shuffle/threads.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string_view>
#include <thread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <unistd.h>

namespace {

void breakAfter(int fd)
{
    constexpr int on = 1, quiet = 3, between = 2, unanswered = 4; // seconds, seconds, questions
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &quiet, sizeof quiet);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &between, sizeof between);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &unanswered, sizeof unanswered);
    // What has been said and is not acknowledged is asked after in another way, for as long.
    constexpr unsigned unacknowledged = 1000 * (quiet + between * unanswered); // milliseconds
    setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledged, sizeof unacknowledged);
}

std::atomic<std::uint64_t> frames;
std::atomic<clockid_t> decodingClock; // of the decode thread; set with the first frame

void swapBuffers(Display* dpy, GLXDrawable drawable)
{
    if (clockid_t clock = 0; frames == 0 && pthread_getcpuclockid(pthread_self(), &clock) == 0)
        decodingClock = clock;
    below<Op::glXSwapBuffers>(dpy, drawable);
    frames.fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t nanoseconds(const timespec& time)
{
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

std::uint64_t bytesInUse()
{
    std::uint64_t all = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

// False when it is not taken whole: whoever does not read it is told no more.
bool tellFigures(int fd, std::uint64_t began)
{
    timespec now{}, decoding{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (const clockid_t clock = decodingClock; clock != 0)
        clock_gettime(clock, &decoding);
    return net::sendRecord(fd, LifelineFigures{.frames = frames.load(std::memory_order_relaxed),
                                               .decodingTime = nanoseconds(decoding),
                                               .time = nanoseconds(now) - began,
                                               .bytes = bytesInUse()});
}

void hold(int fd, const char* name)
{
    timespec began{};
    clock_gettime(CLOCK_MONOTONIC, &began);
    pollfd broken{fd, POLLIN, 0};
    bool isHeard = true;
    while (poll(&broken, 1, isHeard ? 1000 : -1) <= 0)
        isHeard = isHeard && !done && tellFigures(fd, nanoseconds(began));
    if (done) // the job has ended, and so will this server
        return;
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    std::fprintf(stderr, "Error MOSA: server %d on %s has lost its job at %s\n", serverID, host,
                 name);
    _exit(1);
}

} // namespace

extern "C" void Overload(glOp* table)
{
    constexpr int longest = 5000; // milliseconds
    const char* name = std::getenv("MOSA_LIFELINE");
    if (!name || !*name)
        return;
    const int fd = net::connectWithin(name, longest);
    if (fd < 0) {
        std::fprintf(stderr,
                     "Attention MOSA: lifeline: %s cannot be reached: this server would not notice "
                     "the end of its job\n",
                     name);
        return;
    }
    LifelineHello hello{.mark = lifelineMark, .server = serverID, .pid = getpid(), .secret = {}};
    if (const char* secret = std::getenv("MOSA_LIFELINE_SECRET"))
        std::string_view(secret).copy(hello.secret, sizeof hello.secret);
    net::sendRecord(fd, hello); // nothing has been sent before: there is room
    breakAfter(fd);
    replace<Op::glXSwapBuffers>(table, swapBuffers);
    std::thread(hold, fd, name).detach();
}
