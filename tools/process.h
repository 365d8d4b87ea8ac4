// Programs that this process starts. Each has a process group of its own, and none outlives this
// process: they are stopped, with what they started, when it exits and when SIGHUP, SIGINT or
// SIGTERM ends it, which it says on standard error. When it is killed outright, the kernel sends
// them a SIGTERM. Main thread only.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

using Timeout = std::chrono::milliseconds;

/// What becomes of a program's standard output and error. With `pipe`, whoever started it reads
/// them.
enum class Output { inherit, capture, pipe };

/// A program to start.
struct Command {
    std::vector<std::string> argv;        // the first is looked up in PATH
    std::vector<std::string> environment; // NAME=value, on top of this process's own
    Output output = Output::inherit;
    int inheritedFd = -1;      // stays open in the program under its number
    bool inputPipe = false;    // its standard input is a pipe; otherwise it is empty,
    bool inheritInput = false; // or this process's own
};

/// A program that was started. Owned by whoever started it; copies name the same program.
struct Process {
    pid_t pid = -1; // and its group's; -1 once it has been waited for
    int pidFd = -1;
    // What it wrote so far, when captured; the reading ends, which do not block, of its pipes.
    int out = -1, err = -1;
    int in = -1; // the writing end of the pipe that is its standard input
};

/// How a program ended.
struct Ending {
    bool timedOut = false; // it was stopped
    int status = 0;        // exit status, or 128 plus the signal's number
    std::string out, err;  // when captured
};

/// Starts a program. Throws std::runtime_error, with its name, when it cannot be run.
Process startProcess(const Command& command);

/// What a program with captured output has written on standard error so far.
std::string errorsSoFar(const Process& process);

/// Ends the standard input of a program that has a pipe for it.
void closeInput(Process& process);

/// True while something runs that a program has left behind as it ended.
bool hasOrphans();

/// Waits until a program ends. False when it still runs after that time.
bool waitForEnd(const Process& process, Timeout timeout);

/// Waits for a program's end and what is left of its group, which are stopped after that time.
Ending finishProcess(Process& process, Timeout timeout);

/// Stops a program and its group: SIGTERM, and SIGKILL to what is left after `grace`. Pipes are
/// closed before, so that it does not wait for a reader.
Ending stopProcess(Process& process, Timeout grace = std::chrono::seconds(10));

/// Starts a program and finishes it.
Ending runProcess(const Command& command, Timeout timeout);

/// The path of a program, as PATH leads to it, or an empty string.
std::string findProgram(const std::string& name);

/// Makes a file of this content with a name of its own, which is removed when this process ends.
/// Throws std::runtime_error.
std::string temporaryFile(const std::string& content);
