// The way of the bytes from the client to every server, and of the acknowledgements back.
#include "client/streamFile.h"
#include "tests/jobSupport.h"

#include <algorithm>
#include <fstream>

namespace {

// Trees of one to three levels; slices with and without a remainder and of no bytes; buffers of the
// pool and beyond it; headers without a buffer, of which no acknowledgement comes.
TEST(Wire, SlicesReachEveryServer)
{
    for (const int servers : {1, 3, 5}) {
        Strings steps;
        int numbers = 0;
        for (const int records : {1, 2, 3, 1000, 333'333, 333'334, 5}) {
            numbers += records;
            steps.insert(steps.end(), {"numbers", std::to_string(records), "header", "0", "1"});
        }
        // One more than a server can hold undecoded: when the last is acknowledged all have told.
        for (const char* step : {"send", "1", "-1", "glEnd", "send", "64", "0", "#39", "send", "1",
                                 "7", "#39", "acknowledged", "2", "end"})
            steps.push_back(step);
        const Ending ending = run(clientJob(servers, steps, {overloads()}));
        EXPECT_EQ(ending.status, 0) << "of " << servers << " servers";
        for (int task = 1; task <= servers; ++task)
            expectSaid(ending, "task " + std::to_string(task) + ": " + std::to_string(numbers) +
                                   " numbers in order");
    }
}

TEST(Wire, EndDropsWhatIsQueued)
{
    const Ending ending = run(clientJob(
        1, {"send", "1", "0", "glFinish", "acknowledged", "1", "send", "20", "0", "glFlush", "end"},
        {overloads()}));
    EXPECT_EQ(ending.status, 0);
    expectSaid(ending, "blocked until the end");
    expectSaid(ending, "a queued buffer was decoded", 0);
}

// Plays 40 frames, half of them in large buffers, to three servers, the second of which is slow:
// how many frames apart their tiles were at most.
long mostApartPlaying(const Strings& options)
{
    const std::vector<unsigned char> swap{0x8E, 0x04, 0, 0, 0, 0, 0, 0, 0, 0};
    std::vector<unsigned char> large(2'000'000, 0);
    for (std::size_t i = 0; i < large.size(); i += 2)
        large[i] = 39; // ignored by the servers
    large.insert(large.begin(), swap.begin(), swap.end());
    std::vector<OutgoingBuffer> frames(20, {swap, 1});
    frames.resize(40, {large, 1});
    const std::string stream = temporaryFile("");
    writeStreamFile(stream, frames);
    const std::string shown = temporaryFile("");
    Job job =
        clientJob(3, {}, {overloads(), "MOSA_TEST_SHOWN=" + shown, "MOSA_TEST_PAUSES=1:0:30"});
    job.client = {built("play"), stream};
    job.client.insert(job.client.end(), options.begin(), options.end());
    const Ending ending = run(job);
    EXPECT_EQ(ending.status, 0) << ending.err;
    expectSaid(ending, "BAD OPCODE", 0);
    return mostApart(shown, 40);
}

// Acknowledgements come from the first server alone.
TEST(Wire, FramesOfASlowTile)
{
    EXPECT_EQ(mostApartPlaying({"--ahead", "1"}), 1);
    EXPECT_EQ(mostApartPlaying({"--ahead", "3"}), 1);
    EXPECT_GT(mostApartPlaying({"--ahead", "1", "--loose"}), 1);
}

} // namespace
