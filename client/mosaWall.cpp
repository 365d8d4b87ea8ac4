// mosa-wall: for the people who run a wall.
#include <CLI/CLI.hpp> // before the X headers, whose macros would replace names in it

#include "client/locations.h"
#include "client/process.h"
#include "client/wallCheck.h"
#include "client/wallDemo.h"
#include "client/wallDrawing.h"
#include "client/wallPattern.h"
#include "client/wallRun.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <unistd.h>

namespace {

struct Options {
    int (*action)(const Options&) = nullptr; // the command given
    Grid grid;
    std::string wall, hosts, output, picture;
    std::vector<std::string> streams;
    int loop = 1;
    int frames = 600;
    bool dryRun = false, list = false;
    DemoOptions demo;
};

std::vector<Host> hostsOf(const Options& options)
{
    return options.hosts.empty() ? std::vector<Host>{} : readHosts(options.hosts);
}

std::vector<Place> placesOf(const Wall& wall, const Options& options)
{
    return placeServers(hostsOf(options), static_cast<int>(wall.tiles.size()));
}

int layout(const Options& options)
{
    const Grid& grid = options.grid;
    requireUsable(grid);
    const std::vector<Place> places =
        placeServers(hostsOf(options), grid.screens.w * grid.screens.h);
    // Each server opens a display of its own node; several on one node have a screen each.
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

int check(const Options& options)
{
    const Wall wall = readWall(options.wall);
    for (std::size_t n = 0; n < wall.tiles.size(); ++n)
        std::printf("%s\n", describeTile(wall, static_cast<int>(n)).c_str());
    std::printf("\n%s\n", drawAsText(wall).c_str());
    int faults = 0;
    for (const Finding& finding : checkWall(wall)) {
        faults += finding.fault;
        const std::string line = finding.line ? ":" + std::to_string(finding.line) : "";
        std::printf("%s%s: %s: %s\n", wall.file.c_str(), line.c_str(),
                    finding.fault ? "fault" : "note", finding.text.c_str());
    }
    std::printf("%zu servers, %s\n", wall.tiles.size(),
                faults == 0   ? "no fault"
                : faults == 1 ? "1 fault"
                              : (std::to_string(faults) + " faults").c_str());
    if (!options.picture.empty())
        drawToFile(wall, options.picture);
    return faults ? 1 : 0;
}

// Prints or checks a job. True when it is to be run.
bool readyToRun(const Wall& wall, const Job& job, const Options& options)
{
    if (options.dryRun) {
        std::printf("%s\n", shellLine(jobLine(job)).c_str());
        return false;
    }
    const std::vector<std::string> faults = probeWall(wall, job, placesOf(wall, options));
    for (const std::string& fault : faults)
        std::fprintf(stderr, "mosa-wall: %s\n", fault.c_str());
    if (!faults.empty())
        throw std::runtime_error("the wall is not ready");
    return true;
}

int run(const Options& options)
{
    const Wall wall = readUsableWall(options.wall);
    std::vector<std::string> arguments = options.streams;
    if (options.loop != 1)
        arguments.insert(arguments.end(), {"--loop", std::to_string(options.loop)});
    const Job job = wallJob(wall, hostsOf(options), arguments);
    if (!readyToRun(wall, job, options))
        return 0;
    std::vector<std::string> line = jobLine(job);
    std::vector<char*> argv;
    for (std::string& word : line)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    throw std::runtime_error(line[0] + ": " + std::strerror(errno));
}

int snapshot(const Options& options)
{
    const Wall wall = readUsableWall(options.wall);
    writePng(options.output.empty() ? "wall.png" : options.output,
             snapshotWall(wall, placesOf(wall, options)));
    return 0;
}

int pattern(const Options& options)
{
    const Wall wall = readUsableWall(options.wall);
    const std::vector<OutgoingBuffer> stream = patternStream(wall, options.frames);
    if (!options.output.empty()) {
        writeStreamFile(options.output, stream);
        return 0;
    }
    const std::string file = temporaryFile("");
    writeStreamFile(file, stream);
    Job job = wallJob(wall, hostsOf(options), {file, "--loop", std::to_string(options.loop)});
    job.output = Output::inherit;
    if (!readyToRun(wall, job, options))
        return 0;
    // The operator ends it when the wall has been judged, if not its last frame does.
    constexpr Timeout days = std::chrono::hours(24 * 7);
    return runJob(job, days).status;
}

int demo(const Options& options)
{
    if (options.list) {
        listScenes();
        return 0;
    }
    return runDemo(options.demo);
}

int probe(const Options& options) { return probeNode(options.wall); }

CLI::Option* addSize(CLI::App* command, const std::string& name, Size& size,
                     const std::string& about)
{
    return command
        ->add_option_function<std::string>(
            name,
            [name, &size](const std::string& text) {
                if (!parseSize(text, size))
                    throw CLI::ValidationError(name, "\"" + text + "\" should read like 4x2");
            },
            about)
        ->type_name("WxH");
}

void addHosts(CLI::App* command, Options& options)
{
    command
        ->add_option("--hosts", options.hosts,
                     "host file: a line NAME or NAME:SERVERS per node, in the servers' order")
        ->check(CLI::ExistingFile);
}

void addDryRun(CLI::App* command, Options& options)
{
    command->add_flag("--dry-run", options.dryRun, "print the mpiexec line and do nothing");
}

void addLayout(CLI::App& app, Options& options)
{
    CLI::App* command =
        app.add_subcommand("layout", "Write a wall file for a grid of equal screens");
    addSize(command, "GRID", options.grid.screens, "columns and rows of screens, as 4x2")
        ->required();
    addSize(command, "SCREEN", options.grid.screen, "pixels of a screen, as 1920x1080")->required();
    addSize(command, "--bezel", options.grid.bezel,
            "pixels of the wall behind the frames between two screens, as 40x40: the "
            "picture goes on behind them");
    addHosts(command, options);
    command->add_option("-o,--output", options.output, "file to write, instead of standard output");
    command->footer(
        "Servers count from the upper left screen, row by row. Each opens display :0 of its node:\n"
        "the first server of a node screen 0, the second screen 1, and so on.\n\n"
        "Example: four screens in a row on two nodes\n"
        "  printf 'node1:2\\nnode2:2\\n' >hosts\n"
        "  mosa-wall layout 4x1 1920x1080 --bezel 40x0 --hosts hosts -o wall");
    command->callback([&options] { options.action = layout; });
}

void addCheck(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("check", "Say what a wall file means and what is wrong");
    command->add_option("WALL", options.wall, "wall file")->required();
    command->add_option("--picture", options.picture, "draw the wall as a .png or .svg file too");
    command->footer(
        "Says what each server will show, draws the wall, and names every fault with its line:\n"
        "bad display names, numbers that are missing, tiles that overlap or reach beyond the "
        "wall,\n"
        "parts of the wall that no server shows. Strips between tiles that run across the whole\n"
        "wall are bezels and no fault. Exit status: 0 without a fault, 1 with one.");
    command->callback([&options] { options.action = check; });
}

void addRun(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("run", "Play stream files on a wall");
    command->add_option("STREAM", options.streams, "stream files")->required();
    command->add_option("--wall", options.wall, "wall file")->required();
    addHosts(command, options);
    command->add_option("--loop", options.loop, "play the frames so many times")
        ->check(CLI::PositiveNumber);
    addDryRun(command, options);
    command->footer(
        "First every server's node is asked, the way the job reaches it, whether the wall file,\n"
        "the display, its GLX and the OpenGL library are there; then play and the servers run.\n"
        "Without hosts they all run on this machine. The wall file, the streams and the programs\n"
        "need the same paths on every node. SYSTEM_OPENGL_LIB names another OpenGL library than\n"
        "this machine's; the other variables of the servers are passed on as they are set.");
    command->callback([&options] { options.action = run; });
}

void addSnapshot(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("snapshot", "Take a picture of the wall");
    command->add_option("WALL", options.wall, "wall file")->required();
    command->add_option("-o,--output", options.output, "PNG file to write, instead of wall.png");
    addHosts(command, options);
    command->footer(
        "Takes every tile's screen and puts them together as on the wall; what no server shows is\n"
        "grey. With hosts, display :0 of a server is that of its node, which must let this "
        "machine\n"
        "connect.");
    command->callback([&options] { options.action = snapshot; });
}

void addPattern(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("pattern", "Show a test pattern on a wall");
    command->add_option("--wall", options.wall, "wall file")->required();
    command->add_option("--frames", options.frames, "length of the pattern")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command->add_option("--loop", options.loop, "play the frames so many times")
        ->check(CLI::PositiveNumber);
    command->add_option("-o,--output", options.output,
                        "write the pattern as a stream file, instead of playing it");
    addHosts(command, options);
    addDryRun(command, options);
    command->footer(
        "Geometry: the grid and the diagonals run straight on across the seams, the circle is\n"
        "round, and every tile's coloured outline is seen whole. Each tile names its server and "
        "its\n"
        "rectangle of the wall. Synchronisation: the counters agree on all tiles at any moment, "
        "and\n"
        "the red bar crosses the seams in one piece.");
    command->callback([&options] { options.action = pattern; });
}

void addDemo(CLI::App& app, Options& options)
{
    CLI::App* command =
        app.add_subcommand("demo", "Play a recording on a wall of virtual displays here");
    DemoOptions& demoOptions = options.demo;
    command->add_option("SCENE", demoOptions.scene, "a scene's name or a stream file")
        ->capture_default_str();
    command->add_flag("--list", options.list, "name the scenes that come with the system");
    addSize(command, "--wall", demoOptions.screens, "columns and rows of tiles")
        ->default_str("2x2");
    addSize(command, "--tile", demoOptions.screen,
            "pixels of a tile, as 300x300; without, those of the program's own window");
    command->add_option("--gap", demoOptions.gap, "pixels of bezel between two tiles")
        ->check(CLI::Range(0, 10000));
    command->add_flag("--show", demoOptions.show,
                      "show the tiles in a window of your display (DISPLAY) while it plays");
    command->add_option("--loop", demoOptions.loop, "play the frames so many times")
        ->check(CLI::PositiveNumber);
    command->add_option("-o,--output", demoOptions.picture, "PNG file for the picture of the wall")
        ->capture_default_str();
    command->footer(
        "Starts a virtual X display for each tile, plays the scene to a server on each, takes a\n"
        "picture of the wall with the last frame on it, and prints the picture's path.\n\n"
        "Examples:\n"
        "  mosa-wall demo\n"
        "  mosa-wall demo pulsar --wall 3x2 --tile 400x300 --gap 20 -o pulsar.png\n"
        "  mosa-wall demo gears --show --loop 50");
    command->callback([&options] { options.action = demo; });
}

// What `run` has mpiexec start on the nodes.
void addProbe(CLI::App& app, Options& options)
{
    CLI::App* command = app.add_subcommand("probe", "")->group("");
    command->add_option("WALL", options.wall)->required();
    command->callback([&options] { options.action = probe; });
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app{"Lays out, checks and runs display walls.", "mosa-wall"};
    app.set_version_flag("--version", MOSA_VERSION);
    app.require_subcommand(1);
    for (const auto add : {addLayout, addCheck, addRun, addSnapshot, addPattern, addDemo, addProbe})
        add(app, options);
    app.footer("mosa-wall COMMAND --help says more about a command.");
    CLI11_PARSE(app, argc, argv);
    try {
        return options.action(options);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "mosa-wall: %s\n", fault.what());
        return 1;
    }
}
