#include "overload/frameLock/hub.h"
#include "overload/frameLock/wire.h"
#include "overload/socket.h"
#include "shuffle/threads.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace frameLock {

namespace {

using namespace net;
using Clock = std::chrono::steady_clock;

struct Member {
    int fd = -1;
    Incoming<Word> incoming;
    std::string host;
    bool isHere = false, hasHardware = false;
    bool isLeftOut = false;         // the others do not wait for it
    std::uint64_t ready = 0;        // the swap that it has come to,
    bool isWaiting = false;         // and waits before,
    Clock::time_point since;        // since then
    Clock::time_point notBefore;    // may be taken back
    std::chrono::seconds penalty{}; // before it may be, the next time
    long timesLast = 0;             // how often it came last,
    Clock::duration heldOthers{};   // and how long the first had waited by then
};

struct Newcomer {
    int fd;
    Incoming<Hello> incoming;
    Clock::time_point until; // it has time to say who it is
};

struct Hub {
    HubOptions options;
    std::vector<int> listeners;
    std::vector<Member> members; // by the servers' numbers
    std::list<Newcomer> newcomers;
    std::optional<Clock::time_point> first; // server's coming
    bool isDecided = false;
    bool isSummarised = false;
    std::uint64_t shown = 0; // the latest swap that has been let go
    long swaps = 0;          // that all came to
    std::mutex lock;         // not held while the hub waits
};

// Never destroyed: the thread outlives the process's exit handlers.
Hub& hub = *new Hub;

std::string nameOf(std::size_t server)
{
    const std::string& host = hub.members[server].host;
    return "server " + std::to_string(server) + (host.empty() ? "" : " on " + host);
}

void send(Member& member, Kind kind, std::uint64_t number)
{
    sendRecord(member.fd, Word{kind, 0, number}); // one that is gone is heard of by reading
}

void letGo(Member& member)
{
    member.isWaiting = false;
    send(member, Kind::swapNow, member.ready);
}

void leaveOut(Member& member)
{
    constexpr std::chrono::seconds longest{60};
    member.isLeftOut = true;
    member.notBefore = Clock::now() + member.penalty;
    member.penalty = std::min(longest, 2 * member.penalty + std::chrono::seconds(1));
}

// ---- Coming and going --------------------------------------------------------------------------

void decide()
{
    hub.isDecided = true;
    const bool byHardware =
        std::ranges::all_of(hub.members, [](const Member& m) { return m.isHere && m.hasHardware; });
    for (Member& member : hub.members)
        if (member.isHere)
            send(member, byHardware ? Kind::byHardware : Kind::byNetwork, 0);
    std::fprintf(stderr, "MOSA: framelock: %zu servers swap together, by %s\n", hub.members.size(),
                 byHardware ? "their hardware" : "network");
}

bool isSecret(const char (&said)[secretBytes])
{
    char secret[secretBytes] = {};
    hub.options.secret.copy(secret, sizeof secret);
    int different = 0; // every byte is looked at, so that time tells nothing
    for (int i = 0; i < secretBytes; ++i)
        different |= secret[i] ^ said[i];
    return different == 0;
}

void refuse(int fd)
{
    static Clock::time_point nextLine;
    if (Clock::now() >= nextLine) {
        std::fprintf(stderr, "Attention MOSA: framelock: %s does not belong here\n",
                     peerOf(fd).c_str());
        nextLine = Clock::now() + std::chrono::seconds(10);
    }
    close(fd);
}

void admit(int fd, Hello hello)
{
    if (hello.mark != helloMark || !isSecret(hello.secret) || hello.server < 0 ||
        hello.server >= static_cast<int>(hub.members.size()))
        return refuse(fd);
    Member& member = hub.members[static_cast<std::size_t>(hello.server)];
    if (member.fd >= 0)
        close(member.fd); // it has come anew: its old connection was cut
    hello.host[hostBytes - 1] = 0;
    member.fd = fd;
    member.incoming = {};
    member.host = hello.host;
    member.hasHardware = hello.hasHardware != 0;
    member.isHere = true;
    member.isWaiting = false;
    if (!hub.first)
        hub.first = Clock::now();
    if (hub.isDecided)
        send(member, Kind::byNetwork, 0);
    else if (std::ranges::all_of(hub.members, &Member::isHere))
        decide();
}

void hearNewcomer(Newcomer& newcomer)
{
    Hello hello{};
    const Heard heard = receiveRecord(newcomer.fd, newcomer.incoming, hello);
    if (heard == Heard::record)
        admit(newcomer.fd, hello);
    else if (heard == Heard::end || Clock::now() >= newcomer.until)
        refuse(newcomer.fd);
    else
        return;
    newcomer.fd = -1;
}

void hearMember(std::size_t server)
{
    Member& member = hub.members[server];
    for (;;) {
        Word word{};
        const Heard heard = receiveRecord(member.fd, member.incoming, word);
        if (heard == Heard::nothing)
            return;
        if (heard == Heard::record && word.kind == Kind::swapReady) {
            member.ready = word.number;
            member.isWaiting = true;
            member.since = Clock::now();
            continue;
        }
        if (!done)
            std::fprintf(stderr,
                         "Attention MOSA: framelock: %s has gone: the others go on without it\n",
                         nameOf(server).c_str());
        close(member.fd);
        member.fd = -1;
        member.isHere = member.isWaiting = false;
        member.isLeftOut = true;
        return;
    }
}

// ---- Swaps -------------------------------------------------------------------------------------

bool isExpected(const Member& member) { return !member.isLeftOut; }

// One that was left out belongs to the others again once it has come to the swap that they wait
// before; until then nothing holds it back.
void takeBack()
{
    for (std::size_t i = 0; i < hub.members.size(); ++i) {
        Member& member = hub.members[i];
        if (!member.isLeftOut || !member.isWaiting)
            continue;
        if (Clock::now() >= member.notBefore && member.ready > hub.shown) {
            member.isLeftOut = false;
            std::fprintf(stderr, "MOSA: framelock: %s is in step again from swap %llu on\n",
                         nameOf(i).c_str(), static_cast<unsigned long long>(member.ready));
        } else
            letGo(member);
    }
}

void countLast(std::uint64_t swap)
{
    const Member* first = nullptr;
    Member* last = nullptr;
    for (Member& member : hub.members) {
        if (!member.isWaiting || member.ready != swap)
            return; // not all
        if (!first || member.since < first->since)
            first = &member;
        if (!last || member.since >= last->since)
            last = &member;
    }
    ++hub.swaps;
    ++last->timesLast;
    last->heldOthers += last->since - first->since;
}

// Lets go of those that wait before a swap that all who are expected have come to.
void letGoTogether()
{
    std::uint64_t all = ~std::uint64_t{0};
    for (const Member& member : hub.members)
        if (isExpected(member))
            all = std::min(all, member.isHere ? member.ready : 0);
    countLast(all);
    for (Member& member : hub.members)
        if (isExpected(member) && member.isWaiting && member.ready <= all) {
            hub.shown = std::max(hub.shown, member.ready);
            letGo(member);
        }
}

// The member that has waited longest for others.
const Member* longestWaiting()
{
    const Member* longest = nullptr;
    for (const Member& member : hub.members)
        if (isExpected(member) && member.isWaiting && (!longest || member.since < longest->since))
            longest = &member;
    return longest;
}

void leaveOutLate()
{
    const Clock::time_point now = Clock::now();
    if (!hub.isDecided) {
        if (!hub.first || now - *hub.first < hub.options.joinTime)
            return;
        for (std::size_t i = 0; i < hub.members.size(); ++i)
            if (!hub.members[i].isHere) {
                std::fprintf(stderr,
                             "Attention MOSA: framelock: %s has not come: the others go on without "
                             "it\n",
                             nameOf(i).c_str());
                leaveOut(hub.members[i]);
            }
        decide();
    }
    const Member* const waiting = longestWaiting();
    if (!waiting || now - waiting->since < hub.options.holdTime)
        return;
    const std::uint64_t swap = waiting->ready;
    for (std::size_t i = 0; i < hub.members.size(); ++i) {
        Member& member = hub.members[i];
        if (!isExpected(member) || (member.isHere && member.ready >= swap))
            continue;
        std::fprintf(stderr,
                     "Attention MOSA: framelock: %s has not come to swap %llu for %lld ms: the "
                     "others go on without it\n",
                     nameOf(i).c_str(), static_cast<unsigned long long>(swap),
                     static_cast<long long>(hub.options.holdTime.count()));
        leaveOut(member);
    }
}

// Once, at the end, of whoever comes first: a server may end without its exit handlers.
void printSummary()
{
    if (!hub.options.summary || hub.isSummarised)
        return;
    hub.isSummarised = true;
    std::fprintf(stderr, "MOSA: framelock: %ld swaps together\n", hub.swaps);
    if (hub.swaps == 0)
        return;
    for (std::size_t i = 0; i < hub.members.size(); ++i) {
        const Member& member = hub.members[i];
        const double held = std::chrono::duration<double, std::milli>(member.heldOthers).count();
        std::fprintf(stderr,
                     "MOSA: framelock: %s was the last at %.0f%% of them, and the others had "
                     "waited for it %.2f ms each time\n",
                     nameOf(i).c_str(),
                     100.0 * static_cast<double>(member.timesLast) / static_cast<double>(hub.swaps),
                     member.timesLast ? held / static_cast<double>(member.timesLast) : 0);
    }
}

// ---- The thread --------------------------------------------------------------------------------

// Those that say nothing make room for others.
void acceptNewcomer(int listener)
{
    constexpr std::size_t most = 64;
    constexpr std::chrono::seconds time{5};
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
        return;
    if (hub.newcomers.size() >= most) {
        refuse(hub.newcomers.front().fd);
        hub.newcomers.pop_front();
    }
    sendAtOnce(fd);
    hub.newcomers.push_back({fd, {}, Clock::now() + time});
}

std::vector<pollfd> descriptors()
{
    std::vector<pollfd> all;
    for (const int listener : hub.listeners)
        all.push_back({listener, POLLIN, 0});
    for (const Newcomer& newcomer : hub.newcomers)
        all.push_back({newcomer.fd, POLLIN, 0});
    for (const Member& member : hub.members)
        all.push_back({member.fd, POLLIN, 0});
    return all;
}

void runHub()
{
    constexpr int look = 100; // milliseconds, for what depends on the time
    std::vector<pollfd> fds = descriptors();
    for (;;) {
        poll(fds.data(), fds.size(), look);
        const std::lock_guard guard(hub.lock);
        for (Newcomer& newcomer : hub.newcomers)
            hearNewcomer(newcomer);
        for (std::size_t i = 0; i < hub.listeners.size(); ++i)
            if (fds[i].revents)
                acceptNewcomer(hub.listeners[i]);
        hub.newcomers.remove_if([](const Newcomer& newcomer) { return newcomer.fd < 0; });
        for (std::size_t i = 0; i < hub.members.size(); ++i)
            if (hub.members[i].fd >= 0)
                hearMember(i);
        leaveOutLate();
        if (hub.isDecided) {
            takeBack();
            letGoTogether();
        }
        if (done)
            printSummary();
        fds = descriptors();
    }
}

} // namespace

void startHub(const HubOptions& options)
{
    hub.options = options;
    hub.members.resize(static_cast<std::size_t>(options.servers));
    hub.listeners = listenOn(options.host, options.port);
    std::thread(runHub).detach();
}

void printHubSummary()
{
    const std::lock_guard guard(hub.lock);
    printSummary();
}

} // namespace frameLock
