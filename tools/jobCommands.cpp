// Commands for jobs that run: what they show and how they go, and where they stand.
#include "tools/commandOptions.h"

#include "tools/presence.h"
#include "tools/wallRun.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <thread>

namespace {

// "1:02:03", hours first.
std::string inHours(long seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", seconds / 3600, seconds / 60 % 60,
                  seconds % 60);
    return text;
}

std::string timeSince(long since)
{
    return inHours(std::max(0L, static_cast<long>(std::time(nullptr)) - since));
}

std::string placeOf(const JobReport& job) { return job.area.empty() ? "all" : job.area; }

// ---- list --------------------------------------------------------------------------------------

int list(const Program&)
{
    const std::vector<JobReport> jobs = runningJobs();
    const auto width =
        std::accumulate(jobs.begin(), jobs.end(), 4, [](int widest, const auto& job) {
            return std::max(widest, static_cast<int>(job.name.size()));
        });
    if (!jobs.empty())
        std::printf("%-*s  %-20s  %8s  %s\n", width, "name", "area", "since", "shows");
    for (const JobReport& job : jobs)
        std::printf("%-*s  %-20s  %8s  %s\n", width, job.name.c_str(), placeOf(job).c_str(),
                    timeSince(job.since).c_str(), job.shows.c_str());
    return 0;
}

Action addList(CLI::App& command)
{
    command.footer("Of the user's jobs that this machine has started, the oldest first: what each "
                   "is\ncalled, its area of the wall, since when it runs and what it shows.");
    return list;
}

// ---- raise, stop and move ----------------------------------------------------------------------

template <class Add>
Action addRequest(CLI::App& command, const char* request, Add add)
{
    const auto name = std::make_shared<std::string>();
    command.add_option("NAME", *name, "as list says it; it is not needed where one job runs alone");
    add(command);
    return [name, request](const Program&) {
        JobConnection job(runningJob(*name));
        tellJob(job, request);
        return 0;
    };
}

Action addRaise(CLI::App& command)
{
    return addRequest(command, "raise", [](CLI::App& app) {
        app.footer("Shows a job's area above those of the others, on all tiles at the same frame.");
    });
}

Action addStop(CLI::App& command)
{
    return addRequest(command, "stop", [](CLI::App& app) {
        app.footer("Ends a job and its program, as Ctrl-C does where it was started.");
    });
}

struct Move {
    std::string name, place;
    bool follows = false;
};

// Places come line by line, from a program that drags the area.
int follow(JobConnection& job)
{
    int refused = 0;
    for (std::string line; std::getline(std::cin, line);)
        try {
            if (!line.empty())
                tellJob(job, "move " + line);
        } catch (const std::runtime_error& refusal) {
            std::fprintf(stderr, "mosa-wall: %s\n", refusal.what());
            refused = 1;
        }
    return refused;
}

int move(const Move& options)
{
    JobConnection job(runningJob(options.name));
    if (options.follows)
        return follow(job);
    if (options.place.empty())
        throw std::runtime_error("name the place, or --follow");
    tellJob(job, "move " + options.place);
    return 0;
}

Action addMove(CLI::App& command)
{
    const auto options = std::make_shared<Move>();
    command.add_option("NAME", options->name, "as list says it")->required();
    CLI::Option* const place =
        command.add_option("PLACE", options->place,
                           "+480+270 from the wall's upper left, left, top-right and the like");
    command
        .add_flag("--follow", options->follows,
                  "take places from the standard input, one a line, until it ends")
        ->excludes(place);
    command.footer(
        "Moves the area of a job that was started with --movable; it keeps its size. All "
        "tiles\nshow it at its new place from the same frame on.");
    return [options](const Program&) { return move(*options); };
}

// ---- status ------------------------------------------------------------------------------------

std::string inJson(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

void printJson(const std::vector<JobReport>& jobs)
{
    std::printf("{\"jobs\": [");
    const char* between = "";
    for (const JobReport& job : jobs) {
        std::printf("%s\n  {\"name\": %s, \"shows\": %s, \"wall\": %s, \"area\": %s, \"movable\": "
                    "%s, \"since\": %ld, \"pid\": %d, \"servers\": [",
                    between, inJson(job.name).c_str(), inJson(job.shows).c_str(),
                    inJson(job.wall).c_str(), job.area.empty() ? "null" : inJson(job.area).c_str(),
                    job.isMovable ? "true" : "false", job.since, job.pid);
        between = "";
        for (const auto& [server, figures] : job.servers) {
            std::printf("%s\n    {\"tile\": %d, \"display\": %s, \"host\": %s, \"answers\": %s",
                        between, server.tile, inJson(server.display).c_str(),
                        server.host.empty() ? "null" : inJson(server.host).c_str(),
                        figures ? "true" : "false");
            if (figures)
                std::printf(", \"framesPerSecond\": %.1f, \"behind\": %ld, \"decoding\": %d, "
                            "\"bytes\": %lld",
                            figures->framesPerSecond, figures->behind, figures->decoding,
                            figures->bytes);
            std::printf("}");
            between = ",";
        }
        std::printf("]}");
        between = ",";
    }
    std::printf("]}\n");
}

void printText(const std::vector<JobReport>& jobs)
{
    if (jobs.empty())
        std::printf("nothing of yours runs on a wall here\n");
    for (const JobReport& job : jobs) {
        std::printf("%s: %s on %s, for %s\n", job.name.c_str(), job.shows.c_str(),
                    job.area.empty() ? ("all of the wall, " + job.wall).c_str()
                                     : (job.area + " of a wall of " + job.wall).c_str(),
                    timeSince(job.since).c_str());
        std::printf("  %4s  %-24s %9s %7s %9s %9s\n", "tile", "display", "frames/s", "behind",
                    "decoding", "memory");
        for (const auto& [server, figures] : job.servers) {
            const std::string display =
                server.display + (server.host.empty() ? "" : " on " + server.host);
            if (figures)
                std::printf("  %4d  %-24s %9.1f %7ld %8d%% %6.0f MiB\n", server.tile,
                            display.c_str(), figures->framesPerSecond, figures->behind,
                            figures->decoding, static_cast<double>(figures->bytes) / (1 << 20));
            else
                std::printf("  %4d  %-24s does not answer\n", server.tile, display.c_str());
        }
    }
}

// A wall on which nothing runs: its nodes are asked, as before a job. Returns the exit status.
int printWall(const WallChoice& choice)
{
    const ChosenWall chosen = chooseWall(choice, readUsableWall);
    Job job;
    putOnWall(job, chosen.wall, chosen.hosts);
    loadOverloads(job, false);
    watchNodes(job);
    const WallAnswers answers = probeWall(chosen.wall, job, chosen.places);
    std::printf("  %4s  %-24s %12s %12s\n", "tile", "display", "node up for", "memory free");
    for (std::size_t n = 0; n < chosen.wall.tiles.size(); ++n) {
        const std::string& host = chosen.places.at(n).host;
        const std::string display =
            chosen.wall.tiles[n].entry.dpyName + (host.empty() ? "" : " on " + host);
        const auto node = answers.nodes.find(n);
        if (node == answers.nodes.end() || node->second.finding.fault)
            std::printf("  %4zu  %-24s is not ready\n", n, display.c_str());
        else
            std::printf("  %4zu  %-24s %12s %8lld MiB\n", n, display.c_str(),
                        inHours(node->second.up).c_str(), node->second.bytes >> 20);
    }
    for (const Finding& finding : answers.findings)
        std::printf("%s%s\n", finding.fault ? "" : "note: ", finding.text.c_str());
    return std::ranges::any_of(answers.findings, &Finding::fault) ? 1 : 0;
}

struct Status {
    WallChoice choice;
    bool watches = false, json = false;
};

int status(const Status& options)
{
    const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    do {
        const std::vector<JobReport> jobs = runningJobs();
        if (options.watches && isTerminal)
            std::fputs("\033[H\033[2J", stdout); // from the top of an empty screen
        options.json ? printJson(jobs) : printText(jobs);
        if (std::fflush(stdout) != 0)
            return 1;
        if (options.watches)
            std::this_thread::sleep_for(std::chrono::seconds(1));
        else if (jobs.empty() && !options.json && !usualWall(options.choice.wall).empty())
            return printWall(options.choice);
    } while (options.watches);
    return 0;
}

Action addStatus(CLI::App& command)
{
    const auto options = std::make_shared<Status>();
    addWall(command, options->choice.wall);
    addHosts(command, options->choice.hosts);
    command.add_flag("--watch", options->watches, "again every second, until it is ended");
    command.add_flag("--json", options->json, "for programs");
    command.footer(
        "Of each job and each of its tiles: frames shown in the last second, how many "
        "frames it is\n"
        "behind the furthest, how much of a core decodes, and the server's memory. Where "
        "nothing\n"
        "runs the wall's nodes are asked, as by check: whether each is ready, since when "
        "it is up\n"
        "and how much of its memory is free. Exit status 1: one is not ready.");
    return [options](const Program&) { return status(*options); };
}

} // namespace

const WallCommand listCommand{"list", "Name the jobs that run", TakesProgram::never, addList};
const WallCommand moveCommand{"move", "Move a job's area of the wall", TakesProgram::never,
                              addMove};
const WallCommand raiseCommand{"raise", "Show a job's area above others", TakesProgram::never,
                               addRaise};
const WallCommand stopCommand{"stop", "End a job", TakesProgram::never, addStop};
const WallCommand statusCommand{"status", "Say how the jobs go", TakesProgram::never, addStatus};
