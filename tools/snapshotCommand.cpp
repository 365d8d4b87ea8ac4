#include "tools/commandOptions.h"

#include "tools/wallDrawing.h"
#include "tools/wallRun.h"

#include <memory>

namespace {

struct Options {
    WallChoice choice;
    std::string output = "wall.png";
};

int takeSnapshot(const Options& options)
{
    const ChosenWall chosen = chooseWall(options.choice, readUsableWall);
    requireWritable(options.output);
    writePng(options.output, snapshotWall(chosen.wall, chosen.places));
    return 0;
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    addWall(command, options->choice.wall);
    command.add_option("-o,--output", options->output, "PNG file to write, instead of wall.png");
    addHosts(command, options->choice.hosts);
    command.footer(
        "Takes every tile's screen and puts them together as on the wall; what no server shows is\n"
        "grey. With hosts, display :0 of a server is that of its node, which must let this "
        "machine\n"
        "connect.");
    return [options](const Program&) { return takeSnapshot(*options); };
}

} // namespace

const WallCommand snapshotCommand{"snapshot", "Take a picture of the wall", TakesProgram::never,
                                  add};
