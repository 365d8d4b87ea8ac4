// Jobs whose output is for a person: without what mpiexec says about the end of a job.
#pragma once

#include "tools/drawing.h"
#include "tools/jobEnding.h"
#include "tools/nodeWatch.h"
#include "tools/presence.h"

#include <chrono>
#include <cstdio>
#include <functional>
#include <string_view>

/// What is to be done while the last frame is on the wall, in this order.
struct LastFrame {
    std::function<void()> picture; // takes one, or throws std::runtime_error
    std::string then;              // a shell command
    double hold = 0;               // seconds
};

/// The standard output or error of a job that runs.
struct JobStream {
    int fd = -1;             // the reading end of its pipe; -1 once it has ended
    std::FILE* to = nullptr; // where lines go; nullptr: to `kept`
    std::string line;        // without its end so far
    std::string kept, remarks;
    int blanks = 0;            // empty lines not yet passed on: one begins mpiexec's remarks
    bool keepsFigures = false; // as in Job:
    std::map<std::string, std::string> figures; // the latest, by server
    bool any = false;                           // it had lines of the tasks
};

/// A job that runs.
struct JobWatch {
    Process process;
    JobStream out, err;
    NodeWatch nodes;
    Presence presence; // for other runs of mosa-wall
    std::string nodeTrouble;        // for which the job has been stopped
    std::vector<std::string> hosts; // of the servers, as in Job
    bool label = false;             // as in Job
    int reports = -1;               // play's, where it is the client. It has told
    bool ready = false;             // that a program can connect,
    Drawing drawing = {};           // how programs draw,
    bool shown = false;             // and that the last frame is on the wall
};

/// Starts a job whose output is passed on, or kept, as by watchJob.
JobWatch startWatch(const Job& job, std::FILE* to);

/// Passes output on until the job has ended (true); or until another program has ended or the time
/// has come, and passUntilTold also until play has told something.
bool passOutput(JobWatch& watch, JobClock::time_point until, int otherPidFd = -1);
bool passUntilTold(JobWatch& watch, JobClock::time_point until, int otherPidFd = -1);

/// Does what there is to be done with the last frame. Returns what went wrong.
std::string useLastFrame(JobWatch& watch, const LastFrame& last);

/// Ends the client's waiting with the last frame, and waits for the job's end.
JobEnding finishWatch(JobWatch& watch, Timeout timeout);

/// Runs a job to its end; `timeout` is for playing and for ending each. Passes on what the tasks
/// write, line by line: their standard output to `to` and their errors to standard error; without
/// `to` it keeps both. When the client is `play --wait`, the job's inputPipe is set, and this does
/// what there is to be done with the last frame before the client ends.
JobEnding watchJob(const Job& job, const LastFrame& last, Timeout timeout, std::FILE* to);
