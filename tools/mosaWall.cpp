// mosa-wall: for the people who run a wall.
#include <CLI/CLI.hpp> // before the X headers, whose macros would replace names in it

#include "tools/wallCommands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace {

CLI::Option* addSize(CLI::App* command, const std::string& name, Size& size,
                     const std::string& about, int least = 1)
{
    return command
        ->add_option_function<std::string>(
            name,
            [name, &size, least](const std::string& text) {
                if (!parseSize(text, size) || std::min(size.w, size.h) < least)
                    throw CLI::ValidationError(name, "\"" + text + "\" should read like 4x2");
            },
            about)
        ->type_name("WxH");
}

void addWall(CLI::App* command, WallOptions& options)
{
    command->add_option("WALL,--wall", options.wall,
                        "wall file; without it as MOSA_DISPLAY names one, else "
                        "~/.config/mosa/wall.conf");
}

void addHosts(CLI::App* command, WallOptions& options)
{
    command
        ->add_option("--hosts", options.hosts,
                     "host file: a line NAME or NAME:SERVERS per node, in the servers' order; by "
                     "default the wall file's own")
        ->check(CLI::ExistingFile);
}

void addPlain(CLI::App* command, WallOptions& options)
{
    command->add_flag("--plain", options.plain,
                      "without the overload libraries that enlarge lines and patterns with the "
                      "picture and carry them across seams");
}

void addJobFlags(CLI::App* command, WallOptions& options)
{
    command->add_flag("--dry-run", options.dryRun,
                      "print the mpiexec line and do nothing: no node is asked, no program is "
                      "started");
    command->add_flag("--force", options.force, "go on whatever the checks find");
}

const CLI::Validator aboveZero(
    [](const std::string& text) {
        double value = 0;
        return CLI::detail::lexical_cast(text, value) && value > 0 && std::isfinite(value)
                   ? std::string()
                   : "\"" + text + "\" is no number above 0";
    },
    "NUMBER");

// Refuses options that would not be honoured.
void refuse(const CLI::App* command, const std::vector<const char*>& names, const char* why)
{
    for (const char* name : names)
        if (command->count(name) > 0)
            throw CLI::ValidationError(name, why);
}

// Options of running programs go with one alone, and a recording does not go with one.
void requireOneKind(const CLI::App* command, const WallOptions& options, const char* streams)
{
    if (options.live.program.empty())
        return refuse(
            command,
            {"--window", "--fit", "--pixels", "--calls", "--patience", "--seconds", "--frames"},
            "goes with a program behind -- alone");
    refuse(command, {streams}, "stands beside a program behind --: it is one or the other");
    refuse(command, {"--loop"}, "goes with recordings alone, not with a program");
}

bool takesProgram(const std::string& command)
{
    return command == "run" || command == "record" || command == "demo";
}

// Usage lines that end with a program.
class UsageWithProgram : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* command, std::string name) const override
    {
        std::string usage = CLI::Formatter::make_usage(command, name);
        const bool isRequired = command->get_name() == "record";
        usage.insert(usage.find_last_not_of('\n') + 1,
                     isRequired ? " -- PROGRAM [ARGUMENT...]" : " [-- PROGRAM [ARGUMENT...]]");
        return usage;
    }
};

// A program behind "--" on the command line, which main has taken off.
void addLive(CLI::App* command, LiveOptions& options)
{
    command->formatter(std::make_shared<UsageWithProgram>());
    command
        ->add_option("--window", options.window,
                     "the program's window to show: largest, all, or part of a title")
        ->capture_default_str();
    CLI::Option* const pixels = command->add_flag_callback(
        "--pixels", [&options] { options.showing = "pictures"; },
        "show the program's finished pictures, whatever OpenGL it uses");
    command
        ->add_flag_callback(
            "--calls", [&options] { options.showing = "calls"; },
            "show its calls alone: what needs a newer OpenGL than the wall carries is refused")
        ->excludes(pixels);
    command->add_option("--seconds", options.seconds, "end the program after so many seconds")
        ->check(aboveZero);
    command->add_option("--frames", options.frames, "end the program after so many frames")
        ->check(aboveZero);
}

// How its picture stands on a wall, and how long it waits for one.
void addFit(CLI::App* command, LiveOptions& options)
{
    command
        ->add_option("--patience", options.patience,
                     "a wall that shows no frame for so many seconds is left behind, and the "
                     "program goes on alone; 0: it waits for ever")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        ->add_option("--fit", options.fit,
                     "a picture of another shape than the wall stands in the middle or in the "
                     "lower left corner, or is stretched")
        ->check(CLI::IsMember({"middle", "corner", "stretch"}))
        ->capture_default_str();
}

void addRecord(CLI::App& app, WallOptions& options)
{
    CLI::App* command =
        app.add_subcommand("record", "Record a running program's OpenGL as a stream file");
    command->add_option("-o,--output", options.output, "stream file to write")->required();
    addLive(command, options.live);
    command->footer("Example: mosa-wall record -o gears.mws --frames 100 -- glxgears");
    command->callback([&options] { options.command = recordCommand; });
}

void addLayout(CLI::App& app, WallOptions& options)
{
    CLI::App* command =
        app.add_subcommand("layout", "Write a wall file for a grid of equal screens");
    addSize(command, "GRID", options.grid.screens, "columns and rows of screens, as 4x2")
        ->required();
    addSize(command, "SCREEN", options.grid.screen, "pixels of a screen, as 1920x1080")->required();
    addSize(command, "--bezel", options.grid.bezel,
            "pixels of the wall behind the frames between two screens, as 40x40: the "
            "picture goes on behind them",
            0);
    addHosts(command, options);
    command->add_option("-o,--output", options.output, "file to write, instead of standard output");
    command->footer(
        "Servers count from the upper left screen, row by row. Each opens display :0 of its node:\n"
        "the first server of a node screen 0, the second screen 1, and so on; without hosts they "
        "are\n"
        "all on one node.\n\n"
        "Example: four screens in a row on two nodes\n"
        "  printf 'node1:2\\nnode2:2\\n' >hosts\n"
        "  mosa-wall layout 4x1 1920x1080 --bezel 40x0 --hosts hosts -o wall");
    command->callback([&options] { options.command = layoutCommand; });
}

void addCheck(CLI::App& app, WallOptions& options)
{
    CLI::App* command = app.add_subcommand("check", "Say what a wall file means and what is wrong");
    addWall(command, options);
    command->add_option("--picture", options.picture, "draw the wall as a .png or .svg file too");
    addHosts(command, options);
    command->add_flag("--offline", options.offline, "do not ask the hosts");
    command->footer(
        "With hosts, each is asked as `run` will ask it: whether it can be reached, and whether\n"
        "server, wall file, display and libraries are there and the same.\n\n"
        "Says what each server will show, draws the wall, and names every fault with its line:\n"
        "bad display names, numbers that are missing, tiles that overlap or reach beyond the "
        "wall,\n"
        "two servers on one screen, parts of the wall that no server shows. Strips between tiles "
        "that run across the whole\n"
        "wall are bezels and no fault. Exit status: 0 without a fault, 1 with one.");
    command->callback([&options] { options.command = checkCommand; });
}

void addRun(CLI::App& app, WallOptions& options)
{
    CLI::App* command =
        app.add_subcommand("run", "Show a running program, or stream files, on a wall");
    command->add_option("STREAM", options.streams, "stream files or names of scenes");
    command->add_option(
        "--wall", options.wall,
        "wall file, without it as MOSA_DISPLAY names one, else "
        "~/.config/mosa/wall.conf; where there is none, a program runs on a wall of "
        "virtual displays, of which a picture is left");
    addLive(command, options.live);
    addFit(command, options.live);
    addHosts(command, options);
    addPlayOptions(*command, options.play);
    command->add_option(
        "--snapshot", options.picture,
        "PNG file for a picture of the wall with the last frame; on virtual displays "
        "wall.png without it");
    command->add_flag(
        "--label", options.label,
        "begin each line of output with its task's number: 0 is play, n server n - 1");
    command->add_flag("--stats", options.stats,
                      "say at the end how busy each server was, and who waited for whom");
    addPlain(command, options);
    addJobFlags(command, options);
    command->footer(
        "First every server's node is asked, the way the job reaches it, whether the wall file,\n"
        "the display, its GLX and the OpenGL library are there and its screen is as large as the\n"
        "tile; then play and the servers run. A wall file in which `check` finds a fault is "
        "refused.\n"
        "The program and its arguments stand behind --; it opens its window as always, and the "
        "wall\n"
        "shows it: mosa-wall run --wall wall.conf -- glxgears\n\n"
        "Without hosts they all run on this machine. The wall file, the streams and the programs\n"
        "need the same paths on every node. SYSTEM_OPENGL_LIB names another OpenGL library than\n"
        "this machine's; the other variables of the servers are passed on as they are set.");
    command->callback([command, &options] {
        requireOneKind(command, options, "STREAM");
        if (usualWall(options.wall).empty())
            refuse(command, {"--hosts", "--label", "--stats", "--force", "--dry-run"},
                   "goes with a wall: name its file by --wall");
        options.command = runCommand;
    });
}

void addSnapshot(CLI::App& app, WallOptions& options)
{
    CLI::App* command = app.add_subcommand("snapshot", "Take a picture of the wall");
    addWall(command, options);
    command->add_option("-o,--output", options.output, "PNG file to write, instead of wall.png");
    addHosts(command, options);
    command->footer(
        "Takes every tile's screen and puts them together as on the wall; what no server shows is\n"
        "grey. With hosts, display :0 of a server is that of its node, which must let this "
        "machine\n"
        "connect.");
    command->callback([&options] { options.command = snapshotCommand; });
}

void addPattern(CLI::App& app, WallOptions& options)
{
    CLI::App* command = app.add_subcommand("pattern", "Show a test pattern on a wall");
    addWall(command, options);
    command->add_option("--frames", options.frames, "length of the pattern")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    addPlayOptions(*command, options.play);
    command->add_option("-o,--output", options.output,
                        "write the pattern as a stream file, instead of playing it");
    addHosts(command, options);
    addPlain(command, options);
    command->add_option("--snapshot", options.picture,
                        "PNG file for a picture of the wall with the last frame");
    addJobFlags(command, options);
    command->footer(
        "Geometry: the grid and the diagonals run straight on across the seams, the circle is\n"
        "round, and every tile's coloured outline is seen whole. Each tile names its server and "
        "its\n"
        "rectangle of the wall. Synchronisation: the counters agree on all tiles at any moment, "
        "and\n"
        "the red bar crosses the seams in one piece.");
    command->callback([command, &options] {
        if (command->count("-o") > 0)
            refuse(command,
                   {"--loop", "--ahead", "--loose", "--hold", "--then", "--hosts", "--plain",
                    "--snapshot", "--dry-run", "--force"},
                   "does not go with -o: the pattern is written, not played");
        options.command = patternCommand;
    });
}

void addDemo(CLI::App& app, WallOptions& options)
{
    CLI::App* command =
        app.add_subcommand("demo", "Show a recording, or a program behind --, on virtual displays");
    DemoOptions& demoOptions = options.demo;
    command->add_option("SCENE", demoOptions.scene, "a scene's name or a stream file")
        ->capture_default_str();
    command->add_flag("--list", options.list, "name the scenes that come with the system");
    addSize(command, "--wall", demoOptions.screens, "columns and rows of tiles")
        ->default_str("2x2");
    addSize(command, "--tile", demoOptions.screen,
            "pixels of a tile, as 300x300, which a running program gets without; a recording gets "
            "those of its own window");
    command->add_option("--gap", demoOptions.gap, "pixels of bezel between two tiles")
        ->check(CLI::Range(0, 10000));
    command->add_flag("--show", demoOptions.show,
                      "show the tiles in a window of your display (DISPLAY) while it plays");
    addPlayOptions(*command, options.play);
    addPlain(command, options);
    addLive(command, options.live);
    addFit(command, options.live);
    command->add_option("-o,--output", demoOptions.picture, "PNG file for the picture of the wall")
        ->capture_default_str();
    command->footer(
        "Starts a virtual X display for each tile, plays the scene to a server on each, takes a\n"
        "picture of the wall with the last frame on it, and prints the picture's path.\n\n"
        "Examples:\n"
        "  mosa-wall demo\n"
        "  mosa-wall demo pulsar --wall 3x2 --tile 400x300 --gap 20 -o pulsar.png\n"
        "  mosa-wall demo gears --show --loop 50\n"
        "  mosa-wall demo -- glxgears");
    command->callback([command, &options] {
        requireOneKind(command, options, "SCENE");
        options.command = demoCommand;
    });
}

// What `run` has mpiexec start on the nodes.
void addProbe(CLI::App& app, WallOptions& options)
{
    CLI::App* command = app.add_subcommand("probe", "")->group("");
    command->add_option("WALL", options.wall)->required();
    command->add_option("SUMS", options.sums)->expected(3)->required();
    command->callback([&options] { options.command = probeCommand; });
}

// Says which commands there are when the first argument should be one and is none.
bool refuseUnknownCommand(const CLI::App& app, const std::string& given)
{
    bool known = given.starts_with('-');
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        known |= command->get_name() == given;
        if (!command->get_group().empty())
            names += (names.empty() ? "" : ", ") + command->get_name();
    }
    if (!known)
        std::fprintf(stderr, "mosa-wall: there is no command \"%s\"; the commands are %s\n",
                     given.c_str(), names.c_str());
    return !known;
}

std::string failureMessage(const CLI::App* app, const CLI::Error& error)
{
    const bool extra = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    std::string name = app->get_name();
    for (const CLI::App* command : app->get_subcommands())
        name += " " + command->get_name();
    return "mosa-wall: " + std::string(error.what()) +
           (extra ? " (a program to run stands behind --)" : "") + "\n" + name +
           " --help says what there is.\n";
}

} // namespace

int main(int argc, char** argv)
{
    WallOptions options;
    if (const auto dashes = std::find(argv, argv + argc, std::string_view("--"));
        dashes != argv + argc) {
        options.live.program.assign(dashes + 1, argv + argc);
        if (options.live.program.empty()) {
            std::fputs("mosa-wall: no program stands behind --\n", stderr);
            return static_cast<int>(CLI::ExitCodes::RequiredError);
        }
        argc = static_cast<int>(dashes - argv);
    }
    CLI::App app{"Lays out, checks and runs display walls.", "mosa-wall"};
    app.set_version_flag("--version", MOSA_VERSION);
    app.require_subcommand(1);
    app.failure_message(failureMessage);
    for (const auto add :
         {addLayout, addCheck, addRun, addRecord, addSnapshot, addPattern, addDemo, addProbe})
        add(app, options);
    app.footer("mosa-wall COMMAND --help says more about a command.");
    if (argc > 1 && refuseUnknownCommand(app, argv[1]))
        return static_cast<int>(CLI::ExitCodes::ExtrasError);
    CLI11_PARSE(app, argc, argv);
    const std::string given = app.get_subcommands().front()->get_name();
    if (!options.live.program.empty() && !takesProgram(given)) {
        std::fprintf(stderr,
                     "mosa-wall: %s takes no program: nothing may stand behind --; run, record and "
                     "demo do\n",
                     given.c_str());
        return static_cast<int>(CLI::ExitCodes::ExtrasError);
    }
    try {
        const int status = options.command(options);
        if (status < 0)
            dieOf(-status);
        return status;
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "mosa-wall: %s\n", fault.what());
        return 1;
    }
}
