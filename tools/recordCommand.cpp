#include "tools/commandOptions.h"

#include "tools/wallRun.h"

#include <memory>
#include <stdexcept>

namespace {

struct Options {
    std::string output;
    LiveOptions live;
};

int record(Options& options, const Program& program)
{
    if (program.empty())
        throw std::runtime_error("name a program behind --");
    options.live.program = program;
    requireWritable(options.output);
    return recordProgram(options.live, options.output);
}

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    command.add_option("-o,--output", options->output, "stream file to write")->required();
    addCapture(command, options->live);
    command.footer("Example: mosa-wall record -o gears.mws --frames 100 -- glxgears");
    return [options](const Program& program) { return record(*options, program); };
}

} // namespace

const WallCommand recordCommand{"record", "Record a running program's OpenGL as a stream file",
                                TakesProgram::always, add};
