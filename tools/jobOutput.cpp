#include "tools/jobOutput.h"
#include "client/playReports.h"

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

void passText(JobStream& stream, const std::string& text)
{
    if (stream.to)
        std::fwrite(text.data(), 1, text.size(), stream.to);
    else
        stream.kept += text;
}

void passLine(JobStream& stream, const std::string& line)
{
    if (line == "\n") {
        ++stream.blanks;
        return;
    }
    if (isRemark(line)) {
        stream.blanks = 0;
        stream.remarks += line;
        return;
    }
    if (const std::string server = wordAfter(line, "MOSA: server ", ",");
        stream.keepsFigures && !server.empty() && line.find(", last ") != line.npos) {
        stream.figures[server] = line;
        return;
    }
    const std::string text = std::string(static_cast<std::size_t>(stream.blanks), '\n') + line;
    stream.blanks = 0;
    stream.any |= !isInformation(line);
    passText(stream, text);
}

// Takes a chunk of what is there and passes whole lines on. False when nothing was there.
bool drain(JobStream& stream)
{
    std::array<char, 65536> chunk;
    const ssize_t got = stream.fd < 0 ? -1 : read(stream.fd, chunk.data(), chunk.size());
    if (got == 0)
        stream.fd = -1;
    if (got <= 0)
        return false;
    for (std::string_view rest(chunk.data(), static_cast<std::size_t>(got)); !rest.empty();) {
        const std::size_t length = std::min(rest.find('\n'), rest.size() - 1) + 1;
        stream.line += rest.substr(0, length);
        rest.remove_prefix(length);
        if (stream.line.back() == '\n') {
            passLine(stream, stream.line);
            stream.line.clear();
        }
    }
    if (stream.to)
        std::fflush(stream.to);
    return true;
}

void finish(JobStream& stream)
{
    for (int i = 0; i < 16 && drain(stream); ++i) { // mpiexec has ended: what the pipe still holds
    }
    if (!stream.line.empty())
        passLine(stream, stream.line + "\n");
    if (stream.to)
        std::fflush(stream.to);
}

// Takes in what play has told. False when there is nothing.
bool hearReports(JobWatch& watch)
{
    bool any = false;
    for (PlayReport report{}; watch.reports >= 0 && receiveReport(watch.reports, report);
         any = true)
        switch (report.event) {
        case PlayEvent::ready:
            watch.ready = true;
            break;
        case PlayEvent::drawing:
            beginsToDraw(watch.drawing);
            break;
        case PlayEvent::drawn:
            hasDrawn(watch.drawing, report.frames);
            break;
        case PlayEvent::played:
            passText(watch.out, (watch.label ? "[0] " : "") + summaryOf(report));
            if (watch.out.to)
                std::fflush(watch.out.to);
            break;
        case PlayEvent::shown:
            watch.shown = true;
            break;
        }
    return any;
}

// mpiexec would wait for a node that is gone. What ends by itself says more about the cause.
bool endForNodes(JobWatch& watch)
{
    constexpr Timeout byItself = std::chrono::seconds(1), grace = std::chrono::seconds(1);
    const std::string trouble = nodeTrouble(watch.nodes, watch.process.pid);
    if (trouble.empty() || waitForEnd(watch.process, byItself))
        return false;
    watch.nodeTrouble = trouble;
    kill(watch.process.pid, SIGTERM);
    waitForEnd(watch.process, grace);
    return true;
}

} // namespace

JobWatch startWatch(const Job& job, std::FILE* to)
{
    Job piped = job;
    piped.output = Output::pipe;
    JobWatch watch;
    watch.hosts = job.hosts;
    watch.label = job.label;
    if (job.clientTells) {
        const std::string pipe = temporaryName("reports");
        watch.reports = openReports(pipe);
        piped.client.insert(piped.client.end(), {"--tell", pipe});
    }
    if (job.about) {
        piped.inputPipe = true;
        piped.client.emplace_back("--steer");
    }
    watch.process = startJob(piped);
    if (job.about) {
        fcntl(watch.process.in, F_SETFL, O_WRONLY | O_NONBLOCK);
        appear(watch.presence, *job.about);
    }
    watch.out.fd = watch.process.out;
    watch.out.to = to;
    watch.err.fd = watch.process.err;
    watch.err.to = to ? stderr : nullptr;
    watch.err.keepsFigures = job.keepsFigures;
    return watch;
}

namespace {

enum class Until { end, report };

bool pass(JobWatch& watch, Until what, JobClock::time_point until, int otherPidFd)
{
    constexpr long look = 200; // milliseconds, after the nodes and the program
    for (;;) {
        // Upwards: who asks whether the time is over is told so then.
        const auto left = std::chrono::ceil<Timeout>(until - JobClock::now()).count();
        std::vector<pollfd> events{{watch.process.pidFd, POLLIN, 0}, {otherPidFd, POLLIN, 0},
                                   {watch.out.fd, POLLIN, 0},        {watch.err.fd, POLLIN, 0},
                                   {watch.nodes.client, POLLIN, 0},  {watch.reports, POLLIN, 0}};
        for (const auto& [fd, lifeline] : watch.nodes.lifelines) // at once: who ends first counts
            events.push_back({fd, POLLIN, 0});
        addDescriptors(watch.presence, events);
        poll(events.data(), events.size(), static_cast<int>(std::clamp<long>(left, 0, look)));
        drain(watch.out);
        drain(watch.err);
        const bool told = hearReports(watch);
        if (events[4].revents)
            clientHasEnded(watch.nodes);
        if (events[0].revents)
            return true;
        followStops();
        answerAskers(watch.presence, watch.nodes, watch.process.in);
        if (watch.presence.mustStop)
            std::raise(SIGTERM); // as from a shell
        if (endForNodes(watch))
            return true;
        if (events[1].revents || left <= 0 || (told && what == Until::report))
            return false;
    }
}

} // namespace

bool passOutput(JobWatch& watch, JobClock::time_point until, int otherPidFd)
{
    return pass(watch, Until::end, until, otherPidFd);
}

bool passUntilTold(JobWatch& watch, JobClock::time_point until, int otherPidFd)
{
    return pass(watch, Until::report, until, otherPidFd);
}

std::string useLastFrame(JobWatch& watch, const LastFrame& last)
{
    std::string trouble;
    try {
        if (last.picture)
            last.picture();
        if (!last.then.empty()) {
            Process command = startProcess({.argv = {"sh", "-c", last.then}, .environment = {}});
            const bool jobEnded = passOutput(watch, JobClock::time_point::max(), command.pidFd);
            if (finishProcess(command, Timeout{}).status != 0 && !jobEnded)
                trouble = "the command failed: " + last.then;
        }
    } catch (const std::exception& fault) {
        trouble = fault.what();
    }
    const std::chrono::duration<double> hold(last.hold);
    passOutput(watch, JobClock::now() + std::chrono::duration_cast<JobClock::duration>(hold));
    return trouble;
}

JobEnding finishWatch(JobWatch& watch, Timeout timeout)
{
    disappear(watch.presence);
    closeInput(watch.process);
    const bool ended = passOutput(watch, JobClock::now() + timeout);
    JobEnding ending;
    ending.timedOut = !ended;
    hearReports(watch);
    if (ended) {
        finish(watch.out);
        finish(watch.err);
    }
    ending.status = finishProcess(watch.process, Timeout{}).status;
    if (watch.reports >= 0)
        close(std::exchange(watch.reports, -1));
    ending.nodeTrouble = watch.nodeTrouble;
    ending.servers = watch.nodes.servers;
    ending.figures = watch.err.figures;
    if (watch.nodes.clientEndedFirst)
        ending.endedFirst = "its client";
    else if (!watch.nodes.ended.empty())
        ending.endedFirst = watch.nodes.ended;
    ending.clientEndedToo = watch.nodes.clientEndedToo;
    ending.clientKilled = watch.nodes.clientKilled;
    ending.hosts = watch.hosts;
    ending.complained = watch.err.any;
    ending.out = watch.out.kept;
    ending.err = watch.err.kept;
    ending.remarks = watch.out.remarks + watch.err.remarks;
    return ending;
}

JobEnding watchJob(const Job& job, const LastFrame& last, Timeout timeout, std::FILE* to)
{
    JobWatch watch = startWatch(job, to);
    std::string trouble;
    const JobClock::time_point until = JobClock::now() + timeout;
    bool ended = false;
    while (!ended && !watch.shown && JobClock::now() < until)
        ended = passUntilTold(watch, until);
    if (watch.shown && !ended)
        trouble = useLastFrame(watch, last);
    JobEnding ending = finishWatch(watch, ended || watch.shown ? timeout : Timeout{});
    ending.trouble = trouble;
    return ending;
}
