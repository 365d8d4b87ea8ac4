#include "tools/jobEnding.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

std::string wordAfter(const std::string& text, const std::string& before, const char* end)
{
    const std::size_t at = text.find(before);
    if (at == text.npos)
        return {};
    const std::size_t from = at + before.size();
    return text.substr(from, text.find_first_of(end, from) - from);
}

bool isInformation(std::string_view line)
{
    if (line.starts_with('['))
        line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
    constexpr std::string_view beginnings[] = {"MOSA: ", "Vantrel MOSA ", "Overloads loaded from "};
    return std::ranges::any_of(
        beginnings, [line](std::string_view beginning) { return line.starts_with(beginning); });
}

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

namespace {

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
    // The client was first where mpiexec names it, or a server that lost it says so; not where it
    // has lost one itself.
    const std::string task = wordAfter(remarks, ", MPI_BYTE, ", ",");
    const bool clientLostOne = remarks.find(" (rank 0 in comm ") != remarks.npos;
    const bool isNamed = task == "0" || (!process.empty() && known == ending.servers.end());
    const bool isSilent = task.empty() && process.empty();
    if (ending.clientEndedToo && !clientLostOne && (isNamed || (isSilent && ending.clientKilled)))
        return "its client has gone";
    // mpiexec may name one that it has ended itself, for another that was first.
    if (!ending.endedFirst.empty() && name != ending.endedFirst)
        return ending.endedFirst + " has gone";
    if (!host.empty() && !code.empty())
        return name + " has ended, exit code " + code;
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

} // namespace

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
