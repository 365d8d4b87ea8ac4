// What this process starts: helpers of its own, and the user's program. None outlives it
// (cleanUp.h). A helper has a session of its own, so that the terminal's signals do not reach it,
// an empty input, and gets a SIGTERM from the kernel when this process is killed outright. The
// program is started as a shell would: in this process's own group, with its terminal, input and
// signals. Main thread only.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

using Timeout = std::chrono::milliseconds;

/// Time that this process has lived through: it rests while the process is stopped (Ctrl-Z), as far
/// as it is asked at least twice a second otherwise.
struct JobClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<JobClock>;
    static constexpr bool is_steady = true;
    static time_point now();
};

/// What becomes of a program's standard output and error. With `pipe`, whoever started it reads
/// them.
enum class Output { inherit, capture, pipe };

/// A program to start.
struct Command {
    std::vector<std::string> argv;        // the first is looked up in PATH
    std::vector<std::string> environment; // NAME=value, on top of this process's own
    Output output = Output::inherit;
    int inheritedFd = -1;   // stays open in the program under its number
    bool inputPipe = false; // its standard input is a pipe; otherwise it is empty
    bool isUsers = false;   // the user's program, one at a time: signals are passed on to it
    bool isLauncher =
        false; // mpiexec: while it starts a job it is deaf, and is not waited for long
};

/// For a launcher to end after a SIGTERM; what it has started ends when it is gone.
inline constexpr Timeout launcherGrace = std::chrono::seconds(1);

/// A program that was started. Owned by whoever started it; copies name the same program.
struct Process {
    pid_t pid = -1; // -1 once it has been waited for
    int pidFd = -1;
    bool isUsers = false, isLauncher = false;
    // What it wrote so far, when captured; the reading ends, which do not block, of its pipes.
    int out = -1, err = -1;
    int in = -1; // the writing end of the pipe that is its standard input
};

/// How a program ended.
struct Ending {
    bool timedOut = false; // it was stopped
    int status = 0;        // exit status, or 128 plus the signal's number
    int signal = 0;        // that has ended it
    std::string out, err;  // when captured
};

/// Starts a program. Throws std::runtime_error, with its name, when it cannot be run.
Process startProcess(const Command& command);

/// What a program with captured output has written on standard error so far.
std::string errorsSoFar(const Process& process);

/// Ends the standard input of a program that has a pipe for it.
void closeInput(Process& process);

/// True while something runs that the user's program has left behind as it ended by itself.
bool programLeftSomething();

/// The user's program is done, and what it has left behind is not waited for: from now on signals
/// end this process.
void programIsDone();

/// Stops this process too when the terminal has stopped the user's program alone.
void followStops();

/// Ends this process by a signal, after cleaning up: what it stands for has ended so.
[[noreturn]] void dieOf(int signal);

/// Waits until a program ends. False when it still runs after that time.
bool waitForEnd(const Process& process, Timeout timeout);

/// Waits for a program's end; it is stopped after that time. What a helper has left behind is
/// ended.
Ending finishProcess(Process& process, Timeout timeout);

/// Stops a program: SIGTERM, and SIGKILL after `grace`; then what it has left behind likewise.
/// Pipes are closed before, so that it does not wait for a reader.
Ending stopProcess(Process& process, Timeout grace = std::chrono::seconds(10));

/// Sends a program a signal.
void signalProcess(const Process& process, int signal);

/// Starts a program and finishes it.
Ending runProcess(const Command& command, Timeout timeout);

/// The path of a program, as PATH leads to it, or an empty string.
std::string findProgram(const std::string& name);

/// Makes a file of this content with a name of its own, which is removed when this process ends.
/// Throws std::runtime_error.
std::string temporaryFile(const std::string& content);

/// The files of that name that this user's other processes have as they run.
std::vector<std::string> filesOfOthers(const std::string& name);

/// A name for a file or socket, in a folder that is this user's alone and is removed, with it, when
/// this process ends. What processes that were killed have left there is removed. Throws
/// std::runtime_error.
std::string temporaryName(const std::string& name);
