// What `run` and `check` have mpiexec start on the nodes.
#include "tools/command.h"

#include "tools/wallRun.h"

#include <memory>

namespace {

struct Options {
    std::string wall;
    std::vector<std::string> sums; // and the hosts
};

Action add(CLI::App& command)
{
    const auto options = std::make_shared<Options>();
    command.add_option("WALL", options->wall)->required();
    command.add_option("SUMS", options->sums)->expected(3)->required();
    return [options](const Program&) {
        const std::vector<std::string>& sums = options->sums;
        return probeNode(options->wall, {sums.at(0), sums.at(1), sums.at(2)});
    };
}

} // namespace

const WallCommand probeCommand{"probe", "", TakesProgram::never, add};
