#include "tools/cleanUp.h"
#include "tools/started.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int mostFiles = 1024;
constexpr std::size_t longestFileName = 255;
std::array<char[longestFileName + 1], mostFiles> files; // an empty name: the place is free
std::atomic<int> nFiles;
std::atomic<pid_t> owner; // of all this: a child that was forked elsewhere leaves it alone

std::atomic<long> lastLook, stoppedTime; // nanoseconds; the first of CLOCK_MONOTONIC

constexpr long graceAtEnd = 5000;                           // milliseconds
constexpr Timeout graceOfHelpers = std::chrono::seconds(1); // without a launcher

// What runs at the end, made ready before: a signal handler makes no strings.
struct LastCommand {
    std::string text;
    std::vector<std::string> environment;
    std::vector<char*> argv, pointers;
};
LastCommand lastCommand;
std::atomic<bool> hasLastCommand;

// Async-signal-safe, as cleanUp.
void runLastCommand()
{
    constexpr int longest = 30'000; // milliseconds
    if (!hasLastCommand.exchange(false))
        return;
    const pid_t pid = fork();
    if (pid == 0) {
        setsid();
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        execve("/bin/sh", lastCommand.argv.data(), lastCommand.pointers.data());
        _exit(127);
    }
    int status = -1;
    pollfd end{static_cast<int>(syscall(SYS_pidfd_open, pid, 0)), POLLIN, 0};
    if (pid > 0 && poll(&end, 1, longest) == 0)
        kill(-pid, SIGKILL);
    if (pid > 0)
        waitpid(pid, &status, 0);
    if (status == 0)
        return;
    sayAtOnce("mosa-wall: the command failed: ");
    sayAtOnce(lastCommand.text.c_str());
    sayAtOnce("\n");
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
    const auto milliseconds = [] { return nanoseconds() / 1'000'000; };
    const long start = milliseconds();
    for (Started& process : started)
        if (const pid_t pid = process.pid) {
            const long grace = process.isLauncher ? launcherGrace.count() : graceAtEnd;
            pollfd end{process.pidFd, POLLIN, 0};
            while (poll(&end, 1, static_cast<int>(std::max(start + grace - milliseconds(), 0L))) <
                   0) {
            }
            signalStarted(process.pidFd, SIGKILL);
            poll(&end, 1, graceAtEnd); // its orphans are adopted by then
            waitpid(pid, nullptr, WNOHANG);
            process.pid = 0;
        }
    endOrphans(Origin::helper, graceOfHelpers);
    endOrphans(Origin::program, Timeout{graceAtEnd});
    sayWhichDaemonsGoOn();
    for (int i = nFiles; i-- > 0;) // folders were listed before what is in them
        if (const char* name = files[static_cast<std::size_t>(i)]; *name && unlink(name) != 0)
            rmdir(name);
    runLastCommand();
    owner = 0;
}

// Ends this process by a signal, once that is no longer blocked.
void raiseAsDefault(int signal)
{
    std::signal(signal, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    raise(signal);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);
}

void endBySignal(int signal)
{
    sayAtOnce(program_invocation_short_name);
    sayAtOnce(": interrupted\n");
    cleanUp();
    raiseAsDefault(signal);
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
    if (!users.matters)
        return endBySignal(signal);
    if (info->si_code != SI_KERNEL || (signal != SIGINT && signal != SIGQUIT)) {
        users.wasTold = true;
        if (users.pidFd >= 0)
            syscall(SYS_pidfd_send_signal, users.pidFd.load(), signal, nullptr, 0);
        else if (!signalProgramsOrphans(signal))
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
    if (owner == getpid() && users.pidFd >= 0 && info->si_code != SI_KERNEL)
        syscall(SYS_pidfd_send_signal, users.pidFd.load(), SIGCONT, nullptr, 0);
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
    installMark();
    static const int once = std::atexit(cleanUp);
    static_cast<void>(once);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::signal(SIGCHLD, SIG_DFL); // ignored, it would take the children's status away
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        handle(signal, onEnd);
    handle(SIGCONT, onContinue);
}

void programIsDone() { users.matters = false; }

void followStops()
{
    // Seen twice, a while apart: what stops or continues both at once is not seen in between.
    constexpr long apart = 50'000'000; // nanoseconds
    static long since = 0;
    siginfo_t stop{};
    const pid_t pid = users.pid;
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
    raiseAsDefault(signal);
    _exit(128 + signal);
}

void runAtEnd(const std::string& command, const std::string& environment)
{
    installCleanUp();
    LastCommand& last = lastCommand;
    last = {.text = command, .environment = {environment}, .argv = {}, .pointers = {}};
    const std::string name = environment.substr(0, environment.find('=') + 1);
    for (char** entry = environ; *entry; ++entry)
        if (!std::string_view(*entry).starts_with(name))
            last.environment.emplace_back(*entry);
    for (std::string& entry : last.environment)
        last.pointers.push_back(entry.data());
    last.pointers.push_back(nullptr);
    static char shell[] = "sh", asCommand[] = "-c";
    last.argv = {shell, asCommand, last.text.data(), nullptr};
    hasLastCommand = true;
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
