#include "tools/commandOptions.h"

#include "tools/wallDrawing.h"
#include "tools/wallJob.h"

#include <cstdio>
#include <memory>

namespace {

struct Options {
    WallChoice choice;
    std::string picture;
    bool offline = false; // the nodes are not asked
};

int check(const Options& options)
{
    const ChosenWall chosen = chooseWall(options.choice, readWall);
    const Wall& wall = chosen.wall;
    for (std::size_t n = 0; n < wall.tiles.size(); ++n)
        std::printf("%s\n", describeTile(wall, static_cast<int>(n)).c_str());
    std::printf("\n%s\n", drawAsText(wall).c_str());
    int faults = printFindings(stdout, wall, checkWall(wall, chosen.places), true);
    if (!chosen.hosts.empty() && !options.offline && faults == 0) {
        Job job;
        putOnWall(job, wall, chosen.hosts);
        loadOverloads(job, false);
        watchNodes(job);
        askNodes(chosen, job, stdout, faults);
    }
    std::printf("%zu servers, %s\n", wall.tiles.size(),
                faults == 0   ? "no fault"
                : faults == 1 ? "1 fault"
                              : (std::to_string(faults) + " faults").c_str());
    if (!options.picture.empty())
        drawToFile(wall, options.picture);
    return faults ? 1 : 0;
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    addWall(command, options->choice.wall);
    command.add_option("--picture", options->picture, "draw the wall as a .png or .svg file too");
    addHosts(command, options->choice.hosts);
    command.add_flag("--offline", options->offline, "do not ask the hosts");
    command.footer(
        "With hosts, each is asked as `run` will ask it: whether it can be reached, and whether\n"
        "server, wall file, display and libraries are there and the same.\n\n"
        "Says what each server will show, draws the wall, and names every fault with its line:\n"
        "bad display names, numbers that are missing, tiles that overlap or reach beyond the "
        "wall,\n"
        "two servers on one screen, hosts in another order than the entries, parts of the wall\n"
        "that no server shows. Strips between tiles that run across the whole wall are bezels and\n"
        "no fault. Exit status: 0 without a fault, 1 with one.");
    return [options](const Program&) { return check(*options); };
}

} // namespace

const WallCommand checkCommand{"check", "Say what a wall file means and what is wrong",
                               TakesProgram::never, add};
