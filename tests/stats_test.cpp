// MOSA_STATS in a real job.
#include "tools/mpiJob.h"
#include "tools/virtualDisplays.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

// Plays the gears and keeps the last frame for `seconds`; what the job wrote on standard error.
std::string playGears(const std::string& display, const std::string& stats,
                      const std::string& seconds)
{
    Job job;
    job.client = {PLAY, "--hold", seconds, EXAMPLES "/gears.mws"};
    job.server = {SERVER};
    job.environment = virtualWallEnvironment(temporaryFile(display + " 300 300 0 0 300 300\n"));
    if (!stats.empty())
        job.environment.push_back("MOSA_STATS=" + stats);
    const Ending ending = runJob(job, std::chrono::seconds(120));
    EXPECT_EQ(ending.status, 0) << ending.err;
    return ending.err;
}

long countOf(const std::string& text, const std::string& pattern)
{
    const std::regex line("MOSA: server 0, " + pattern + " buffers waiting\n");
    return std::distance(std::sregex_iterator(text.begin(), text.end(), line), {});
}

// The recording has 20 frames of 1783 operations in 22422 bytes; at its end the client sends
// one more synchronised buffer, of one operation of 2 bytes.
TEST(Stats, LinesWhileTheStreamRunsAndTheTotals)
{
    std::vector<VirtualDisplay> displays = startDisplays(1, 300, 300);
    const std::string with = playGears(displays[0].name, "1", "2.5");
    EXPECT_GE(countOf(with, R"(last 1\.\d s: \d+ frames .*, \d+)"), 2) << with;
    EXPECT_EQ(countOf(with, R"(in all \d+\.\d s: 21 frames \(\d+\.\d per second\), )"
                            "1784 operations, 22424 bytes, 0 messages suppressed, decoding "
                            "[1-9]\\d?% of the time, 0"),
              1)
        << with;
    for (const char* off : {"", "often"})
        EXPECT_EQ(countOf(playGears(displays[0].name, off, "0"), ".*"), 0) << off;
    stopDisplays(displays);
}

} // namespace
