// Swaps that are held together over the network.
#include "tests/jobSupport.h"
#include "tools/frameLock.h"
#include "tools/virtualDisplays.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

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

    // The answer to a guest with a Hello of his own making.
    ssize_t answerToGuest() const
    {
        sockaddr_in hub{};
        hub.sin_family = AF_INET;
        hub.sin_port = htons(static_cast<in_port_t>(port));
        hub.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const std::string hello(112, 'x');
        char answer = 0;
        ssize_t n = -1;
        if (connect(fd, reinterpret_cast<sockaddr*>(&hub), sizeof hub) == 0 &&
            send(fd, hello.data(), hello.size(), MSG_NOSIGNAL) > 0)
            n = recv(fd, &answer, 1, 0);
        close(fd);
        return n;
    }
};

const Strings manyFrames{"send", "1", "1",         openWindow,     "send",
                         "40",   "1", swapBuffers, "acknowledged", "41"};

Strings operator+(Strings a, const Strings& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The client is told nothing of it, and sends as fast as it can.
TEST_F(FrameLock, HoldsFastTilesBack)
{
    const Ending ending =
        run(jobOf(manyFrames + Strings{"end"},
                  {"MOSA_TEST_PAUSES=1:0:20", "MOSA_STATS=100", "MOSA_FRAMELOCK_HOLD=60000"}));
    EXPECT_EQ(ending.status, 0);
    expectSaid(ending, "MOSA: framelock: 3 servers swap together, by network\n");
    EXPECT_EQ(mostApart(shown, frames), 1);
    expectSaid(ending, "framelock: 40 swaps together\n");
    EXPECT_EQ(ending.err.find("Attention"), std::string::npos) << ending.err;
}

// One that is stuck holds the others for a while only, and is in step again once it has caught up.
TEST_F(FrameLock, GoesOnWithoutOneThatIsStuck)
{
    Process job =
        startJob(jobOf(manyFrames + Strings{"wait"},
                       {"MOSA_TEST_PAUSES=0:0:30 2:0:30 1:10:700", "MOSA_FRAMELOCK_HOLD=200"}));
    waitForText(job, "jobClient: waiting");
    EXPECT_EQ(answerToGuest(), 0) << "somebody else is sent away";
    const std::string said = waitForText(job, "127.0.0.1 does not belong here\n");
    stopProcess(job);
    const std::size_t late = said.find("has not come to swap 11 for 200 ms: the others go on "
                                       "without it\n");
    EXPECT_NE(said.find("framelock: server 1 on "), std::string::npos) << said;
    EXPECT_NE(late, std::string::npos) << said;
    EXPECT_NE(said.find("is in step again from swap ", late), std::string::npos) << said;
    EXPECT_GT(mostApart(shown, frames), 1);
}

TEST_F(FrameLock, LeavesItToHardware)
{
    const Ending ending = run(jobOf(manyFrames + Strings{"end"}, {"MOSA_TEST_HARDWARE=1"}));
    EXPECT_EQ(ending.status, 0);
    expectSaid(ending, "MOSA: framelock: 3 servers swap together, by their hardware\n");
    expectSaid(ending, "bound by hardware\n", 2 * servers);
}

} // namespace
