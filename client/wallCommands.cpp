#include "client/wallCommands.h"
#include "client/jobOutput.h"
#include "client/locations.h"
#include "client/wallCheck.h"
#include "client/wallDrawing.h"
#include "client/wallPattern.h"
#include "client/wallRun.h"

#include <cerrno>
#include <cstdio>
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
    return placeServers(hostsOf(options), static_cast<int>(wall.tiles.size()));
}

// Prints or checks a job. True when it is to be run.
bool readyToRun(const Wall& wall, const Job& job, const WallOptions& options)
{
    const std::vector<Place> places = placesOf(wall, options);
    if (printFindings(stderr, wall, checkWall(wall, places), false) > 0 && !options.force)
        throw std::runtime_error("the wall file is not right; --force goes on with it");
    if (options.dryRun) {
        std::printf("%s\n", shellLine(jobLine(job)).c_str());
        return false;
    }
    int faults = 0;
    for (const Finding& finding : probeWall(wall, job, places)) {
        faults += finding.fault;
        std::fprintf(stderr, "mosa-wall: %s%s\n",
                     finding.fault ? "" : "note: ", finding.text.c_str());
    }
    if (faults > 0 && !options.force)
        throw std::runtime_error("the wall is not ready; --force goes on");
    return true;
}

// What play runs when the last frame is on every tile: the picture, and the user's own command.
std::string commandAtEnd(const WallOptions& options)
{
    if (options.picture.empty())
        return options.then;
    std::vector<std::string> snapshot{ownProgram(), "snapshot", options.wall, "-o",
                                      options.picture};
    if (!options.hosts.empty())
        snapshot.insert(snapshot.end(), {"--hosts", options.hosts});
    return shellLine(snapshot) + (options.then.empty() ? "" : " && " + options.then);
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
    const int faults = printFindings(stdout, wall, checkWall(wall, placesOf(wall, options)), true);
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
    const Wall wall = readUsableWall(options.wall);
    std::vector<std::string> arguments;
    for (const std::string& stream : options.streams)
        arguments.push_back(findScene(stream).file);
    if (!options.dryRun) {
        for (const std::string& file : arguments)
            requireStream(file);
        if (!options.picture.empty())
            requireWritable(options.picture);
    }
    const auto pass = [&arguments](const char* option, const std::string& value) {
        if (!value.empty())
            arguments.insert(arguments.end(), {option, value});
    };
    pass("--loop", options.loop == 1 ? "" : std::to_string(options.loop));
    pass("--ahead", options.ahead);
    if (options.loose)
        arguments.push_back("--loose");
    pass("--hold", options.hold);
    pass("--then", commandAtEnd(options));
    Job job = wallJob(wall, hostsOf(options), arguments);
    job.label = options.label;
    if (!readyToRun(wall, job, options))
        return 0;
    return reportEnding(watchJob(job, noLimit, stdout));
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
    const Job job = wallJob(wall, hostsOf(options), {file, "--loop", std::to_string(options.loop)});
    if (!readyToRun(wall, job, options))
        return 0;
    return reportEnding(watchJob(job, noLimit, stdout));
}

int demoCommand(const WallOptions& options)
{
    if (options.list) {
        listScenes();
        return 0;
    }
    return runDemo(options.demo);
}

int probeCommand(const WallOptions& options) { return probeNode(options.wall); }
