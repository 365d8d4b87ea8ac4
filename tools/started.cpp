#include "tools/started.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

std::array<Started, mostStarted> started;
UsersOwn users;

long nanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

void sayAtOnce(const char* text)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

void signalStarted(int pidFd, int signal)
{
    syscall(SYS_pidfd_send_signal, pidFd, signal, nullptr, 0);
    if (signal == SIGTERM)
        syscall(SYS_pidfd_send_signal, pidFd, SIGCONT, nullptr, 0);
}

bool listStarted(pid_t pid, int pidFd, const int (&pipes)[2], Origin origin, bool isLauncher)
{
    for (Started& process : started) {
        pid_t none = 0;
        if (process.pid.compare_exchange_strong(none, pid)) {
            process.pidFd = pidFd;
            process.isLauncher = isLauncher;
            std::ranges::copy(pipes, process.pipes);
            if (origin == Origin::program) {
                users.pidFd = pidFd;
                users.pid = pid;
                users.matters = users.wasStarted = true;
            }
            return true;
        }
    }
    return false;
}

void unlistStarted(pid_t pid)
{
    if (users.pid == pid) {
        users.pidFd = -1;
        users.pid = 0;
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
