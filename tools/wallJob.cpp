#include "tools/wallJob.h"
#include "client/locations.h"
#include "tools/cleanUp.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace {

constexpr Timeout noLimit = std::chrono::hours(24 * 365); // the operator ends a job, or its stream

void printJob(const Job& job)
{
    for (const std::string& secret : job.secrets)
        std::printf("%s ", secret.c_str());
    std::printf("%s\n", shellLine(jobLine(job)).c_str());
}

// Displays that a job wakes and keeps awake, and what becomes of them after it.
void keepAwake(Job& job, const DisplayOptions& displays)
{
    if (!std::getenv("MOSA_AWAKE"))
        job.environment.emplace_back("MOSA_AWAKE=1");
    if (displays.blankAfter >= 0)
        job.environment.push_back("MOSA_BLANK_AFTER=" + std::to_string(displays.blankAfter));
}

// The operator's own commands around a job; that of after it, however mosa-wall ends.
void runCommandsOf(const DisplayOptions& displays, const Wall& wall)
{
    const std::string environment = "MOSA_DISPLAY=" + std::filesystem::absolute(wall.file).string();
    if (!displays.after.empty())
        runAtEnd(displays.after, environment);
    if (!displays.before.empty() &&
        runProcess({.argv = {"sh", "-c", displays.before}, .environment = {environment}}, noLimit)
                .status != 0)
        std::fprintf(stderr, "mosa-wall: the command failed: %s\n", displays.before.c_str());
}

} // namespace

std::string shownBy(const std::vector<std::string>& files, const LiveOptions& live)
{
    std::string text;
    for (const std::string& word : live.program)
        text += (text.empty() ? "" : " ") + word;
    for (const std::string& file : files)
        text += (text.empty() ? "" : " ") + sceneName(file);
    std::ranges::replace_if(
        text, [](unsigned char c) { return std::iscntrl(c); }, '?');
    return text;
}

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

About aboutJob(const ChosenWall& onto, const std::string& name, const std::string& shows, Size wall,
               const std::optional<JobArea>& area)
{
    About about{.name = name.empty() ? shows.substr(0, shows.find(' ')) : name,
                .shows = shows,
                .wall = wall,
                .area = area};
    for (std::size_t n = 0; n < onto.wall.tiles.size(); ++n)
        about.servers.push_back({.display = onto.wall.tiles[n].entry.dpyName,
                                 .host = onto.places.at(n).host,
                                 .tile = area ? area->tiles.at(n) : static_cast<int>(n)});
    return about;
}

int playOnWall(const ChosenWall& chosen, const std::vector<std::string>& files,
               const JobOptions& options, LiveOptions live)
{
    const Wall& wall = chosen.wall;
    const Size size = wallSize(wall);
    std::optional<JobArea> area;
    if (!options.at.at.empty())
        area = areaOn(wall, options.at);
    const ChosenWall onto = area ? withServersOf(chosen, *area) : chosen;
    const LastFrame last = lastFrameOn(wall, chosen.places, options.play, options.picture);
    const bool isLive = !live.program.empty();
    Job job = isLive ? liveJob(options.play) : playJob(files, options.play, last);
    putOnWall(job, onto.wall, onto.hosts);
    if (area)
        putInArea(job, *area, size);
    const bool loads = loadOverloads(job, options.plain);
    if (loads)
        keepAwake(job, options.displays);
    else if (options.displays.blankAfter >= 0)
        throw std::runtime_error("MOSA_OVERLOAD_FILE names libraries of its own: --blank-after "
                                 "needs those that come with the system");
    const bool locks = loads && job.servers > 1 && !options.play.loose && mayLockFrames();
    job.label = options.label;
    // A server that is ended says no more: the latest figures are then those of the last second.
    job.keepsFigures = options.stats && !std::getenv("MOSA_STATS");
    if (job.keepsFigures)
        job.environment.emplace_back("MOSA_STATS=1");
    if (printFindings(stderr, wall, checkWall(wall, chosen.places), false) > 0 && !options.force)
        throw std::runtime_error("the wall file is not right; --force goes on with it");
    const std::string& hub = onto.places.front().host;
    if (options.dryRun) {
        if (locks)
            lockFrames(job, hub, freePort());
        printJob(job);
        return 0;
    }
    watchNodes(job);
    int faults = 0;
    const WallAnswers answers = askNodes(onto, job, stderr, faults);
    if (faults > 0 && !options.force)
        throw std::runtime_error("the wall is not ready; --force goes on");
    if (locks && answers.hubPort > 0)
        lockFrames(job, hub, answers.hubPort);
    runCommandsOf(options.displays, wall);
    live.samples = answers.samples;
    job.about = aboutJob(onto, options.name, shownBy(files, live), size, area);
    if (isLive)
        return runLive(job, live, area ? sizeOf(area->area) : size, options.play.ahead, last,
                       stdout, false);
    return reportEnding(watchJob(job, last, noLimit, stdout));
}
