#include "tools/commandOptions.h"

#include "tools/wallDemo.h"

#include <memory>

namespace {

struct Options {
    DemoOptions demo;
    bool list = false;
};

int show(const CLI::App& command, Options& options, const Program& program)
{
    requireOneKind(command, program, "SCENE");
    if (options.list) {
        listScenes();
        return 0;
    }
    options.demo.live.program = program;
    return runDemo(options.demo);
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    DemoOptions& demo = options->demo;
    command.add_option("SCENE", demo.scene, "a scene's name or a stream file")
        ->capture_default_str();
    command.add_flag("--list", options->list, "name the scenes that come with the system");
    addSize(command, "--wall", demo.screens, "columns and rows of tiles")->default_str("2x2");
    addSize(command, "--tile", demo.screen,
            "pixels of a tile, as 300x300, which a running program gets without; a recording gets "
            "those of its own window");
    command.add_option("--gap", demo.gap, "pixels of bezel between two tiles")
        ->check(CLI::Range(0, 10000));
    command.add_flag("--show", demo.show,
                     "show the tiles in a window of your display (DISPLAY) while it plays");
    addPlayOptions(command, demo.play);
    addAt(command, demo.at, demo.name);
    addPlain(command, demo.plain);
    addCapture(command, demo.live);
    addFit(command, demo.live);
    command.add_option("-o,--output", demo.picture, "PNG file for the picture of the wall")
        ->capture_default_str();
    command.footer(
        "Starts a virtual X display for each tile, plays the scene to a server on each, takes a\n"
        "picture of the wall with the last frame on it, and prints the picture's path.\n\n"
        "Examples:\n"
        "  mosa-wall demo\n"
        "  mosa-wall demo pulsar --wall 3x2 --tile 400x300 --gap 20 -o pulsar.png\n"
        "  mosa-wall demo gears --show --loop 50\n"
        "  mosa-wall demo -- glxgears");
    return [options, &command](const Program& program) { return show(command, *options, program); };
}

} // namespace

const WallCommand demoCommand{"demo",
                              "Show a recording, or a program behind --, on virtual displays",
                              TakesProgram::perhaps, add};
