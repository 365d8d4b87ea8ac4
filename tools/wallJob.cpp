#include "tools/wallJob.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

constexpr Timeout noLimit = std::chrono::hours(24 * 365); // the operator ends a job, or its stream

void printJob(const Job& job)
{
    for (const std::string& secret : job.secrets)
        std::printf("%s ", secret.c_str());
    std::printf("%s\n", shellLine(jobLine(job)).c_str());
}

} // namespace

WallAnswers askNodes(const ChosenWall& chosen, const Job& job, std::FILE* to, int& faults)
{
    WallAnswers answers = probeWall(chosen.wall, job, chosen.places);
    for (const Finding& finding : answers.findings) {
        faults += finding.fault;
        std::fprintf(to, "%s%s%s\n", to == stderr ? "mosa-wall: " : "",
                     finding.fault ? "" : "note: ", finding.text.c_str());
    }
    return answers;
}

int playOnWall(const ChosenWall& chosen, const std::vector<std::string>& files,
               const JobOptions& options, LiveOptions live)
{
    const auto& [wall, hosts, places] = chosen;
    const LastFrame last = lastFrameOn(wall, places, options.play, options.picture);
    const bool isLive = !live.program.empty();
    Job job = isLive ? liveJob(options.play) : playJob(files, options.play, last);
    putOnWall(job, wall, hosts);
    const bool locks = loadOverloads(job, options.plain) && job.servers > 1 &&
                       !options.play.loose && mayLockFrames();
    job.label = options.label;
    // A server that is ended says no more: the latest figures are then those of the last second.
    job.keepsFigures = options.stats && !std::getenv("MOSA_STATS");
    if (job.keepsFigures)
        job.environment.emplace_back("MOSA_STATS=1");
    if (printFindings(stderr, wall, checkWall(wall, places), false) > 0 && !options.force)
        throw std::runtime_error("the wall file is not right; --force goes on with it");
    const std::string& hub = places.front().host;
    if (options.dryRun) {
        if (locks)
            lockFrames(job, hub, freePort());
        printJob(job);
        return 0;
    }
    watchNodes(job);
    int faults = 0;
    const WallAnswers answers = askNodes(chosen, job, stderr, faults);
    if (faults > 0 && !options.force)
        throw std::runtime_error("the wall is not ready; --force goes on");
    if (locks && answers.hubPort > 0)
        lockFrames(job, hub, answers.hubPort);
    live.samples = answers.samples;
    if (isLive)
        return runLive(job, live, wallSize(wall), options.play.ahead, last, stdout, false);
    return reportEnding(watchJob(job, last, noLimit, stdout));
}
