#include "client/playOptions.h"

#include <CLI/CLI.hpp>

void addPlayOptions(CLI::App& app, PlayOptions& options)
{
    app.add_option("--loop", options.loop,
                   "play the frames N times; the first frame of a file, which creates the "
                   "contexts, plays once")
        ->check(CLI::PositiveNumber);
    app.add_option("--ahead", options.ahead,
                   "how many synchronised frames may be on their way at once")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_flag("--loose", options.loose,
                 "let the first server alone hold the frames back: faster, but the tiles may show "
                 "different frames");
    app.add_option("--hold", options.hold, "keep the last frame on the wall for so many seconds")
        ->check(CLI::Range(0.0, 1e9));
    app.add_option("--then", options.then,
                   "run this shell command once the last frame is on the wall");
}

std::vector<std::string> playArguments(const PlayOptions& options, bool wait)
{
    std::vector<std::string> arguments{"--loop", std::to_string(options.loop), "--ahead",
                                       std::to_string(options.ahead)};
    if (options.loose)
        arguments.emplace_back("--loose");
    if (wait)
        arguments.emplace_back("--wait");
    return arguments;
}
