// What becomes of a running job when something goes wrong.
#include "tests/jobSupport.h"
#include "tools/virtualDisplays.h"

#include <csignal>
#include <thread>

namespace {

std::vector<pid_t> serverPids(const std::string& said)
{
    const std::string mark = ", pid = "; // in a server's first line
    std::vector<pid_t> pids;
    for (std::size_t at = said.find(mark); at != said.npos; at = said.find(mark, at + 1))
        pids.push_back(std::stoi(said.substr(at + mark.size())));
    return pids;
}

// The header of a buffer has gone down the tree and one slice of three has followed, when the
// client dies or, at the terminal of mpiexec, the job is interrupted.
TEST(JobFault, EndsInMidBuffer)
{
    for (const std::string last : {"die", "wait"}) {
        Process job = startJob(clientJob(
            3, {"send", "1", "0", "glFlush", "header", "3000", "0", "slice", "1", "1000", last}));
        if (last == "wait") {
            waitForText(job, "jobClient: waiting");
            kill(job.pid, SIGINT);
        }
        const Ending ending = finishProcess(job, jobTime);
        EXPECT_FALSE(ending.timedOut) << last;
        EXPECT_NE(ending.status, 0) << last;
        const std::vector<pid_t> pids = serverPids(ending.err);
        EXPECT_EQ(pids.size(), 3U);
        const Clock::time_point limit = Clock::now() + std::chrono::seconds(30);
        for (const pid_t pid : pids) {
            while (kill(pid, 0) == 0 && Clock::now() < limit)
                std::this_thread::yield();
            EXPECT_NE(kill(pid, 0), 0) << last << ": server " << pid << " still runs";
        }
    }
}

// Nor do they lose acknowledgements, of which there are far more than a client should leave unread.
TEST(JobFault, ServersIgnoreInterrupts)
{
    Process job = startJob(
        clientJob(2, {"send", "6000", "1", "glFlush glFinish", "acknowledged", "6000", "end"}));
    const std::vector<pid_t> pids = serverPids(waitForText(job, "as task 2"));
    ASSERT_EQ(pids.size(), 2U);
    int sent = 0;
    while (!waitForEnd(job, std::chrono::milliseconds(20)))
        for (const pid_t pid : pids)
            sent += kill(pid, SIGINT) == 0;
    const Ending ending = finishProcess(job, jobTime);
    EXPECT_EQ(ending.status, 0) << ending.err;
    EXPECT_GT(sent, 2);
}

// A damaged buffer costs itself only; a fatal one tells where it broke before the process ends.
TEST(JobFault, DamageIsToldAndPlaced)
{
    // glEnd, then a bad opcode; a glVertex3f that is cut short; 102 glFlush and a glPopAttrib
    // without a context, which is fatal. The latest 100 operations are told.
    std::string longBuffer, latest;
    for (int i = 0; i < 102; ++i)
        longBuffer += "glFlush ";
    for (int i = 0; i < 99; ++i)
        latest += " glFlush";
    const Ending ending = run(clientJob(1, {"send", "1", "1", "glEnd #1238 i:5", "send", "1", "1",
                                            "glFlush glVertex3f f:1 f:2", "acknowledged", "2",
                                            "send", "1", "0", longBuffer + "glPopAttrib", "wait"}));
    EXPECT_NE(ending.status, 0);
    std::size_t at = 0;
    for (const std::string& line :
         {std::string("BAD OPCODE (1238)!!\n"),
          std::string("something bad happened at line 133 in routine coding/decoder\n"),
          std::string("MOSA: assertion failed: currDrawableInfo, file "
                      "coding/server_overload/attributes.cpp, line "),
          "MOSA: in operation 102 of the buffer, at byte 204 of 206; the latest:" + latest +
              " glPopAttrib\n"}) {
        at = ending.err.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << "--- was not in:\n" << ending.err;
    }
}

// ---- With a display ----------------------------------------------------------------------------

// A job of one server with a display of its own.
class JobOnDisplay : public testing::Test {
protected:
    std::vector<VirtualDisplay> displays = startDisplays(1, 64, 64);
    const std::string name = displays[0].name;
    ~JobOnDisplay() override { stopDisplays(displays); }

    Job jobOf(const Strings& steps) const
    {
        return clientJob(1, steps,
                         virtualWallEnvironment(temporaryFile(name + " 64 64 0 0 64 64\n")));
    }
};

// A window whose parent is recorded but was never made, so that it cannot be made either: what
// names it afterwards is an error in every frame. The stream goes on all the while.
TEST_F(JobOnDisplay, XErrorsAreToldAndLimited)
{
    const std::string useUnmade =
        "glXSwapBuffers i:1 i:201 "
        "glXMakeCurrent i:1 i:33 i:300 i:77 i:64 i:64 i:24 i:0 i:0 i:201 ";
    const Clock::time_point start = Clock::now();
    const Ending ending =
        run(jobOf({"send", "1", "1", openWindow + useUnmade + makeCurrent, "send", "300", "1",
                   "MWRaiseWindow i:300 " + swapBuffers, "acknowledged", "301", "end"}));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start);
    EXPECT_EQ(ending.status, 0);
    const std::string line = "Attention MOSA: X error on display " + name + ": ";
    expectSaid(ending, line + "BadWindow (invalid Window parameter), in X_CreateWindow, "
                              "resource 0x0\n");
    EXPECT_GT(occurrences(ending.err, line), 2);
    EXPECT_LE(occurrences(ending.err, line), 10 * (seconds.count() + 1));
}

TEST_F(JobOnDisplay, LostDisplayEndsTheJob)
{
    Process job = startJob(jobOf({"send", "1", "1", openWindow + swapBuffers, "acknowledged", "1",
                                  "send", "1000000", "0", swapBuffers, "wait"}));
    waitForText(job, "jobClient: 1 acknowledged"); // frames are under way
    stopDisplays(displays);
    const Ending ending = finishProcess(job, jobTime);
    EXPECT_FALSE(ending.timedOut);
    EXPECT_NE(ending.status, 0);
    expectSaid(ending, "Error MOSA: lost the connection to display " + name + " on ");
}

} // namespace
