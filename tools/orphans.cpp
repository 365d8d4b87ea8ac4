// Orphans: what others have left behind as they ended. They become children of this process, which
// is their subreaper; it knows them by a mark in their environment, or, where they have cleared
// that, by there being nobody else whose they could be.
#include "tools/started.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int mostOrphans = 1024;
std::array<char, 64> mark;
std::atomic<bool> hadChildren; // before it started any: what is unmarked may be theirs

int openOf(pid_t pid, const char* file)
{
    char path[64] = "/proc/";
    char* at = path + std::strlen(path);
    char digits[16];
    int n = 0;
    for (pid_t rest = pid; rest > 0; rest /= 10)
        digits[n++] = static_cast<char>('0' + rest % 10);
    while (n > 0)
        *at++ = digits[--n];
    std::strcpy(at, file);
    return open(path, O_RDONLY | O_CLOEXEC);
}

// Whether the environment that a process was given has a text of this length in it. False for one
// that does not let itself be looked at, and for a zombie.
bool hasInEnvironment(pid_t pid, const char* wanted, std::size_t length)
{
    const int fd = openOf(pid, "/environ");
    std::array<char, 8192> text;
    std::size_t kept = 0; // of what was read before, as it may lie across
    bool found = false;
    for (ssize_t got = 1; fd >= 0 && got > 0 && !found;) {
        got = read(fd, text.data() + kept, text.size() - kept);
        const std::size_t end = kept + static_cast<std::size_t>(std::max<ssize_t>(got, 0));
        found = memmem(text.data(), end, wanted, length) != nullptr;
        kept = std::min(end, length);
        std::memmove(text.data(), text.data() + end - kept, kept);
    }
    close(fd);
    return found;
}

// What is unmarked counts as the program's, if there is one: helpers clear nothing.
bool isOf(pid_t pid, Origin origin)
{
    std::array<char, sizeof mark + 1> wanted{};
    std::strcpy(wanted.data(), mark.data());
    const std::size_t length = std::strlen(wanted.data());
    wanted[length] = static_cast<char>(origin);
    if (hasInEnvironment(pid, wanted.data(), length + 1))
        return true;
    return origin == Origin::program && users.wasStarted && !hadChildren && kill(pid, 0) == 0 &&
           !hasInEnvironment(pid, wanted.data(), length);
}

// Calls visit with each child that is not listed: an orphan, or one that was there before.
template <class Visit>
void eachOrphan(Visit visit)
{
    const int list = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    std::array<char, 65536> text;
    const ssize_t length = list < 0 ? 0 : read(list, text.data(), text.size());
    close(list);
    pid_t pid = 0;
    for (ssize_t i = 0; i < length; ++i) {
        const char c = text[static_cast<std::size_t>(i)];
        if (c >= '0' && c <= '9') {
            pid = pid * 10 + (c - '0');
            continue;
        }
        const bool listed = pid == 0 || std::ranges::any_of(started, [pid](const Started& s) {
                                return s.pid == pid;
                            });
        if (!listed)
            visit(pid);
        pid = 0;
    }
}

bool isDaemon(pid_t pid) { return getsid(pid) != getsid(0); }

// True for what is to be ended with those of this origin.
bool belongsTo(pid_t pid, Origin origin)
{
    return isOf(pid, origin) && (origin == Origin::helper || !isDaemon(pid));
}

// A child that has not been waited for: the number is its own.
void signalOrphan(pid_t pid, int signal)
{
    kill(pid, signal);
    if (signal == SIGTERM)
        kill(pid, SIGCONT);
}

long milliseconds() { return nanoseconds() / 1'000'000; }

} // namespace

void installMark()
{
    std::snprintf(mark.data(), mark.size(), "MOSA_STARTED_BY=%d.%ld.", getpid(), nanoseconds());
    hadChildren = false;
    eachOrphan([](pid_t) { hadChildren = true; });
}

std::string markOf(Origin origin) { return std::string(mark.data()) + static_cast<char>(origin); }

void endOrphans(Origin origin, Timeout grace)
{
    constexpr long step = 10, hopeless = 2000; // milliseconds
    std::array<pid_t, mostOrphans> told;
    std::size_t nTold = 0;
    const long until = milliseconds() + grace.count();
    for (bool any = true; any && milliseconds() < until + hopeless;) {
        any = false;
        const bool late = milliseconds() >= until;
        eachOrphan([&](pid_t pid) {
            if (waitpid(pid, nullptr, WNOHANG) != 0 || !belongsTo(pid, origin))
                return;
            any = true;
            const auto last = told.begin() + static_cast<std::ptrdiff_t>(nTold);
            if (late)
                signalOrphan(pid, SIGKILL);
            else if (std::find(told.begin(), last, pid) == last && nTold < told.size()) {
                told[nTold++] = pid;
                signalOrphan(pid, SIGTERM);
            }
        });
        if (any)
            poll(nullptr, 0, step);
    }
}

bool signalProgramsOrphans(int signal)
{
    bool any = false;
    eachOrphan([&any, signal](pid_t pid) {
        if (waitpid(pid, nullptr, WNOHANG) == 0 && belongsTo(pid, Origin::program)) {
            any = true;
            kill(pid, signal);
        }
    });
    return any;
}

void sayWhichDaemonsGoOn()
{
    if (!users.wasStarted)
        return;
    eachOrphan([](pid_t pid) {
        if (waitpid(pid, nullptr, WNOHANG) != 0 || !isOf(pid, Origin::program) || !isDaemon(pid))
            return;
        char name[64] = "";
        const int fd = openOf(pid, "/comm");
        const ssize_t got = fd < 0 ? 0 : read(fd, name, sizeof name - 1);
        close(fd);
        name[std::max<ssize_t>(got - 1, 0)] = 0; // without the end of the line
        sayAtOnce(program_invocation_short_name);
        sayAtOnce(": the program has left ");
        sayAtOnce(name);
        sayAtOnce(" running, in a session of its own: it goes on\n");
    });
}

bool programLeftSomething()
{
    bool any = false;
    if (users.wasTold)
        return false;
    eachOrphan([&any](pid_t pid) {
        any |= waitpid(pid, nullptr, WNOHANG) == 0 && isOf(pid, Origin::program);
    });
    return any;
}
