// Jobs whose output is for a person: without what mpiexec says about the end of a job.
#pragma once

#include "client/mpiJob.h"

#include <cstdio>
#include <string_view>

/// How a job ended. mpiexec's remarks stand apart from its tasks' output: the exit code that they
/// name is made of all tasks' codes, and so is the signal that they take it for.
struct JobEnding {
    int status = 0;          // mpiexec's
    int interruptedBy = 0;   // the signal, when one stopped it
    bool timedOut = false;   // it was stopped
    bool complained = false; // there was something on standard error
    std::string out, err;    // of the tasks, when it was not passed on
    std::string remarks;
};

/// True for a line that mpiexec says itself.
bool isRemark(std::string_view line);

/// Runs a job to its end, or until SIGHUP, SIGINT or SIGTERM stops it. Passes on what the tasks
/// write, line by line: their standard output to `to` and their errors to standard error; without
/// `to` it keeps both.
JobEnding watchJob(const Job& job, Timeout timeout, std::FILE* to);

/// Says in one line how a job failed, if it did. Returns the exit status.
int reportEnding(const JobEnding& ending);
