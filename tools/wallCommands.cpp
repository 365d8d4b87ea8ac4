#include "tools/wallCommands.h"
#include "client/locations.h"
#include "client/wholeFile.h"
#include "tools/jobOutput.h"
#include "tools/wallCheck.h"
#include "tools/wallDrawing.h"
#include "tools/wallPattern.h"
#include "tools/wallRun.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace {

constexpr Timeout noLimit = std::chrono::hours(24 * 365); // the operator ends a job, or its stream

std::string requireWall(const WallOptions& options)
{
    std::string wall = usualWall(options.wall);
    if (wall.empty())
        throw std::runtime_error("name the wall's file: by --wall, MOSA_DISPLAY or "
                                 "~/.config/mosa/wall.conf");
    if (options.wall.empty())
        std::fprintf(stderr, "mosa-wall: the wall is %s\n", wall.c_str());
    return wall;
}

// Those given, else the wall file's own.
std::vector<Host> hostsOf(const Wall& wall, const WallOptions& options)
{
    return options.hosts.empty() ? hostsIn(wall.file) : readHosts(options.hosts);
}

std::vector<Place> placesOf(const Wall& wall, const WallOptions& options)
{
    const std::vector<Host> hosts = hostsOf(wall, options);
    std::size_t room = 0;
    for (const Host& host : hosts)
        room += static_cast<std::size_t>(host.servers);
    if (room > wall.tiles.size())
        std::fprintf(stderr,
                     "mosa-wall: note: the host file has places for %zu servers, the wall has %zu: "
                     "the last are not used\n",
                     room, wall.tiles.size());
    return placeServers(hosts, static_cast<int>(wall.tiles.size()));
}

// Asks the nodes, the way the job will reach them, and says what they are not ready for.
WallAnswers askNodes(const Wall& wall, const Job& job, const std::vector<Place>& places,
                     std::FILE* to, int& faults)
{
    const WallAnswers answers = probeWall(wall, job, places);
    for (const Finding& finding : answers.findings) {
        faults += finding.fault;
        std::fprintf(to, "%s%s%s\n", to == stderr ? "mosa-wall: " : "",
                     finding.fault ? "" : "note: ", finding.text.c_str());
    }
    return answers;
}

// Plays stream files on a wall, or runs a program there, or prints the job that would.
int play(const Wall& wall, const std::vector<std::string>& files, const WallOptions& options)
{
    const std::vector<Place> places = placesOf(wall, options);
    const std::vector<Host> hosts = hostsOf(wall, options);
    const LastFrame last = lastFrameOn(wall, places, options.play, options.picture);
    const bool isLive = !options.live.program.empty();
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
        for (const std::string& secret : job.secrets)
            std::printf("%s ", secret.c_str());
        std::printf("%s\n", shellLine(jobLine(job)).c_str());
        return 0;
    }
    watchNodes(job);
    int faults = 0;
    const WallAnswers answers = askNodes(wall, job, places, stderr, faults);
    if (faults > 0 && !options.force)
        throw std::runtime_error("the wall is not ready; --force goes on");
    if (locks && answers.hubPort > 0)
        lockFrames(job, hub, answers.hubPort);
    LiveOptions live = options.live;
    live.samples = answers.samples;
    if (isLive)
        return runLive(job, live, wallSize(wall), options.play.ahead, last, stdout, false);
    return reportEnding(watchJob(job, last, noLimit, stdout));
}

} // namespace

std::string usualWall(const std::string& given)
{
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value ? value : "");
    };
    if (!given.empty())
        return given;
    if (const std::string named = variable("MOSA_DISPLAY"); !named.empty())
        return named;
    std::string settings = variable("XDG_CONFIG_HOME");
    if (settings.empty())
        settings = variable("HOME") + "/.config";
    const std::string own = settings + "/mosa/wall.conf";
    return std::filesystem::exists(own) ? own : "";
}

int layoutCommand(const WallOptions& options)
{
    const Grid& grid = options.grid;
    requireUsable(grid);
    const std::vector<Host> hosts =
        options.hosts.empty() ? std::vector<Host>{} : readHosts(options.hosts);
    const std::vector<Place> places = placeServers(hosts, grid.screens.w * grid.screens.h);
    // Each server opens a display of its own node, with a screen for each.
    std::vector<std::string> displays;
    for (const Place& place : places)
        displays.push_back(":0." + std::to_string(place.onHost));
    const std::string text = wallFileText(grid, displays, places) + hostLines(hosts);
    if (options.output.empty()) {
        std::fputs(text.c_str(), stdout);
        return 0;
    }
    writeWholeFile(options.output, text);
    return 0;
}

int checkCommand(const WallOptions& options)
{
    const Wall wall = readWall(requireWall(options));
    const std::vector<Host> hosts = hostsOf(wall, options);
    for (std::size_t n = 0; n < wall.tiles.size(); ++n)
        std::printf("%s\n", describeTile(wall, static_cast<int>(n)).c_str());
    std::printf("\n%s\n", drawAsText(wall).c_str());
    const std::vector<Place> places = placesOf(wall, options);
    int faults = printFindings(stdout, wall, checkWall(wall, places), true);
    if (!hosts.empty() && !options.offline && faults == 0) {
        Job job;
        putOnWall(job, wall, hosts);
        loadOverloads(job, options.plain);
        watchNodes(job);
        askNodes(wall, job, places, stdout, faults);
    }
    std::printf("%zu servers, %s\n", wall.tiles.size(),
                faults == 0   ? "no fault"
                : faults == 1 ? "1 fault"
                              : (std::to_string(faults) + " faults").c_str());
    if (!options.picture.empty())
        drawToFile(wall, options.picture);
    return faults ? 1 : 0;
}

int runCommand(const WallOptions& options)
{
    const bool isLive = !options.live.program.empty();
    if (isLive != options.streams.empty())
        throw std::runtime_error("name stream files, or a program behind --");
    if (isLive && usualWall(options.wall).empty()) {
        DemoOptions demo = options.demo;
        if (!options.picture.empty())
            demo.picture = options.picture;
        return runDemo(demo, options.play, options.live, options.plain);
    }
    const Wall wall = readUsableWall(requireWall(options));
    std::vector<std::string> files;
    for (const std::string& stream : options.streams)
        files.push_back(findStream(stream));
    if (!options.dryRun) {
        for (const std::string& file : files)
            requireStream(file);
        if (!options.picture.empty())
            requireWritable(options.picture);
    }
    return play(wall, files, options);
}

int snapshotCommand(const WallOptions& options)
{
    const Wall wall = readUsableWall(requireWall(options));
    const std::string picture = options.output.empty() ? "wall.png" : options.output;
    requireWritable(picture);
    writePng(picture, snapshotWall(wall, placesOf(wall, options)));
    return 0;
}

int patternCommand(const WallOptions& options)
{
    const Wall wall = readUsableWall(requireWall(options));
    const std::vector<OutgoingBuffer> stream = patternStream(wall, options.frames);
    if (!options.output.empty()) {
        writeStreamFile(options.output, stream);
        return 0;
    }
    if (!options.dryRun && !options.picture.empty())
        requireWritable(options.picture);
    const std::string file = temporaryName("pattern");
    writeStreamFile(file, stream);
    return play(wall, {file}, options);
}

int demoCommand(const WallOptions& options)
{
    if (options.list) {
        listScenes();
        return 0;
    }
    return runDemo(options.demo, options.play, options.live, options.plain);
}

int recordCommand(const WallOptions& options)
{
    if (options.live.program.empty())
        throw std::runtime_error("name a program behind --");
    requireWritable(options.output);
    return recordProgram(options.live, options.output);
}

int probeCommand(const WallOptions& options)
{
    return probeNode(options.wall, {options.sums.at(0), options.sums.at(1), options.sums.at(2)});
}
