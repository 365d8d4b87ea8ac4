#include "tools/commandOptions.h"

#include "client/locations.h"
#include "tools/wallDemo.h"
#include "tools/wallJob.h"

#include <memory>
#include <stdexcept>

namespace {

struct Options {
    WallChoice choice;
    std::vector<std::string> streams; // names of scenes or files
    JobOptions job;
    LiveOptions live;
};

// A program runs on a wall of virtual displays where there is none.
int runWithoutWall(const Options& options)
{
    DemoOptions demo;
    demo.play = options.job.play;
    demo.live = options.live;
    demo.plain = options.job.plain;
    demo.at = options.job.at;
    demo.name = options.job.name;
    if (!options.job.picture.empty())
        demo.picture = options.job.picture;
    return runDemo(demo);
}

int run(const CLI::App& command, Options& options, const Program& program)
{
    const bool isLive = !program.empty();
    requireOneKind(command, program, "STREAM");
    const bool isWall = !usualWall(options.choice.wall).empty();
    if (!isWall)
        refuse(command,
               {"--hosts", "--label", "--stats", "--force", "--dry-run", "--blank-after",
                "--before", "--after"},
               "goes with a wall: name its file by --wall");
    if (!isLive && options.streams.empty())
        throw std::runtime_error("name stream files, or a program behind --");
    if (isLive)
        refuse(command, {"--dry-run"},
               "goes with stream files: the job of a program needs mosa-wall beside it");
    options.live.program = program;
    if (isLive && !isWall)
        return runWithoutWall(options);
    const ChosenWall chosen = chooseWall(options.choice, readUsableWall);
    std::vector<std::string> files;
    for (const std::string& stream : options.streams)
        files.push_back(findStream(stream));
    if (!options.job.dryRun) {
        for (const std::string& file : files)
            requireStream(file);
        if (!options.job.picture.empty())
            requireWritable(options.job.picture);
    }
    return playOnWall(chosen, files, options.job, options.live);
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    JobOptions& job = options->job;
    command.add_option("STREAM", options->streams, "stream files or names of scenes");
    command.add_option("--wall", options->choice.wall,
                       "wall file, without it as MOSA_DISPLAY names one, else "
                       "~/.config/mosa/wall.conf; where there is none, a program runs on a wall of "
                       "virtual displays, of which a picture is left");
    addCapture(command, options->live);
    addFit(command, options->live);
    addHosts(command, options->choice.hosts);
    addPlayOptions(command, job.play);
    command.add_option(
        "--snapshot", job.picture,
        "PNG file for a picture of the wall with the last frame; on virtual displays "
        "wall.png without it");
    command.add_flag("--label", job.label,
                     "begin each line of output with its task's number: 0 is play, n server n - 1");
    command.add_flag("--stats", job.stats,
                     "say at the end how busy each server was, and who waited for whom");
    addAt(command, job.at, job.name);
    addPlain(command, job.plain);
    addDisplays(command, job.displays);
    addJobFlags(command, job);
    command.footer(
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
    return [options, &command](const Program& program) { return run(command, *options, program); };
}

} // namespace

const WallCommand runCommand{"run", "Show a running program, or stream files, on a wall",
                             TakesProgram::perhaps, add};
