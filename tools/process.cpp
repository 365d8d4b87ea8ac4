#include "tools/process.h"
#include "tools/started.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = JobClock;

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

int exitStatus(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

constexpr Timeout orphanGrace = std::chrono::seconds(2);

// Reaps a program that has ended.
Ending reap(Process& process)
{
    int status = 0;
    unlistStarted(process.pid);
    while (waitpid(process.pid, &status, 0) < 0 && errno == EINTR) {
    }
    close(process.pidFd);
    process.pid = -1;
    closeInput(process);
    return {.timedOut = false,
            .status = exitStatus(status),
            .signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            .out = takeContent(process.out),
            .err = takeContent(process.err)};
}

} // namespace

void closeInput(Process& process)
{
    if (process.in >= 0)
        close(process.in);
    process.in = -1;
}

std::string errorsSoFar(const Process& process) { return contentOf(process.err); }

bool waitForEnd(const Process& process, Timeout timeout)
{
    constexpr long step = 100; // milliseconds: the clock is to be asked
    const auto until = Clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::ceil<Timeout>(until - Clock::now()).count();
        pollfd end{process.pidFd, POLLIN, 0};
        const int ready = poll(&end, 1, static_cast<int>(std::clamp<long>(left, 0, step)));
        if (ready > 0 || left <= 0)
            return ready > 0;
        if (process.isUsers)
            followStops();
    }
}

Ending finishProcess(Process& process, Timeout timeout)
{
    if (process.pid < 0)
        return {};
    if (waitForEnd(process, timeout)) {
        const Ending ending = reap(process);
        if (!process.isUsers)
            endOrphans(Origin::helper, orphanGrace);
        return ending;
    }
    Ending ending = stopProcess(process);
    ending.timedOut = true;
    return ending;
}

Ending stopProcess(Process& process, Timeout grace)
{
    if (process.pid < 0)
        return {};
    if (closePipesOf(process.pid))
        process.out = process.err = -1;
    signalStarted(process.pidFd, SIGTERM);
    if (!waitForEnd(process, process.isLauncher ? std::min(grace, launcherGrace) : grace))
        signalProcess(process, SIGKILL);
    Ending ending = reap(process);
    endOrphans(process.isUsers ? Origin::program : Origin::helper, std::min(grace, orphanGrace));
    return ending;
}

void signalProcess(const Process& process, int signal)
{
    syscall(SYS_pidfd_send_signal, process.pidFd, signal, nullptr, 0);
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
