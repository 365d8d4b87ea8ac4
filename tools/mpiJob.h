// Jobs of one client and its servers.
#pragma once

#include "tools/about.h"
#include "tools/process.h"

#include <string>
#include <vector>

/// What to run.
struct Job {
    std::vector<std::string> client, server; // arguments, the program first
    int servers = 1;
    std::vector<std::string> environment; // NAME=value, of every task
    std::vector<std::string> options;     // more of mpiexec's, such as -f HOSTFILE
    std::vector<std::string> hosts = {};  // of each server, by its number; empty: this machine
    bool label = false;                   // each line of output begins with its task's number
    Output output = Output::capture;
    std::vector<std::string> secrets = {}; // environment that is not on the command line
    bool inputPipe = false;                // the client's standard input is a pipe
    bool clientTells = false;              // it is play, which tells how it goes
    bool keepsFigures = false;             // the servers' figures of each second are kept back
    std::optional<About> about = {};       // what it says to whoever asks; none: it does not
};

/// The whole command line, beginning with this machine's mpiexec. It sets the environment.
std::vector<std::string> jobLine(const Job& job);

/// The same as a line for a shell.
std::string shellLine(const std::vector<std::string>& argv);

/// Starts a job, or runs it and waits for its end. The output of all tasks is mpiexec's.
Process startJob(const Job& job);
Ending runJob(const Job& job, Timeout timeout);

/// The environment of servers on virtual displays: the wall file, no pause for the banner, this
/// machine's OpenGL library with the software renderer.
std::vector<std::string> virtualWallEnvironment(const std::string& wallFile);

/// The path of this machine's OpenGL library, for SYSTEM_OPENGL_LIB. Throws std::runtime_error.
std::string findSystemOpenGL();
