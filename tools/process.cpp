#include "tools/process.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// What must not outlive this process. Signal handlers read these, hence the fixed tables. A group
// is listed while its leader has not been waited for, so that its number cannot be another's.
struct Group {
    std::atomic<pid_t> pid; // 0: the place is free
    std::atomic<int> pidFd;
    std::atomic<int> pipes[2]; // the reading ends of its output; -1: none
};
constexpr int mostGroups = 256;
constexpr int mostFiles = 1024;
constexpr std::size_t longestFileName = 255;
std::array<Group, mostGroups> groups;
std::array<char[longestFileName + 1], mostFiles> files;
std::atomic<int> nFiles;
std::atomic<pid_t> owner; // of the tables: a child that was forked elsewhere leaves them alone

constexpr int graceAtEnd = 5000; // milliseconds

[[noreturn]] void fail(const std::string& what, int error)
{
    throw std::runtime_error(what + ": " + std::strerror(error));
}

// Calls visit with each program that others have left behind: orphans become children of this
// process, which is their subreaper; those that are not listed are such. Async-signal-safe.
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
        bool listed = pid == 0;
        for (const Group& group : groups)
            listed |= group.pid == pid;
        if (!listed)
            visit(pid);
        pid = 0;
    }
}

// Kills what programs that were killed have left behind: mpiexec's tasks have groups of their own,
// and while a job starts it does not pass a SIGTERM on. Async-signal-safe.
void killOrphans()
{
    for (bool any = true; any;) {
        any = false;
        eachOrphan([&any](pid_t pid) {
            any = true;
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        });
    }
}

// True when there were any. Async-signal-safe.
bool closePipes(Group& group)
{
    bool any = false;
    for (std::atomic<int>& pipe : group.pipes)
        if (const int fd = pipe.exchange(-1); fd >= 0) {
            any = true;
            close(fd);
        }
    return any;
}

// Stops every group and removes the files. Async-signal-safe.
void cleanUp()
{
    if (owner != getpid())
        return;
    for (Group& group : groups)
        if (const pid_t pid = group.pid) {
            closePipes(group);
            kill(-pid, SIGTERM);
        }
    timespec start{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (Group& group : groups)
        if (const pid_t pid = group.pid) {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            const auto spent = static_cast<int>(now.tv_sec - start.tv_sec) * 1000;
            pollfd end{group.pidFd, POLLIN, 0};
            poll(&end, 1, spent < graceAtEnd ? graceAtEnd - spent : 0);
            kill(-pid, SIGKILL);
            poll(&end, 1, graceAtEnd); // its orphans are adopted by then
            waitpid(pid, nullptr, WNOHANG);
            group.pid = 0;
        }
    killOrphans();
    for (int i = 0; i < nFiles; ++i)
        unlink(files[static_cast<std::size_t>(i)]);
}

void sayInterrupted()
{
    const char* const own = program_invocation_short_name;
    for (const char* text : {own, ": interrupted\n"}) {
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
    }
}

void endBySignal(int signal)
{
    if (owner == getpid())
        sayInterrupted();
    cleanUp();
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void installCleanUp()
{
    if (owner.exchange(getpid()) == getpid())
        return;
    std::atexit(cleanUp);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_DFL)
            continue; // nohup ignores SIGHUP
        struct sigaction action {};
        action.sa_handler = endBySignal;
        sigfillset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

void listGroup(pid_t pid, int pidFd, const int (&pipes)[2])
{
    for (Group& group : groups) {
        pid_t none = 0;
        if (group.pid.compare_exchange_strong(none, pid)) {
            group.pidFd = pidFd;
            std::ranges::copy(pipes, group.pipes);
            return;
        }
    }
    kill(-pid, SIGKILL);
    throw std::runtime_error("too many programs at once");
}

// Arguments or an environment as exec takes them; they live as long as `strings`.
std::vector<char*> pointersTo(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    for (std::string& string : strings)
        pointers.push_back(string.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& additions)
{
    std::vector<std::string> merged = additions;
    for (char** entry = environ; *entry; ++entry) {
        const std::string name(*entry, std::strcspn(*entry, "=") + 1);
        bool replaced = false;
        for (const std::string& addition : additions)
            replaced |= addition.starts_with(name);
        if (!replaced)
            merged.emplace_back(*entry);
    }
    return merged;
}

// A file in memory: it takes any amount of output without a reader.
int outputFile()
{
    const int fd = memfd_create("output", MFD_CLOEXEC);
    if (fd < 0)
        fail("output", errno);
    fcntl(fd, F_SETFL, O_APPEND);
    return fd;
}

void openPipe(int& reading, int& writing)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe", errno);
    reading = ends[0];
    writing = ends[1];
}

// For output: returns the reading end, which does not block.
int openOutputPipe(int& writing)
{
    int reading = -1;
    openPipe(reading, writing);
    fcntl(reading, F_SETFL, O_NONBLOCK);
    return reading;
}

std::string contentOf(int fd)
{
    std::string content;
    std::array<char, 65536> chunk;
    for (;;) {
        const ssize_t got =
            pread(fd, chunk.data(), chunk.size(), static_cast<off_t>(content.size()));
        if (got <= 0)
            return content;
        content.append(chunk.data(), static_cast<std::size_t>(got));
    }
}

std::string takeContent(int& fd)
{
    if (fd < 0)
        return {};
    std::string content = contentOf(fd);
    close(fd);
    fd = -1;
    return content;
}

// The child's side of startProcess, between fork and exec: async-signal-safe calls only. `ends` are
// its standard input, output and error, where they are not -1. Returns with errno set when the
// program cannot be run.
void becomeProgram(const int (&ends)[3], int inheritedFd, pid_t parent, const char* path,
                   char** argv, char** environment)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1); // it was killed before the line above
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGPIPE})
        std::signal(signal, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (ends[standard] >= 0)
            dup2(ends[standard], standard);
    if (inheritedFd >= 0)
        fcntl(inheritedFd, F_SETFD, 0);
    execve(path, argv, environment);
}

int exitStatus(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void unlistGroup(pid_t pid)
{
    for (Group& group : groups)
        if (group.pid == pid)
            group.pid = 0;
}

// Reaps a program that has ended, with what is left of its group.
Ending reap(Process& process)
{
    kill(-process.pid, SIGKILL);
    int status = 0;
    unlistGroup(process.pid);
    while (waitpid(process.pid, &status, 0) < 0 && errno == EINTR) {
    }
    close(process.pidFd);
    process.pid = -1;
    closeInput(process);
    return {.timedOut = false,
            .status = exitStatus(status),
            .out = takeContent(process.out),
            .err = takeContent(process.err)};
}

} // namespace

Process startProcess(const Command& command)
{
    const std::string path = findProgram(command.argv.at(0));
    if (path.empty())
        fail(command.argv[0], ENOENT);
    installCleanUp();
    Process process;
    int ends[3] = {-1, -1, -1}; // the program's standard input, output and error
    if (command.inputPipe)
        openPipe(ends[0], process.in);
    else if (command.inheritInput)
        ends[0] = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (command.output == Output::capture) {
        ends[1] = process.out = outputFile();
        ends[2] = process.err = outputFile();
    } else if (command.output == Output::pipe) {
        process.out = openOutputPipe(ends[1]);
        process.err = openOutputPipe(ends[2]);
    }
    std::vector<std::string> arguments = command.argv;
    std::vector<std::string> environment = mergedEnvironment(command.environment);
    std::vector<char*> argv = pointersTo(arguments);
    std::vector<char*> envp = pointersTo(environment);
    int failure[2]; // the child's errno comes through it when exec fails
    if (pipe2(failure, O_CLOEXEC) != 0)
        fail(command.argv[0], errno);

    // No signal may end this process between the fork and the entry in the table.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t parent = getpid();
    process.pid = fork();
    if (process.pid == 0) {
        becomeProgram(ends, command.inheritedFd, parent, path.c_str(), argv.data(), envp.data());
        const int error = errno;
        [[maybe_unused]] const ssize_t written = write(failure[1], &error, sizeof error);
        _exit(127);
    }
    int error = process.pid < 0 ? errno : 0;
    if (process.pid > 0) {
        setpgid(process.pid, process.pid); // the child does it too; the first of the two counts
        process.pidFd = static_cast<int>(syscall(SYS_pidfd_open, process.pid, 0));
        if (process.pidFd < 0)
            error = errno;
        const bool piped = command.output == Output::pipe;
        listGroup(process.pid, process.pidFd, {piped ? process.out : -1, piped ? process.err : -1});
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(failure[1]);
    for (const int end : ends)
        if (end >= 0 && end != process.out && end != process.err)
            close(end);
    if (process.pid > 0 && (error || read(failure[0], &error, sizeof error) > 0))
        reap(process);
    close(failure[0]);
    if (error)
        fail(command.argv[0], error);
    return process;
}

void closeInput(Process& process)
{
    if (process.in >= 0)
        close(process.in);
    process.in = -1;
}

std::string errorsSoFar(const Process& process) { return contentOf(process.err); }

bool hasOrphans()
{
    bool any = false;
    eachOrphan([&any](pid_t pid) { any |= waitpid(pid, nullptr, WNOHANG) == 0; });
    return any;
}

bool waitForEnd(const Process& process, Timeout timeout)
{
    const auto until = Clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::duration_cast<Timeout>(until - Clock::now()).count();
        pollfd end{process.pidFd, POLLIN, 0};
        const int ready = poll(&end, 1, static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

Ending finishProcess(Process& process, Timeout timeout)
{
    if (process.pid < 0)
        return {};
    if (waitForEnd(process, timeout))
        return reap(process);
    Ending ending = stopProcess(process);
    ending.timedOut = true;
    return ending;
}

Ending stopProcess(Process& process, Timeout grace)
{
    if (process.pid < 0)
        return {};
    for (Group& group : groups)
        if (group.pid == process.pid && closePipes(group))
            process.out = process.err = -1;
    kill(-process.pid, SIGTERM);
    waitForEnd(process, grace);
    Ending ending = reap(process);
    killOrphans();
    return ending;
}

Ending runProcess(const Command& command, Timeout timeout)
{
    Process process = startProcess(command);
    return finishProcess(process, timeout);
}

std::string findProgram(const std::string& name)
{
    if (name.find('/') != std::string::npos)
        return access(name.c_str(), X_OK) == 0 ? name : std::string();
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::error_code none;
        const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0 &&
            std::filesystem::is_regular_file(candidate, none))
            return candidate;
    }
    return {};
}

std::string temporaryFile(const std::string& content)
{
    installCleanUp();
    const int place = nFiles;
    if (place == mostFiles)
        throw std::runtime_error("too many temporary files");
    std::string name = std::filesystem::temp_directory_path() / "mosa-XXXXXX";
    const int fd = name.size() <= longestFileName ? mkostemp(name.data(), O_CLOEXEC) : -1;
    if (fd < 0)
        fail(name, errno);
    std::strcpy(files[static_cast<std::size_t>(place)], name.c_str());
    nFiles = place + 1;
    const ssize_t written = write(fd, content.data(), content.size());
    close(fd);
    if (written != static_cast<ssize_t>(content.size()))
        fail(name, errno);
    return name;
}
