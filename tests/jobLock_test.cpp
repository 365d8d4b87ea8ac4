// Swaps that are held together over the network.
#include "tests/jobSupport.h"
#include "tools/frameLock.h"
#include "tools/virtualDisplays.h"
#include "wire/areaMessages.h"

namespace {

constexpr int servers = 3, frames = 40;

// Three servers on displays of their own, which note each frame that they show.
class FrameLock : public testing::Test {
protected:
    std::vector<VirtualDisplay> displays = startDisplays(servers, 64, 64);
    const std::string shown = temporaryFile("");
    const int port = freePort();
    ~FrameLock() override { stopDisplays(displays); }

    Job jobOf(const Strings& steps, const Strings& environment) const
    {
        std::string wall;
        for (const VirtualDisplay& display : displays)
            wall += display.name + " 64 64 0 0 64 64\n";
        Strings all = virtualWallEnvironment(temporaryFile(wall));
        all.insert(all.end(), environment.begin(), environment.end());
        all.push_back("MOSA_TEST_SHOWN=" + shown);
        all.push_back("MOSA_OVERLOAD_FILE=" + temporaryFile(built("tests/jobOverload.so") + " " +
                                                            built("overload/mosa-frameLock.so")));
        Job job = clientJob(servers, steps, all);
        lockFrames(job, "", port);
        return job;
    }
};

// The client is told nothing of it, and sends as fast as it can. A move of the area is held like a
// frame; telling where to is not.
TEST_F(FrameLock, HoldsFastTilesBack)
{
    const std::string where = "MWRaiseWindow i:" + std::to_string(areaMessage(AreaWord::left, 9));
    const std::string move =
        " MWRaiseWindow i:" + std::to_string(areaMessage(AreaWord::move)) + " ";
    const Ending ending =
        run(jobOf({"send", "1", "1", openWindow, "send", "20", "1", where + move + swapBuffers,
                   "acknowledged", "21", "end"},
                  {"MOSA_TEST_PAUSES=1:0:20", "MOSA_STATS=100", "MOSA_FRAMELOCK_HOLD=60000"}));
    EXPECT_EQ(ending.status, 0);
    expectSaid(ending, "MOSA: framelock: 3 servers swap together, by network\n");
    EXPECT_EQ(mostApart(shown, frames), 1);
    expectSaid(ending, "framelock: 40 swaps together\n");
    EXPECT_EQ(ending.err.find("Attention"), std::string::npos) << ending.err;
}

TEST_F(FrameLock, LeavesItToHardware)
{
    const Ending ending = run(jobOf(
        {"send", "1", "1", openWindow, "send", "40", "1", swapBuffers, "acknowledged", "41", "end"},
        {"MOSA_TEST_HARDWARE=1"}));
    EXPECT_EQ(ending.status, 0);
    expectSaid(ending, "MOSA: framelock: 3 servers swap together, by their hardware\n");
    expectSaid(ending, "bound by hardware\n", 2 * servers);
}

} // namespace
