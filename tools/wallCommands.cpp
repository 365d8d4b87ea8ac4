#include "tools/wallCommands.h"
#include "client/locations.h"
#include "tools/jobOutput.h"
#include "tools/wallCheck.h"
#include "tools/wallDrawing.h"
#include "tools/wallPattern.h"
#include "tools/wallRun.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace {

constexpr Timeout noLimit = std::chrono::hours(24 * 365); // the operator ends a job, or its stream

std::vector<Host> hostsOf(const WallOptions& options)
{
    return options.hosts.empty() ? std::vector<Host>{} : readHosts(options.hosts);
}

std::vector<Place> placesOf(const Wall& wall, const WallOptions& options)
{
    const std::vector<Host> hosts = hostsOf(options);
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
    const LastFrame last = lastFrameOn(wall, places, options.play, options.picture);
    const bool isLive = !options.live.program.empty();
    Job job = isLive ? liveJob(options.play) : playJob(files, options.play, last);
    putOnWall(job, wall, hostsOf(options));
    const bool locks = loadOverloads(job, options.plain) && job.servers > 1 &&
                       !options.play.loose && mayLockFrames();
    job.label = options.label;
    if (options.stats && !std::getenv("MOSA_STATS"))
        job.environment.emplace_back("MOSA_STATS=1000000"); // seconds: at the end only
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
    if (!options.hosts.empty())
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

int layoutCommand(const WallOptions& options)
{
    const Grid& grid = options.grid;
    requireUsable(grid);
    const std::vector<Place> places =
        placeServers(hostsOf(options), grid.screens.w * grid.screens.h);
    // Each server opens a display of its own node, with a screen for each.
    std::vector<std::string> displays;
    for (const Place& place : places)
        displays.push_back(":0." + std::to_string(place.onHost));
    const std::string text = wallFileText(grid, displays, places);
    if (options.output.empty()) {
        std::fputs(text.c_str(), stdout);
        return 0;
    }
    std::ofstream file(options.output);
    file << text;
    if (!file.flush())
        throw std::runtime_error(options.output + ": " + std::strerror(errno));
    return 0;
}

int checkCommand(const WallOptions& options)
{
    const Wall wall = readWall(options.wall);
    for (std::size_t n = 0; n < wall.tiles.size(); ++n)
        std::printf("%s\n", describeTile(wall, static_cast<int>(n)).c_str());
    std::printf("\n%s\n", drawAsText(wall).c_str());
    const std::vector<Place> places = placesOf(wall, options);
    int faults = printFindings(stdout, wall, checkWall(wall, places), true);
    if (!options.hosts.empty() && !options.offline && faults == 0) {
        Job job;
        putOnWall(job, wall, hostsOf(options));
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
    if (isLive && options.wall.empty())
        return demoCommand(options);
    if (options.wall.empty())
        throw std::runtime_error("--wall is required");
    const Wall wall = readUsableWall(options.wall);
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
    const Wall wall = readUsableWall(options.wall);
    const std::string picture = options.output.empty() ? "wall.png" : options.output;
    requireWritable(picture);
    writePng(picture, snapshotWall(wall, placesOf(wall, options)));
    return 0;
}

int patternCommand(const WallOptions& options)
{
    const Wall wall = readUsableWall(options.wall);
    const std::vector<OutgoingBuffer> stream = patternStream(wall, options.frames);
    if (!options.output.empty()) {
        writeStreamFile(options.output, stream);
        return 0;
    }
    const std::string file = temporaryFile("");
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
    return probeNode(options.wall, {options.sums.at(0), options.sums.at(1)});
}
