#include "tools/liveProgram.h"
#include "client/captureSocket.h"
#include "tools/usersProgram.h"

#include <cstdio>

namespace {

constexpr Timeout startTime = std::chrono::minutes(1); // for a job, until play is ready
constexpr Timeout endTime = std::chrono::minutes(1);
constexpr Timeout orphanGrace = std::chrono::seconds(10), orphanStep{50};

// Shows the program until its last frame is on the wall or the job has ended, which makes it true.
bool showProgram(JobWatch& watch, UsersProgram& program, const std::string& socket)
{
    // Until the program or the job has ended, the time is over or the program's stream.
    bool jobEnded = passOutput(watch, program.end, program.process.pidFd);
    auto until = JobClock::time_point::max();
    if (isTimeOver(program)) {
        stopUsersProgram(program);
        endWaiting(socket);
        until = JobClock::now() + endTime;
    } else if (hasEnded(program)) {
        // One that it has left behind may be about to draw.
        const JobClock::time_point latest = JobClock::now() + orphanGrace;
        while (!jobEnded && !watch.out.draws && programLeftSomething() && JobClock::now() < latest)
            jobEnded = passOutput(watch, JobClock::now() + orphanStep);
        endWaiting(socket); // if it has not connected by now
    }
    if (!jobEnded && !watch.out.shown)
        jobEnded = passOutput(watch, until);
    return jobEnded;
}

// A wall that fails does not take the program along, nor its time.
void letGoOn(UsersProgram& program)
{
    while (!isTimeOver(program) && !hasEnded(program, orphanStep)) {
    }
    stopUsersProgram(program);
}

} // namespace

int runLive(Job job, const LiveOptions& options, Size wall, int ahead, const LastFrame& last,
            std::FILE* to, bool virtualDesk)
{
    requireProgram(options);
    Desk desk;
    openDesk(desk, virtualDesk);
    const std::string socket = temporaryName("program");
    job.client.insert(job.client.end(), {"--live", socket, "--wait"});
    job.inputPipe = true;
    if (options.fit == "stretch")
        job.environment.emplace_back("MOSA_KEEP_ASPECT_RATIO=0");

    JobWatch watch = startWatch(job, to);
    bool jobEnded = passOutput(watch, JobClock::now() + startTime);
    if (!watch.out.ready) {
        const JobEnding ending = finishWatch(watch, Timeout{});
        std::fputs(ending.err.c_str(), stderr);
        reportEnding(ending);
        return 1; // the program was not started
    }

    UsersProgram program;
    std::vector<std::string> environment = desk.environment;
    environment.push_back("MOSA_CAPTURE_WALL=" + toText(wall));
    startUsersProgram(program, options, socket, ahead, environment);
    jobEnded = showProgram(watch, program, socket);
    if (hasEnded(program) || program.stopped)
        programIsDone();
    std::string trouble;
    if (!jobEnded && watch.out.shown)
        trouble = useLastFrame(watch, last);
    JobEnding ending = finishWatch(watch, endTime);
    ending.trouble = trouble;
    std::fputs(ending.out.c_str(), stderr); // play's summary
    if (ending.status != 0)
        std::fputs(ending.err.c_str(), stderr);
    const int jobStatus = reportEnding(ending);

    const bool drew = watch.out.draws;
    const bool timeWasOver = program.stopped;
    const bool isHeld = options.frames > 0 && !hasEnded(program); // at its last frame
    if (isHeld)
        stopUsersProgram(program);
    else
        letGoOn(program);
    programIsDone();
    if (program.ended && !timeWasOver)
        return statusOf(program, options, drew);
    if (timeWasOver && !drew)
        sayDrewNothing(options);
    return jobStatus == 0 && timeWasOver && !drew ? 1 : jobStatus;
}
