// The way of the bytes from the client to every server, and of the acknowledgements back.
#include "tests/jobSupport.h"

#include <cstdlib>

namespace {

// Runs planned buffers, every byte of which every server checks.
void runPlanned(int servers, int buffers, Timeout time)
{
    const Ending ending =
        run(clientJob(servers, {"planned", std::to_string(buffers), "end"}, {overloads()}), time);
    EXPECT_EQ(ending.status, 0) << "of " << servers << " servers";
    for (int task = 1; task <= servers; ++task)
        expectSaid(ending, "task " + std::to_string(task) + ": all bytes are as sent");
    // Buffers of a single byte, the only ones that are no records: numbers 0 and 15 of any plan.
    EXPECT_GE(occurrences(ending.err, "something bad happened at line 133"), 2 * servers);
}

// Trees of one to three levels; slices with and without a remainder and of no bytes; buffers of the
// pool and beyond it; headers without a buffer.
TEST(Wire, SlicesReachEveryServer)
{
    for (const int servers : {1, 2, 3, 5})
        runPlanned(servers, 60, jobTime);
}

TEST(Wire, BuffersOfRandomSizes)
{
    const char* asked = std::getenv("MOSA_TEST_BUFFERS");
    const int buffers = asked ? std::atoi(asked) : 1000;
    runPlanned(4, buffers, jobTime + std::chrono::milliseconds(100) * buffers);
}

TEST(Wire, EndDropsWhatIsQueued)
{
    const Ending ending = run(clientJob(
        1, {"send", "1", "0", "#40", "acknowledged", "1", "send", "20", "0", "#41", "end"},
        {overloads()}));
    EXPECT_EQ(ending.status, 0);
    expectSaid(ending, "blocked until the end");
    expectSaid(ending, "a queued buffer was decoded", 0);
}

// Far more than a client should leave unread.
TEST(Wire, AcknowledgementsWaitForTheClient)
{
    const Ending ending =
        run(clientJob(2, {"send", "5000", "1", "#41", "acknowledged", "5000", "end"}));
    EXPECT_EQ(ending.status, 0) << ending.err;
}

} // namespace
