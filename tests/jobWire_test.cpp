// The way of the bytes from the client to every server, and of the acknowledgements back.
#include "tests/jobSupport.h"

#include <cstdlib>

namespace {

// Runs planned buffers, which every server checks byte by byte.
void runPlanned(int servers, int buffers, Timeout time)
{
    const Ending ending = runJob(clientJob(servers, {"planned", std::to_string(buffers), "end"},
                                           {overloads("checkBuffers")}),
                                 time);
    EXPECT_FALSE(ending.timedOut);
    EXPECT_EQ(ending.status, 0) << ending.err.substr(0, 4000);
    for (int task = 1; task <= servers; ++task)
        EXPECT_EQ(occurrences(ending.err, "task " + std::to_string(task) + ": checked " +
                                              std::to_string(buffers) + " buffers"),
                  1)
            << "of " << servers;
    // Buffers of a single byte, the only ones that are no records: numbers 0 and 15 of any plan.
    EXPECT_GE(occurrences(ending.err, "something bad happened at line 133"), 2 * servers);
    std::printf("%.60s\n", ending.err.c_str() + ending.err.find("task 1: checked"));
}

class Wire : public testing::TestWithParam<int> {};

// Trees of one to three levels; slices with and without a remainder and of no bytes; buffers of the
// pool and beyond it; headers without a buffer.
TEST_P(Wire, SlicesReachEveryServer) { runPlanned(GetParam(), 60, jobTime); }
INSTANTIATE_TEST_SUITE_P(Servers, Wire, testing::Values(1, 2, 3, 5));

TEST(WireBuffers, OfRandomSizes)
{
    const char* asked = std::getenv("MOSA_TEST_BUFFERS");
    const int buffers = asked ? std::atoi(asked) : 1000;
    runPlanned(4, buffers, jobTime + std::chrono::milliseconds(100) * buffers);
}

TEST(WireStream, EndDropsWhatIsQueued)
{
    const Ending ending = runJob(
        clientJob(1, {"send", "0", "#40", "acknowledged", "1", "repeat", "20", "0", "#41", "end"},
                  {overloads("blockUntilEnd")}),
        jobTime);
    EXPECT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(occurrences(ending.err, "blocked until the end"), 1);
    EXPECT_EQ(occurrences(ending.err, "a queued buffer was decoded"), 0);
}

TEST(WireStream, AcknowledgementsWaitForTheClient)
{
    // Far more than a client should leave unread.
    const Ending ending = runJob(
        clientJob(2, {"repeat", "5000", "1", "#41", "acknowledged", "5000", "end"}), jobTime);
    EXPECT_EQ(ending.status, 0) << ending.err;
}

} // namespace
