#include "tools/jobOutput.h"
#include "client/playReports.h"

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace {

// What servers say when all is well, behind the task's number perhaps.
bool isInformation(std::string_view line)
{
    if (line.starts_with('['))
        line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
    constexpr std::string_view beginnings[] = {"MOSA: ", "Vantrel MOSA ", "Overloads loaded from "};
    return std::ranges::any_of(
        beginnings, [line](std::string_view beginning) { return line.starts_with(beginning); });
}

// What follows a text, up to the next of these characters; empty without it.
std::string wordAfter(const std::string& text, const std::string& before, const char* end)
{
    const std::size_t at = text.find(before);
    if (at == text.npos)
        return {};
    const std::size_t from = at + before.size();
    return text.substr(from, text.find_first_of(end, from) - from);
}

// Which task has ended without a word of its own, by mpiexec's remarks or by those of a task that
// could not send to it; empty when they don't tell.
std::string whoEnded(const JobEnding& ending)
{
    const std::string& remarks = ending.remarks;
    const std::string host = wordAfter(remarks, " RUNNING AT ", " \n");
    const std::string code = wordAfter(remarks, "=   EXIT CODE: ", " \n");
    const std::string process = wordAfter(remarks, "=   PID ", " ");
    const auto known = ending.servers.find(std::atoi(process.c_str()));
    const std::string name =
        known != ending.servers.end() ? known->second : "process " + process + " on " + host;
    // mpiexec may name one that it has ended itself, for another that was first.
    if (!ending.endedFirst.empty() && name != ending.endedFirst)
        return ending.endedFirst + " has gone";
    if (!host.empty() && !code.empty())
        return name + " has ended, exit code " + code;
    const std::string task = wordAfter(remarks, ", MPI_BYTE, ", ",");
    if (task.empty())
        return {};
    const int server = std::atoi(task.c_str()) - 1;
    if (server < 0)
        return "its client has gone";
    const bool isElsewhere = static_cast<std::size_t>(server) < ending.hosts.size();
    return "server " + std::to_string(server) +
           (isElsewhere ? " on " + ending.hosts[static_cast<std::size_t>(server)] : "") +
           " has gone";
}

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

bool isRemark(std::string_view line)
{
    // A rule longer than those that the servers print.
    constexpr std::size_t shortestRule = 60;
    if (line.substr(0, line.find('\n')).find_first_not_of('=') == std::string_view::npos)
        return line.size() > shortestRule;
    constexpr std::string_view beginnings[] = {
        "=   BAD TERMINATION",
        "=   PID ",
        "=   EXIT CODE: ",
        "=   CLEANING UP",
        "=   YOU CAN IGNORE",
        "YOUR APPLICATION TERMINATED WITH THE EXIT",
        "This typically refers to a problem with your application",
        "Please see the FAQ page for debugging",
        "[mpiexec@",
        "[proxy:",
        // What MPI says at a task when another is gone, and where it was just then.
        "Abort(",
        "internal_",
        "MPID",
        "MPIR",
        "PMPI_",
    };
    return std::ranges::any_of(
        beginnings, [line](std::string_view beginning) { return line.starts_with(beginning); });
}

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
    watch.process = startJob(piped);
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
        for (const auto& [lifeline, server] :
             watch.nodes.lifelines) // at once: who ends first counts
            events.push_back({lifeline, POLLIN, 0});
        poll(events.data(), events.size(), static_cast<int>(std::clamp<long>(left, 0, look)));
        drain(watch.out);
        drain(watch.err);
        const bool told = hearReports(watch);
        if (events[4].revents)
            clientHasEnded(watch.nodes);
        if (events[0].revents)
            return true;
        followStops();
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

int reportEnding(const JobEnding& ending)
{
    if (!ending.trouble.empty())
        std::fprintf(stderr, "mosa-wall: %s\n", ending.trouble.c_str());
    if (!ending.nodeTrouble.empty())
        std::fprintf(stderr, "mosa-wall: %s: the job has been ended\n", ending.nodeTrouble.c_str());
    else if (ending.timedOut)
        std::fputs("mosa-wall: the job took too long\n", stderr);
    else if (const std::string who = whoEnded(ending); ending.status != 0 && !who.empty())
        std::fprintf(stderr, "mosa-wall: the job failed: %s%s\n", who.c_str(),
                     ending.complained ? "; the messages above may say why" : "");
    else if (ending.status != 0 && ending.complained)
        std::fputs("mosa-wall: the job failed; the first message above is the cause\n", stderr);
    else if (ending.status != 0)
        std::fprintf(stderr, "%smosa-wall: the job failed%s\n", ending.remarks.c_str(),
                     ending.endedFirst.empty() ? ""
                                               : (": " + ending.endedFirst + " has gone").c_str());
    const bool failed = !ending.nodeTrouble.empty() || ending.timedOut || ending.status != 0;
    for (const auto& [server, line] : ending.figures)
        if (failed) // else the servers have said all
            std::fputs(line.c_str(), stderr);
    return failed || !ending.trouble.empty() ? 1 : 0;
}
