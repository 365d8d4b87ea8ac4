// The way of the bytes from the client to every server, and of the acknowledgements back.
#include "client/streamFile.h"
#include "tests/jobSupport.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace {

// Planned buffers, every byte of which every server checks: trees of one to three levels; slices
// with and without a remainder and of no bytes; buffers of the pool and beyond it; headers without
// a buffer.
TEST(Wire, SlicesReachEveryServer)
{
    const char* asked = std::getenv("MOSA_TEST_BUFFERS");
    for (const int servers : {1, 2, 3, 5, 4}) {
        const int buffers = servers != 4 ? 60 : asked ? std::atoi(asked) : 300;
        const Ending ending =
            run(clientJob(servers, {"planned", std::to_string(buffers), "end"}, {overloads()}),
                jobTime + std::chrono::milliseconds(100) * buffers);
        EXPECT_EQ(ending.status, 0) << "of " << servers << " servers";
        for (int task = 1; task <= servers; ++task)
            expectSaid(ending, "task " + std::to_string(task) + ": all bytes are as sent");
        // Buffers of a single byte, the only ones that are no records: numbers 0 and 15.
        EXPECT_GE(occurrences(ending.err, "something bad happened at line 133"), 2 * servers);
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
