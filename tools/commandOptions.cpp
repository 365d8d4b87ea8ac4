#include "tools/commandOptions.h"

#include <algorithm>
#include <cmath>

namespace {

const CLI::Validator aboveZero(
    [](const std::string& text) {
        double value = 0;
        return CLI::detail::lexical_cast(text, value) && value > 0 && std::isfinite(value)
                   ? std::string()
                   : "\"" + text + "\" is no number above 0";
    },
    "NUMBER");

} // namespace

CLI::Option* addSize(CLI::App& command, const std::string& name, Size& size,
                     const std::string& about, int least)
{
    return command
        .add_option_function<std::string>(
            name,
            [name, &size, least](const std::string& text) {
                if (!parseSize(text, size) || std::min(size.w, size.h) < least)
                    throw CLI::ValidationError(name, "\"" + text + "\" should read like 4x2");
            },
            about)
        ->type_name("WxH");
}

CLI::Option* addMeasure(CLI::App& command, const std::string& name, Measure& size,
                        const std::string& about)
{
    return command
        .add_option_function<std::string>(
            name,
            [name, &size](const std::string& text) {
                if (!parseSize(text, size))
                    throw CLI::ValidationError(name, "\"" + text +
                                                         "\" should read like 12x14.5, in "
                                                         "millimetres");
            },
            about)
        ->type_name("WxH");
}

void addWall(CLI::App& command, std::string& wall)
{
    command.add_option("WALL,--wall", wall,
                       "wall file; without it as MOSA_DISPLAY names one, else "
                       "~/.config/mosa/wall.conf");
}

void addHosts(CLI::App& command, std::string& hosts)
{
    command
        .add_option("--hosts", hosts,
                    "host file: a line NAME or NAME:SERVERS per node, in the servers' order; by "
                    "default the wall file's own")
        ->check(CLI::ExistingFile);
}

void addPlain(CLI::App& command, bool& plain)
{
    command.add_flag("--plain", plain,
                     "without the overload libraries that enlarge lines and patterns with the "
                     "picture and carry them across seams");
}

void addAt(CLI::App& command, AtOptions& options, std::string& name)
{
    CLI::Option* const at = command.add_option(
        "--at", options.at,
        "the area of the wall that it has, above what is there: 960x540+480+270 from the upper "
        "left, 50x50%, left, top-right, center and the like");
    command
        .add_flag("--movable", options.isMovable,
                  "the area may be moved to any place: every server draws all of it")
        ->needs(at);
    command.add_option("--name", name,
                       "what list, move, raise and stop call it; without it the program's name");
}

void addDisplays(CLI::App& command, DisplayOptions& options)
{
    constexpr int most = 540; // that X's screen saver counts to
    command
        .add_option("--blank-after", options.blankAfter,
                    "minutes after the last job in which displays with nothing on them go dark; 0: "
                    "never; without it as each is set")
        ->check(CLI::Range(0, most));
    command.add_option("--before", options.before,
                       "shell command on this machine before the job starts, as for panels with a "
                       "control of their own; MOSA_DISPLAY is the wall file there");
    command.add_option("--after", options.after, "likewise after the job, however that has ended");
}

void addJobFlags(CLI::App& command, JobOptions& options)
{
    command.add_flag("--dry-run", options.dryRun,
                     "print the mpiexec line and do nothing: no node is asked, no program is "
                     "started");
    command.add_flag("--force", options.force, "go on whatever the checks find");
}

void addCapture(CLI::App& command, LiveOptions& options)
{
    command
        .add_option("--window", options.window,
                    "the program's window to show: largest, all, or part of a title")
        ->capture_default_str();
    CLI::Option* const pixels = command.add_flag_callback(
        "--pixels", [&options] { options.showing = "pictures"; },
        "show the program's finished pictures, whatever OpenGL it uses");
    command
        .add_flag_callback(
            "--calls", [&options] { options.showing = "calls"; },
            "show its calls alone: what needs a newer OpenGL than the wall carries is refused")
        ->excludes(pixels);
    command.add_option("--seconds", options.seconds, "end the program after so many seconds")
        ->check(aboveZero);
    command.add_option("--frames", options.frames, "end the program after so many frames")
        ->check(aboveZero);
}

void addFit(CLI::App& command, LiveOptions& options)
{
    command
        .add_option("--patience", options.patience,
                    "a wall that shows no frame for so many seconds is left behind, and the "
                    "program goes on alone; 0: it waits for ever")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command
        .add_option("--fit", options.fit,
                    "a picture of another shape than the wall stands in the middle or in the "
                    "lower left corner, or is stretched")
        ->check(CLI::IsMember({"middle", "corner", "stretch"}))
        ->capture_default_str();
    command
        .add_option("--enlarge", options.enlarge,
                    "finished pictures that the wall enlarges are smooth, or sharp: every pixel a "
                    "block with edges; auto: sharp from twice their size on")
        ->check(CLI::IsMember({"smooth", "sharp", "auto"}))
        ->capture_default_str();
    command.add_flag_callback(
        "--pointer", [&options] { options.pointer = true; },
        "show the mouse pointer, too, while it is in the program's window; without it likewise "
        "where there is a desk and no picture is taken");
    command
        .add_flag_callback(
            "--no-pointer", [&options] { options.pointer = false; }, "do not")
        ->excludes("--pointer");
}

void refuse(const CLI::App& command, const std::vector<const char*>& names, const char* why)
{
    for (const char* name : names)
        if (command.count(name) > 0)
            throw CLI::ValidationError(name, why);
}

void requireOneKind(const CLI::App& command, const Program& program, const char* streams)
{
    if (program.empty())
        return refuse(command,
                      {"--window", "--fit", "--enlarge", "--pixels", "--calls", "--patience",
                       "--pointer", "--no-pointer", "--seconds", "--frames"},
                      "goes with a program behind -- alone");
    refuse(command, {streams}, "stands beside a program behind --: it is one or the other");
    refuse(command, {"--loop"}, "goes with recordings alone, not with a program");
}
