#include "tools/commandOptions.h"

#include "tools/wallJob.h"
#include "tools/wallPattern.h"

#include <memory>

namespace {

struct Options {
    WallChoice choice;
    int frames = 600;
    std::string output; // a stream file; empty: it is played
    JobOptions job;
};

int showPattern(const CLI::App& command, const Options& options)
{
    const JobOptions& job = options.job;
    if (!options.output.empty())
        refuse(command,
               {"--loop", "--ahead", "--loose", "--hold", "--then", "--hosts", "--at", "--name",
                "--plain", "--snapshot", "--dry-run", "--force", "--blank-after", "--before",
                "--after"},
               "does not go with -o: the pattern is written, not played");
    const ChosenWall chosen = chooseWall(options.choice, readUsableWall);
    const std::vector<OutgoingBuffer> stream = patternStream(chosen.wall, options.frames);
    if (!options.output.empty()) {
        writeStreamFile(options.output, stream);
        return 0;
    }
    if (!job.dryRun && !job.picture.empty())
        requireWritable(job.picture);
    const std::string file = temporaryName("pattern");
    writeStreamFile(file, stream);
    JobOptions named = job;
    if (named.name.empty())
        named.name = "pattern"; // not the temporary file's
    return playOnWall(chosen, {file}, named);
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    JobOptions& job = options->job;
    addWall(command, options->choice.wall);
    command.add_option("--frames", options->frames, "length of the pattern")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    addPlayOptions(command, job.play);
    command.add_option("-o,--output", options->output,
                       "write the pattern as a stream file, instead of playing it");
    addHosts(command, options->choice.hosts);
    addAt(command, job.at, job.name);
    addPlain(command, job.plain);
    command.add_option("--snapshot", job.picture,
                       "PNG file for a picture of the wall with the last frame");
    addDisplays(command, job.displays);
    addJobFlags(command, job);
    command.footer(
        "Geometry: the grid and the diagonals run straight on across the seams, the circles, of "
        "which\n"
        "each seam has one, are round, and every tile's coloured outline is seen whole. Each tile "
        "names\n"
        "its server and its rectangle of the wall, and has white and 16 greys to match displays "
        "by.\n"
        "Synchronisation: the counters agree on all tiles at any moment, "
        "and\n"
        "the red bar crosses the seams in one piece.");
    return [options, &command](const Program&) { return showPattern(command, *options); };
}

} // namespace

const WallCommand patternCommand{"pattern", "Show a test pattern on a wall", TakesProgram::never,
                                 add};
