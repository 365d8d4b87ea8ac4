// An overload library: ends a server that its job has lost. Without it a node that is cut off goes
// on waiting for MPI's messages, on a core of its own, until somebody finds it.
//
// MOSA_LIFELINE names the address, HOST:PORT, at which mosa-wall listens while it runs the job.
// The server says who it is, and the job's secret, MOSA_LIFELINE_SECRET; nothing more is said. The
// connection breaks when mosa-wall ends, however it does, and when
// nothing of that host has been heard for a while: the kernels ask each other.
#include "overload/lifeline.h"
#include "coding/serverProcess.h"
#include "overload/library.h"
#include "overload/socket.h"
#include "shuffle/threads.h"

#include <cstdio>
#include <cstdlib>
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
}

void hold(int fd, const char* name)
{
    pollfd broken{fd, POLLIN, 0};
    while (poll(&broken, 1, -1) <= 0) {
    }
    if (done) // the job has ended, and so will this server
        return;
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    std::fprintf(stderr, "Error MOSA: server %d on %s has lost its job at %s\n", serverID, host,
                 name);
    _exit(1);
}

} // namespace

extern "C" void Overload(glOp*)
{
    constexpr int longest = 5000; // milliseconds
    const char* name = std::getenv("MOSA_LIFELINE");
    net::Address address;
    if (!name || !*name)
        return;
    const int fd = net::resolve(name, address) ? net::beginConnection(address) : -1;
    pollfd writable{fd, POLLOUT, 0};
    bool failed = true;
    if (fd < 0 || poll(&writable, 1, longest) <= 0 || !net::isConnected(fd, failed)) {
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
    std::thread(hold, fd, name).detach();
}
