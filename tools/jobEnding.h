// How jobs end, in words for people: of what mpiexec says about it only what is true.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

/// How a job ended. mpiexec's remarks stand apart from its tasks' output: the exit code that they
/// name is made of all tasks' codes, and so is the signal that they take it for.
struct JobEnding {
    int status = 0;          // mpiexec's
    bool timedOut = false;   // it was stopped
    std::string nodeTrouble; // for which it was stopped
    bool complained = false; // there was something on standard error
    std::string trouble;     // with the last frame
    std::string out, err;    // of the tasks, when it was not passed on
    std::string remarks;
    std::string endedFirst;         // which task, on several hosts: mpiexec may lose what MPI said
    bool clientKilled = false;      // and not ended by itself, or by MPI
    bool clientEndedToo = false;    // by the time that this server's end was heard of
    std::vector<std::string> hosts; // of the servers, as in Job
    std::map<std::string, std::string> figures = {}; // the latest, by server
    std::map<int, std::string> servers = {};         // as in NodeWatch
};

/// True for a line that mpiexec says itself.
bool isRemark(std::string_view line);

/// True for what servers say when all is well, behind the task's number perhaps.
bool isInformation(std::string_view line);

/// What follows a text, up to the next of these characters; empty without it.
std::string wordAfter(const std::string& text, const std::string& before, const char* end);

/// Says in one line how a job failed, if it did. Returns the exit status.
int reportEnding(const JobEnding& ending);
