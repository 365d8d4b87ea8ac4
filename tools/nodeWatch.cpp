#include "tools/nodeWatch.h"
#include "tools/frameLock.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Of the lifelines; for as long as this process lives.
std::vector<int> listeners;
std::string secret;

int openLifeline(const std::string& host)
{
    if (listeners.empty()) {
        secret = newSecret();
        try {
            listeners = net::listenOn(host, 0);
        } catch (const std::system_error& error) {
            throw std::runtime_error(std::string("no port is free for the servers' lifelines: ") +
                                     error.what());
        }
    }
    return net::portOf(listeners.front());
}

std::string firstLine(const std::string& file)
{
    std::ifstream text(file);
    std::string line;
    std::getline(text, line);
    return line;
}

// The node of a launcher: in its arguments, before what it runs there. Empty for other programs.
std::string nodeOf(pid_t launcher)
{
    std::istringstream words(firstLine("/proc/" + std::to_string(launcher) + "/cmdline"));
    std::string node;
    for (std::string word; std::getline(words, word, '\0'); node = word)
        if (word.find("hydra_pmi_proxy") != std::string::npos)
            return node;
    return {};
}

std::vector<pid_t> childrenOf(pid_t process)
{
    const std::string task = std::to_string(process);
    std::ifstream file("/proc/" + task + "/task/" + task + "/children");
    std::vector<pid_t> children;
    for (pid_t child = 0; file >> child;)
        children.push_back(child);
    return children;
}

// How a child has ended, as wait gives it; 0 while it runs.
int statusOf(pid_t child)
{
    // Its line ends with the status, once it is a zombie.
    const std::string line = firstLine("/proc/" + std::to_string(child) + "/stat");
    const std::size_t state = line.rfind(')') + 2;
    const std::size_t status = line.rfind(' ') + 1;
    return state < line.size() && line[state] == 'Z' ? std::atoi(line.c_str() + status) : 0;
}

} // namespace

std::string ownHostName()
{
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

void watchNodes(Job& job)
{
    const auto chosen = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value ? value : "");
    };
    const bool isHere = job.hosts.empty();
    if (const std::string launcher = chosen("HYDRA_LAUNCHER");
        !isHere && (launcher.empty() || launcher == "ssh"))
        job.secrets.push_back("HYDRA_LAUNCHER_EXTRA_ARGS="
                              "-oBatchMode=yes -oConnectTimeout=5 -oServerAliveInterval=2 "
                              "-oServerAliveCountMax=2 " +
                              chosen("HYDRA_LAUNCHER_EXTRA_ARGS"));
    const std::string host = isHere ? "127.0.0.1" : ownHostName();
    job.environment.push_back("MOSA_LIFELINE=" + host + ":" + std::to_string(openLifeline(host)));
    job.secrets.push_back("MOSA_LIFELINE_SECRET=" + secret);
}

namespace {

// A node whose launcher has lost it.
std::string lostNode(NodeWatch& watch, pid_t mpiexec)
{
    constexpr int sshFailed = 255 << 8;
    std::string lost;
    for (const pid_t child : childrenOf(mpiexec))
        if (const std::string node = nodeOf(child); !node.empty())
            watch.launchers.try_emplace(child, node);
        else if (statusOf(child) == sshFailed) // perhaps too soon for its name to be known
            lost = watch.launchers.contains(child) ? watch.launchers[child] : "a node";
    return lost;
}

// "server 1 on node2", or without its host when that is this machine.
std::string nameOf(const LifelineHello& hello, int fd)
{
    const std::string server = "server " + std::to_string(hello.server);
    const std::string peer = net::peerOf(fd);
    if (peer.starts_with("127.") || peer == "::1")
        return server;
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    char host[NI_MAXHOST] = "";
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    const bool isNamed = getpeername(fd, any, &size) == 0 &&
                         getnameinfo(any, size, host, sizeof host, nullptr, 0, NI_NOFQDN) == 0;
    return server + " on " + (isNamed ? host : peer);
}

bool isOurs(const LifelineHello& hello)
{
    return hello.mark == lifelineMark && net::isSecret(hello.secret, secret);
}

// True when a newcomer is none any more.
bool isHeard(NodeWatch& watch, Newcomer& newcomer)
{
    LifelineHello hello{};
    const net::Heard heard = net::receiveRecord(newcomer.fd, newcomer.incoming, hello);
    if (heard == net::Heard::nothing)
        return false;
    if (heard == net::Heard::record && isOurs(hello))
        watch.lifelines[newcomer.fd] = {
            .name = watch.servers[hello.pid] = nameOf(hello, newcomer.fd), .server = hello.server};
    else
        close(newcomer.fd);
    return true;
}

// Whoever connects is a server once it has said the job's secret; those that say nothing make room
// for others.
void acceptLifelines(NodeWatch& watch)
{
    constexpr std::size_t most = 64;
    for (const int listener : listeners)
        for (int fd = -1;
             (fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0;) {
            if (watch.newcomers.size() == most) {
                close(watch.newcomers.front().fd);
                watch.newcomers.pop_front();
            }
            watch.newcomers.push_back({fd, {}});
            watch.newcomers.remove_if([&watch](Newcomer& n) { return isHeard(watch, n); });
        }
    watch.newcomers.remove_if([&watch](Newcomer& n) { return isHeard(watch, n); });
}

// True when a process has begun to end: its connections close before it counts as ended.
bool isEnding(pid_t process)
{
    constexpr unsigned long exiting = 4; // PF_EXITING of the kernel's flags
    const std::string line = firstLine("/proc/" + std::to_string(process) + "/stat");
    std::istringstream fields(line.substr(std::min(line.size(), line.rfind(')') + 1)));
    std::string state, skipped;
    unsigned long flags = exiting; // it is gone
    fields >> state >> skipped >> skipped >> skipped >> skipped >> skipped >> flags;
    return (flags & exiting) != 0;
}

// True when one that has begun to end does so by a signal; not known of one that is gone.
bool isKilled(pid_t process)
{
    constexpr int signals = 0x7f;
    const std::string line = firstLine("/proc/" + std::to_string(process) + "/stat");
    return (std::atoi(line.substr(line.rfind(' ') + 1).c_str()) & signals) != 0;
}

// Takes in what a server has said of itself. True when its lifeline has ended.
bool hearFigures(int fd, Lifeline& lifeline)
{
    LifelineFigures figures{};
    for (;;)
        switch (net::receiveRecord(fd, lifeline.incoming, figures)) {
        case net::Heard::record:
            lifeline.before = std::exchange(lifeline.latest, figures);
            lifeline.heard = JobClock::now();
            break;
        case net::Heard::nothing:
            return false;
        case net::Heard::end:
            return true;
        }
}

// A server has ended when its lifeline has.
void noteEnds(NodeWatch& watch)
{
    acceptLifelines(watch);
    for (auto at = watch.lifelines.begin(); at != watch.lifelines.end();) {
        auto& [fd, lifeline] = *at;
        if (!hearFigures(fd, lifeline)) {
            ++at;
            continue;
        }
        close(fd);
        if (watch.ended.empty()) {
            watch.ended = lifeline.name;
            watch.endedAt = JobClock::now();
            // On one machine mpiexec ends the client too soon after a server for this to tell.
            watch.clientEndedToo =
                watch.clientSeen && !watch.launchers.empty() && isEnding(watch.clientPid);
            watch.clientKilled = watch.clientEndedToo && isKilled(watch.clientPid);
        }
        at = watch.lifelines.erase(at);
    }
}

// A server that has ended a while ago, when others still run: MPI does not always tell
// them, and they would wait for it.
std::string lostServer(NodeWatch& watch)
{
    constexpr std::chrono::seconds longest{4}; // that the ends of a job's servers lie apart
    noteEnds(watch);
    const bool isLate = !watch.ended.empty() && JobClock::now() - watch.endedAt > longest;
    return isLate && !watch.lifelines.empty() ? watch.ended : "";
}

// The client is the first task, and runs here: below a launcher of this machine, which names none.
void findClient(NodeWatch& watch, pid_t mpiexec)
{
    for (const pid_t launcher : childrenOf(mpiexec)) {
        const std::vector<pid_t> tasks = childrenOf(launcher);
        if (watch.launchers.contains(launcher) || tasks.empty())
            continue;
        watch.client = static_cast<int>(syscall(SYS_pidfd_open, tasks.front(), 0));
        watch.clientPid = tasks.front();
        watch.clientSeen = true;
        return;
    }
}

} // namespace

bool launcherFailed(pid_t mpiexec)
{
    return std::ranges::any_of(childrenOf(mpiexec),
                               [](pid_t child) { return statusOf(child) != 0; });
}

std::string nodeTrouble(NodeWatch& watch, pid_t mpiexec)
{
    if (!watch.clientSeen && !watch.lifelines.empty())
        findClient(watch, mpiexec);
    if (const std::string node = lostNode(watch, mpiexec); !node.empty())
        return node + " cannot be reached any more";
    if (const std::string server = lostServer(watch); !server.empty())
        return server + " has ended, and others wait for it";
    return {};
}

namespace {

double nanosecondsOf(const Lifeline& lifeline) // between its last two words
{
    return static_cast<double>(lifeline.latest.time - lifeline.before.time);
}

double framesPerSecond(const Lifeline& lifeline)
{
    const auto frames = static_cast<double>(lifeline.latest.frames - lifeline.before.frames);
    return nanosecondsOf(lifeline) > 0 ? 1e9 * frames / nanosecondsOf(lifeline) : 0;
}

// Servers speak at different moments: how many frames it has by now, if it has gone on so.
double framesBy(const Lifeline& lifeline, JobClock::time_point now)
{
    const std::chrono::duration<double> passed = now - lifeline.heard;
    return static_cast<double>(lifeline.latest.frames) + framesPerSecond(lifeline) * passed.count();
}

} // namespace

std::optional<ServerFigures> figuresOf(const NodeWatch& watch, int server)
{
    const auto now = JobClock::now();
    double furthest = 0;
    const Lifeline* own = nullptr;
    for (const auto& [fd, lifeline] : watch.lifelines) {
        furthest = std::max(furthest, framesBy(lifeline, now));
        if (lifeline.server == server)
            own = &lifeline;
    }
    if (!own || nanosecondsOf(*own) <= 0)
        return {};
    const auto decoding = static_cast<double>(own->latest.decodingTime - own->before.decodingTime);
    // Less than a tenth of a second is no more than the measure's own error.
    const double behind = furthest - framesBy(*own, now);
    const bool isBehind = behind > std::max(2.0, framesPerSecond(*own) / 10);
    return ServerFigures{.framesPerSecond = framesPerSecond(*own),
                         .behind = isBehind ? std::lround(behind) : 0,
                         .decoding =
                             static_cast<int>(std::lround(100 * decoding / nanosecondsOf(*own))),
                         .bytes = static_cast<long long>(own->latest.bytes)};
}

void clientHasEnded(NodeWatch& watch)
{
    close(watch.client);
    watch.client = -1;
    noteEnds(watch);
    watch.clientEndedFirst = watch.clientEndedFirst || watch.ended.empty();
}
