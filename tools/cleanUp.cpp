#include "tools/cleanUp.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Signal handlers read all of this, hence the fixed tables. A process is listed while it has not
// been waited for, so that its number cannot be another's.
struct Started {
    std::atomic<pid_t> pid; // 0: the place is free
    std::atomic<int> pidFd;
    std::atomic<int> pipes[2]; // the reading ends of its output; -1: none
};
constexpr int mostStarted = 256;
constexpr int mostFiles = 1024;
constexpr int mostOrphans = 1024;
constexpr std::size_t longestFileName = 255;
std::array<Started, mostStarted> started;
std::array<char[longestFileName + 1], mostFiles> files; // an empty name: the place is free
std::atomic<int> nFiles;
std::atomic<pid_t> owner; // of the tables: a child that was forked elsewhere leaves them alone
std::array<char, 64> mark;

// The user's program: signals are passed on to it while it runs, and to what it leaves behind
// while that is waited for.
std::atomic<pid_t> program;
std::atomic<int> programFd{-1};
std::atomic<bool> programMatters, programStarted, programWasTold; // to end

std::atomic<long> lastLook, stoppedTime; // nanoseconds; the first of CLOCK_MONOTONIC

constexpr long graceAtEnd = 5000, graceOfHelpers = 1000; // milliseconds; without a launcher

long nanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

long milliseconds() { return nanoseconds() / 1'000'000; }

// A stopped process would not hear of it.
void signalStarted(int pidFd, int signal)
{
    syscall(SYS_pidfd_send_signal, pidFd, signal, nullptr, 0);
    if (signal == SIGTERM)
        syscall(SYS_pidfd_send_signal, pidFd, SIGCONT, nullptr, 0);
}

void signalOrphan(pid_t pid, int signal)
{
    kill(pid, signal); // a child that has not been waited for: the number is its own
    if (signal == SIGTERM)
        kill(pid, SIGCONT);
}

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

// True when the environment that a process was given has the mark of this origin. False for one
// that does not let itself be looked at, and for a zombie.
bool hasMark(pid_t pid, Origin origin)
{
    std::array<char, sizeof mark + 1> wanted{};
    std::strcpy(wanted.data(), mark.data());
    const std::size_t length = std::strlen(wanted.data()) + 1;
    wanted[length - 1] = static_cast<char>(origin);
    const int fd = openOf(pid, "/environ");
    std::array<char, 8192> text;
    std::size_t kept = 0; // of what was read before, as the mark may lie across
    bool found = false;
    for (ssize_t got = 1; fd >= 0 && got > 0 && !found;) {
        got = read(fd, text.data() + kept, text.size() - kept);
        const std::size_t end = kept + static_cast<std::size_t>(std::max<ssize_t>(got, 0));
        found = memmem(text.data(), end, wanted.data(), length) != nullptr;
        kept = std::min(end, length);
        std::memmove(text.data(), text.data() + end - kept, kept);
    }
    close(fd);
    return found;
}

// Calls visit with each process that others have left behind: orphans become children of this
// process, which is their subreaper; those that are not listed are such, or were there before.
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
    return hasMark(pid, origin) && (origin == Origin::helper || !isDaemon(pid));
}

void say(const char* text)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

void endOrphansOf(Origin origin, long grace)
{
    constexpr long step = 10, hopeless = 2000; // milliseconds
    std::array<pid_t, mostOrphans> told;
    std::size_t nTold = 0;
    const long until = milliseconds() + grace;
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

void sayWhichDaemonsGoOn()
{
    eachOrphan([](pid_t pid) {
        if (!hasMark(pid, Origin::program) || !isDaemon(pid))
            return;
        char name[64] = "";
        const int fd = openOf(pid, "/comm");
        const ssize_t got = fd < 0 ? 0 : read(fd, name, sizeof name - 1);
        close(fd);
        name[std::max<ssize_t>(got - 1, 0)] = 0; // without the end of the line
        say(program_invocation_short_name);
        say(": the program has left ");
        say(name);
        say(" running, in a session of its own: it goes on\n");
    });
}

// Async-signal-safe.
void cleanUp()
{
    if (owner != getpid())
        return;
    for (Started& process : started)
        if (const pid_t pid = process.pid) {
            closePipesOf(pid);
            signalStarted(process.pidFd, SIGTERM);
        }
    const long until = milliseconds() + graceAtEnd;
    for (Started& process : started)
        if (const pid_t pid = process.pid) {
            pollfd end{process.pidFd, POLLIN, 0};
            while (poll(&end, 1, static_cast<int>(std::max(until - milliseconds(), 0L))) < 0) {
            }
            signalStarted(process.pidFd, SIGKILL);
            poll(&end, 1, graceAtEnd); // its orphans are adopted by then
            waitpid(pid, nullptr, WNOHANG);
            process.pid = 0;
        }
    endOrphansOf(Origin::helper, graceOfHelpers);
    endOrphansOf(Origin::program, graceAtEnd);
    if (programStarted)
        sayWhichDaemonsGoOn();
    for (int i = nFiles; i-- > 0;) // folders were listed before what is in them
        if (const char* name = files[static_cast<std::size_t>(i)]; *name && unlink(name) != 0)
            rmdir(name);
    owner = 0;
}

void endBySignal(int signal)
{
    say(program_invocation_short_name);
    say(": interrupted\n");
    cleanUp();
    std::signal(signal, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    raise(signal);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);
}

// What the terminal sends has reached the program as well, which decides what it means.
void onEnd(int signal, siginfo_t* info, void*)
{
    const int error = errno;
    if (owner != getpid()) {
        std::signal(signal, SIG_DFL);
        raise(signal);
        return;
    }
    if (!programMatters)
        return endBySignal(signal);
    if (info->si_code != SI_KERNEL || (signal != SIGINT && signal != SIGQUIT)) {
        bool any = programFd >= 0;
        programWasTold = true;
        if (any)
            syscall(SYS_pidfd_send_signal, programFd.load(), signal, nullptr, 0);
        else
            eachOrphan([&any, signal](pid_t pid) {
                if (belongsTo(pid, Origin::program)) {
                    any = true;
                    kill(pid, signal);
                }
            });
        if (!any)
            endBySignal(signal);
    }
    errno = error;
}

// What has passed since this process looked at the time last it has not lived through.
void onContinue(int, siginfo_t* info, void*)
{
    const int error = errno;
    const long now = nanoseconds();
    const long before = lastLook.exchange(now);
    if (before > 0)
        stoppedTime += now - before;
    if (owner == getpid() && programFd >= 0 && info->si_code != SI_KERNEL)
        syscall(SYS_pidfd_send_signal, programFd.load(), SIGCONT, nullptr, 0);
    errno = error;
}

void handle(int signal, void (*handler)(int, siginfo_t*, void*))
{
    struct sigaction before {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_DFL)
        return; // nohup ignores SIGHUP
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigfillset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

} // namespace

void installCleanUp()
{
    if (owner.exchange(getpid()) == getpid())
        return;
    std::snprintf(mark.data(), mark.size(), "MOSA_STARTED_BY=%d.%ld.", getpid(), nanoseconds());
    static const int once = std::atexit(cleanUp);
    static_cast<void>(once);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::signal(SIGCHLD, SIG_DFL); // ignored, it would take the children's status away
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        handle(signal, onEnd);
    handle(SIGCONT, onContinue);
}

std::string markOf(Origin origin) { return std::string(mark.data()) + static_cast<char>(origin); }

bool listStarted(pid_t pid, int pidFd, const int (&pipes)[2], Origin origin)
{
    for (Started& process : started) {
        pid_t none = 0;
        if (process.pid.compare_exchange_strong(none, pid)) {
            process.pidFd = pidFd;
            std::ranges::copy(pipes, process.pipes);
            if (origin == Origin::program) {
                programFd = pidFd;
                program = pid;
                programMatters = programStarted = true;
            }
            return true;
        }
    }
    return false;
}

void unlistStarted(pid_t pid)
{
    if (program == pid) {
        programFd = -1;
        program = 0;
    }
    for (Started& process : started)
        if (process.pid == pid)
            process.pid = 0;
}

bool closePipesOf(pid_t pid)
{
    bool any = false;
    for (Started& process : started)
        if (process.pid == pid)
            for (std::atomic<int>& pipe : process.pipes)
                if (const int fd = pipe.exchange(-1); fd >= 0) {
                    any = true;
                    close(fd);
                }
    return any;
}

void endOrphans(Origin origin, Timeout grace) { endOrphansOf(origin, grace.count()); }

bool programLeftSomething()
{
    bool any = false;
    if (programWasTold)
        return false;
    eachOrphan([&any](pid_t pid) {
        any |= waitpid(pid, nullptr, WNOHANG) == 0 && hasMark(pid, Origin::program);
    });
    return any;
}

void programIsDone() { programMatters = false; }

void followStops()
{
    // Seen twice, a while apart: what stops or continues both at once is not seen in between.
    constexpr long apart = 50'000'000; // nanoseconds
    static long since = 0;
    siginfo_t stop{};
    const pid_t pid = program;
    const bool stopped =
        pid > 0 &&
        waitid(P_PID, static_cast<id_t>(pid), &stop, WSTOPPED | WNOHANG | WNOWAIT) == 0 &&
        stop.si_pid == pid &&
        (stop.si_status == SIGTSTP || stop.si_status == SIGTTIN || stop.si_status == SIGTTOU);
    const long now = nanoseconds();
    if (!stopped)
        since = 0;
    else if (since == 0)
        since = now;
    else if (now - since > apart) {
        since = 0;
        kill(getpid(), SIGTSTP); // without a shell that could continue it nothing happens
    }
}

JobClock::time_point JobClock::now()
{
    const long now = nanoseconds();
    lastLook = now;
    return time_point(std::chrono::nanoseconds(now - stoppedTime));
}

void dieOf(int signal)
{
    cleanUp();
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none); // the program's own is what counts
    std::fflush(nullptr);
    std::signal(signal, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);
    raise(signal);
    _exit(128 + signal);
}

bool listFile(const std::string& name)
{
    const std::size_t place = static_cast<std::size_t>(nFiles);
    if (place == files.size() || name.size() > longestFileName)
        return false;
    std::strcpy(files[place], name.c_str());
    ++nFiles;
    return true;
}

void unlistFile(const std::string& name)
{
    for (auto& file : files)
        if (name == file)
            *file = 0;
}
