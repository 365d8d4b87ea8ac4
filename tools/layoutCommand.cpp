#include "tools/commandOptions.h"

#include "client/wholeFile.h"

#include <cstdio>
#include <memory>

namespace {

struct Options {
    Grid grid;
    Measure picture, between; // of a screen, and to the next; 0: they were not measured
    std::string hosts, output;
};

int layOut(const CLI::App& command, const Options& options)
{
    Grid grid = options.grid;
    if (command.count("--bezel-mm") > 0)
        grid.bezel = bezelPixels(grid.screen, options.picture, options.between);
    requireUsable(grid);
    const std::vector<Host> hosts =
        options.hosts.empty() ? std::vector<Host>{} : readHosts(options.hosts);
    const std::vector<Place> places = placeServers(hosts, grid.screens.w * grid.screens.h);
    // Each server opens a display of its own node, with a screen for each.
    std::vector<std::string> displays;
    for (const Place& place : places)
        displays.push_back(":0." + std::to_string(place.onHost));
    const std::string text = wallFileText(grid, displays, places) + hostLines(hosts);
    if (options.output.empty())
        std::fputs(text.c_str(), stdout);
    else
        writeWholeFile(options.output, text);
    return 0;
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    addSize(command, "GRID", options->grid.screens, "columns and rows of screens, as 4x2")
        ->required();
    addSize(command, "SCREEN", options->grid.screen, "pixels of a screen, as 1920x1080")
        ->required();
    CLI::Option* const pixels =
        addSize(command, "--bezel", options->grid.bezel,
                "pixels of the wall behind the frames between two screens, as 40x40: the "
                "picture goes on behind them",
                0);
    CLI::Option* const picture =
        addMeasure(command, "--screen-mm", options->picture,
                   "width and height of a screen's visible picture in millimetres, as 1210x680");
    CLI::Option* const between =
        addMeasure(command, "--bezel-mm", options->between,
                   "millimetres from a picture's visible edge to the next one's, across both "
                   "frames, to the side and upward, as 12x14; the bezel is as many whole pixels");
    picture->needs(between);
    between->needs(picture)->excludes(pixels);
    addHosts(command, options->hosts);
    command.add_option("-o,--output", options->output, "file to write, instead of standard output");
    command.footer(
        "Servers count from the upper left screen, row by row. Each opens display :0 of its node:\n"
        "the first server of a node screen 0, the second screen 1, and so on; without hosts they "
        "are\n"
        "all on one node.\n\n"
        "Example: four screens in a row on two nodes\n"
        "  printf 'node1:2\\nnode2:2\\n' >hosts\n"
        "  mosa-wall layout 4x1 1920x1080 --bezel 40x0 --hosts hosts -o wall");
    return [options, &command](const Program&) { return layOut(command, *options); };
}

} // namespace

const WallCommand layoutCommand{"layout", "Write a wall file for a grid of equal screens",
                                TakesProgram::never, add};
