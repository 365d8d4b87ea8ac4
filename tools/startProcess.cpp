// The start of a process: what lies between fork and exec, and what is undone when it fails.
#include "tools/cleanUp.h"
#include "tools/started.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& what, int error)
{
    throw std::runtime_error(what + ": " + std::strerror(error));
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

// The child's side of startProcess, between fork and exec: async-signal-safe calls only. `ends` are
// its standard input, output and error, where they are not -1. Returns with errno set when the
// program cannot be run.
void becomeHelper(const int (&ends)[3], int inheritedFd, pid_t parent, const char* path,
                  char** argv, char** environment)
{
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1); // it was killed before the line above
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE})
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

// Likewise, for the user's program: everything is as this process was given it itself, such as the
// signals that nohup ignores. Handlers end with exec.
void becomeUsersProgram(const sigset_t& mask, const char* path, char** argv, char** environment)
{
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGCONT}) {
        struct sigaction own {};
        sigaction(signal, nullptr, &own);
        if (own.sa_handler != SIG_IGN)
            std::signal(signal, SIG_DFL); // before the mask goes
    }
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    execve(path, argv, environment);
}

// Ends of pipes while a program is being started.
struct Ends {
    int child[3] = {-1, -1, -1}; // the program's standard input, output and error
    int failure[2] = {-1, -1};   // its errno comes through it when exec fails
    int pidFd = -1;              // until it is known that the program runs
    bool given[3] = {};          // those of `child` that are files which the parent keeps as well
    ~Ends()
    {
        for (int i = 0; i < 3; ++i)
            if (child[i] >= 0 && !given[i])
                close(child[i]);
        for (const int fd : {failure[0], failure[1], pidFd})
            if (fd >= 0)
                close(fd);
    }
};

void openEnds(const Command& command, Process& process, Ends& ends)
{
    if (command.inputPipe)
        openPipe(ends.child[0], process.in);
    if (command.output == Output::capture) {
        ends.given[1] = ends.given[2] = true;
        ends.child[1] = process.out = outputFile();
        ends.child[2] = process.err = outputFile();
    } else if (command.output == Output::pipe) {
        process.out = openOutputPipe(ends.child[1]);
        process.err = openOutputPipe(ends.child[2]);
    }
    if (pipe2(ends.failure, O_CLOEXEC) != 0)
        fail("pipe", errno);
}

void closeOwnEnds(Process& process)
{
    closeInput(process);
    for (const int fd : {process.out, process.err})
        if (fd >= 0)
            close(fd);
    process.out = process.err = -1;
}

// Forks and lists the program. Returns an error number: no program then runs.
int launch(const Command& command, const std::string& path, Process& process, Ends& ends)
{
    std::vector<std::string> arguments = command.argv;
    std::vector<std::string> additions = command.environment;
    const Origin origin = command.isUsers ? Origin::program : Origin::helper;
    additions.push_back(markOf(origin));
    std::vector<std::string> environment = mergedEnvironment(additions);
    std::vector<char*> argv = pointersTo(arguments);
    std::vector<char*> envp = pointersTo(environment);
    // No signal may end this process between the fork and the entry in the table. Nothing throws.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t parent = getpid();
    process.pid = fork();
    if (process.pid == 0) {
        if (command.isUsers)
            becomeUsersProgram(before, path.c_str(), argv.data(), envp.data());
        else
            becomeHelper(ends.child, command.inheritedFd, parent, path.c_str(), argv.data(),
                         envp.data());
        const int error = errno;
        [[maybe_unused]] const ssize_t written = write(ends.failure[1], &error, sizeof error);
        _exit(127);
    }
    int error = process.pid < 0 ? errno : 0;
    if (process.pid > 0) {
        ends.pidFd = static_cast<int>(syscall(SYS_pidfd_open, process.pid, 0));
        const bool piped = command.output == Output::pipe;
        if (ends.pidFd < 0)
            error = errno;
        else if (!listStarted(process.pid, ends.pidFd,
                              {piped ? process.out : -1, piped ? process.err : -1}, origin,
                              command.isLauncher))
            error = EAGAIN; // too many at once
        if (error)
            kill(process.pid, SIGKILL);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(ends.failure[1]);
    ends.failure[1] = -1;
    ssize_t got = -1;
    while (error == 0 && (got = read(ends.failure[0], &error, sizeof error)) < 0 &&
           errno == EINTR) {
    }
    if (process.pid > 0 && error) {
        unlistStarted(process.pid);
        waitpid(process.pid, nullptr, 0);
    }
    return error;
}

} // namespace

Process startProcess(const Command& command)
{
    const std::string path = findProgram(command.argv.at(0));
    if (path.empty())
        fail(command.argv[0], ENOENT);
    installCleanUp();
    Process process;
    Ends ends;
    process.isUsers = command.isUsers;
    process.isLauncher = command.isLauncher;
    int error = 0;
    try {
        openEnds(command, process, ends);
        error = launch(command, path, process, ends);
    } catch (...) {
        closeOwnEnds(process);
        throw;
    }
    if (error) {
        closeOwnEnds(process);
        fail(command.argv[0], error);
    }
    process.pidFd = ends.pidFd;
    ends.pidFd = -1;
    return process;
}
