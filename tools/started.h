// What this process has started and not waited for, and what that has left behind. Signal handlers
// read all of it, hence fixed tables; all but installMark is async-signal-safe.
#pragma once

#include "tools/process.h"

#include <array>
#include <atomic>

/// Who started something: helpers are this process's own, a program is the user's.
enum class Origin : char { helper = 'h', program = 'p' };

/// A process is listed while it has not been waited for, so that its number cannot be another's.
struct Started {
    std::atomic<pid_t> pid; // 0: the place is free
    std::atomic<int> pidFd;
    std::atomic<int> pipes[2]; // the reading ends of its output; -1: none
    std::atomic<bool> isLauncher;
};
constexpr int mostStarted = 256;
extern std::array<Started, mostStarted> started;

/// The user's program: signals are passed on to it while it runs, and to what it leaves behind
/// while that is waited for.
struct UsersOwn {
    std::atomic<pid_t> pid;
    std::atomic<int> pidFd{-1};
    std::atomic<bool> matters, wasStarted, wasTold; // to end
};
extern UsersOwn users;

/// Makes the mark that this process's children carry, and notes which there are already.
void installMark();

/// The mark, NAME=value.
std::string markOf(Origin origin);

/// Lists what has been started. `pipes` are the reading ends of its output, or -1. False when there
/// are too many.
bool listStarted(pid_t pid, int pidFd, const int (&pipes)[2], Origin origin, bool isLauncher);
void unlistStarted(pid_t pid);

/// Closes the reading ends of its output. False when it has none.
bool closePipesOf(pid_t pid);

/// Sends a signal. What is stopped is continued where it is to end: it would not hear of it.
void signalStarted(int pidFd, int signal);

/// Ends what those of one origin have left behind: SIGTERM, and SIGKILL after `grace`. A program's
/// daemons, in sessions of their own, are left alone.
void endOrphans(Origin origin, Timeout grace);

/// Sends what the program has left behind a signal. False when there is nothing.
bool signalProgramsOrphans(int signal);

void sayWhichDaemonsGoOn();

/// Writes a text to standard error.
void sayAtOnce(const char* text);

long nanoseconds();
