#include "tools/commandOptions.h"

#include "client/wholeFile.h"
#include "tools/wallDemo.h"

#include <cstdlib>
#include <memory>

namespace {

struct Options {
    Grid grid{{2, 2}, {300, 300}, {}};
    int gap = 0;
    bool show = false;
};

int runInside(const Options& options, const Program& program)
{
    Grid grid = options.grid;
    grid.bezel = {options.gap, options.gap};
    std::vector<VirtualDisplay> displays = openVirtualWall(grid, options.show);
    const std::string file = temporaryName("wall");
    writeWholeFile(file, virtualWallText(grid, displays));
    const char* shell = std::getenv("SHELL");
    const Program inside = !program.empty() ? program : Program{shell && *shell ? shell : "sh"};
    if (program.empty())
        std::fprintf(stderr,
                     "mosa-wall: a wall of %s tiles of %s pixels, for what is started in this "
                     "shell; exit ends it\n",
                     toText(grid.screens).c_str(), toText(grid.screen).c_str());
    Process process = startProcess(
        {.argv = inside,
         .environment = {"MOSA_DISPLAY=" + file, "MOSA_BANNER_TIME=0", "LIBGL_ALWAYS_SOFTWARE=1"},
         .isUsers = true});
    while (!waitForEnd(process, std::chrono::milliseconds(200)))
        followStops();
    programIsDone();
    const Ending ending = finishProcess(process, Timeout{});
    stopDisplays(displays);
    return ending.signal ? -ending.signal : ending.status;
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    addSize(command, "COLUMNSxROWS", options->grid.screens, "tiles of the wall")
        ->default_str("2x2");
    addSize(command, "TILE", options->grid.screen, "pixels of a tile, as 300x300")
        ->default_str("300x300");
    command.add_option("--gap", options->gap, "pixels of bezel between two tiles")
        ->check(CLI::Range(0, 10000));
    command.add_flag("--show", options->show,
                     "show the tiles in a window of your display (DISPLAY)");
    command.footer(
        "Starts a virtual X display for each tile, and in it all, in place of a wall of your own, "
        "a\n"
        "shell, or the program behind --. What is started there finds the wall by MOSA_DISPLAY. "
        "The\n"
        "wall ends with it.\n\n"
        "Example:\n"
        "  mosa-wall virtual 3x2 400x300 --show\n"
        "  mosa-wall run -- glxgears &\n"
        "  mosa-wall snapshot\n"
        "  exit");
    return [options](const Program& program) { return runInside(*options, program); };
}

} // namespace

const WallCommand virtualCommand{"virtual", "Have a wall of virtual displays for a shell",
                                 TakesProgram::perhaps, add};
