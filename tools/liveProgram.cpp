#include "tools/liveProgram.h"
#include "client/captureSocket.h"
#include "client/captureVariables.h"
#include "tools/frameLock.h"
#include "tools/usersProgram.h"
#include "wire/pointerMessages.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr Timeout startTime = std::chrono::minutes(1); // for a job, until play is ready
constexpr Timeout endTime = std::chrono::minutes(1);
constexpr Timeout step{50}; // to look after what the program has left behind

enum class State {
    starting, // the job
    waiting,  // for the programs' end, and what they draw is shown
    ending,   // the last frame is on its way to the wall
    shown,    // it is there
    ended,
};
enum class EndedBy { nobody, job, time, frames, program };

struct Run {
    const LiveOptions& options;
    std::string socket;
    int ahead;
    std::vector<std::string> environment; // of the program
    JobWatch watch;
    UsersProgram program = {};
    EndedBy endedBy = EndedBy::nobody;
    std::string trouble = {}; // with the last frame
};

State endOfJob(Run& run)
{
    if (run.endedBy == EndedBy::nobody)
        run.endedBy = EndedBy::job;
    return State::ended;
}

State start(Run& run)
{
    passUntilTold(run.watch, JobClock::now() + startTime);
    if (!run.watch.ready)
        return endOfJob(run); // and the program is not started
    startUsersProgram(run.program, run.options, run.socket, run.ahead, run.environment);
    return State::waiting;
}

// Who has ended the show by now.
EndedBy whoEnds(Run& run)
{
    if (isTimeOver(run.program))
        return EndedBy::time;
    if (isHeld(run.program, run.options, run.watch.drawing))
        return EndedBy::frames;
    return mayStillDraw(run.program, run.watch.drawing) ? EndedBy::nobody : EndedBy::program;
}

State wait(Run& run)
{
    UsersProgram& program = run.program;
    const bool runs = !hasEnded(program);
    const auto until = runs ? program.end : std::min(program.end, JobClock::now() + step);
    if (passUntilTold(run.watch, until, runs ? program.process.pidFd : -1))
        return endOfJob(run);
    run.endedBy = whoEnds(run);
    if (run.endedBy == EndedBy::nobody)
        return State::waiting;
    if (run.endedBy == EndedBy::time)
        stopUsersProgram(program);
    endWaiting(run.socket); // what is connected may still have much to show
    return State::ending;
}

State awaitLastFrame(Run& run)
{
    const auto until =
        run.endedBy == EndedBy::time ? JobClock::now() + endTime : JobClock::time_point::max();
    while (!run.watch.shown && JobClock::now() < until)
        if (passUntilTold(run.watch, until))
            return endOfJob(run);
    return run.watch.shown ? State::shown : State::ended;
}

State show(Run& run, const LastFrame& last)
{
    run.trouble = useLastFrame(run.watch, last);
    return State::ended;
}

// A wall that fails does not take the program along, nor its time.
void letGoOn(UsersProgram& program)
{
    while (!isTimeOver(program) && !hasEnded(program, step)) {
    }
}

// Ends what has not ended, and says what there is to be said. Returns the exit status.
int conclude(Run& run)
{
    UsersProgram& program = run.program;
    const bool wasStarted = run.watch.ready;
    if (wasStarted && (program.stopped || hasEnded(program)))
        programIsDone();
    JobEnding ending = finishWatch(run.watch, wasStarted ? endTime : Timeout{});
    ending.trouble = run.trouble;
    std::fputs(wasStarted ? ending.out.c_str() : "", stderr); // play's summary
    if (ending.status != 0 || !wasStarted)
        std::fputs(ending.err.c_str(), stderr);
    const int jobStatus = reportEnding(ending);
    if (!wasStarted)
        return 1;

    if (run.endedBy == EndedBy::job)
        letGoOn(program);
    stopUsersProgram(program);
    programIsDone();
    const bool drew = run.watch.drawing.begun > 0;
    if (program.ended)
        return statusOf(program, run.options, drew);
    if (!drew)
        sayDrewNothing(run.options);
    return jobStatus == 0 && !drew ? 1 : jobStatus;
}

// The mouse pointer of the program's display on the wall.
void showPointer(Job& job, const std::string& fit, Size wall)
{
    job.client.insert(job.client.end(), {"--pointer", toText(wall) + ":" + fit});
    job.environment.push_back(std::string(pointerVariable) + "=" +
                              (job.hosts.empty() ? "127.0.0.1" : ownHostName()));
    job.secrets.push_back(std::string(pointerSecretVariable) + "=" + newSecret());
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
    if (options.pointer.value_or(desk.displays.empty() &&
                                 !last.picture)) // a picture is of the program
        showPointer(job, options.fit, wall);
    if (options.fit == "stretch")
        job.environment.emplace_back("MOSA_KEEP_ASPECT_RATIO=0");
    Run run{.options = options,
            .socket = socket,
            .ahead = ahead,
            .environment = desk.environment,
            .watch = startWatch(job, to)};
    run.environment.push_back(captureVariables::wall + ("=" + toText(wall)));

    State state = State::starting;
    while (state != State::ended)
        state = state == State::starting  ? start(run)
                : state == State::waiting ? wait(run)
                : state == State::ending  ? awaitLastFrame(run)
                                          : show(run, last);
    return conclude(run);
}
