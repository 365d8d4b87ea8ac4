// How a server starts, and what it says when it cannot.
#include "tests/jobSupport.h"

#include <unistd.h>

namespace {

// The server's own exit status is 1 and it says once what differs.
TEST(JobStart, HandshakeMismatches)
{
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const std::pair<Strings, std::pair<std::string, std::string>> mismatches[] = {
        {{"handshake", "1", "0", "0"}, {"version (1)", "version"}},
        {{"handshake", "0", "64", "0"}, {"addrmode (64)", "addrmode"}},
        {{"handshake", "0", "0", "-1"}, {"endian (-1)", "endian"}},
        {{"handshake", "3", "4", "5"}, {"version (3)", "version"}}, // only the first is told
    };
    for (const auto& [steps, told] : mismatches) {
        Job job = clientJob(1, steps);
        job.server = {"sh", "-c", "\"$0\"; echo \"status $?\" >&2", built("server")};
        const Ending ending = run(job);
        expectSaid(ending, "Error MOSA: Host " + told.first + " does not match server " +
                               told.second + " (0) on server " + host + "\n");
        expectSaid(ending, "status 1\n");
    }
}

TEST(JobStart, OnlyBesideAClient)
{
    const std::string line =
        "Error MOSA: server runs beside a client, as every task but the first: "
        "mpiexec -n 1 CLIENT : -n SERVERS server\n";
    const Ending alone = runProcess({.argv = {built("server")},
                                     .environment = {"HWLOC_COMPONENTS=-gl"},
                                     .output = Output::capture},
                                    jobTime);
    EXPECT_EQ(alone.status, 1);
    expectSaid(alone, line);

    Job first = clientJob(1, {});
    first.client = {built("server")};
    const Ending asFirst = run(first);
    EXPECT_NE(asFirst.status, 0);
    expectSaid(asFirst, line);
}

// Only the number 1 stops a server for a debugger; an empty list of overloads is a list.
TEST(JobStart, HarmlessSettings)
{
    const std::string empty = temporaryFile(" \n\t\n");
    for (const std::string value : {"", "0", "2", "yes"}) {
        const Ending ending =
            run(clientJob(1, {"send", "1", "1", "glFlush", "acknowledged", "1", "end"},
                          {"MOSA_DEBUG=" + value, "MOSA_OVERLOAD_FILE=" + empty}));
        EXPECT_EQ(ending.status, 0) << value;
        expectSaid(ending, "Overloads loaded from <" + empty + ">\n");
        expectSaid(ending, "sleeping", 0);
    }
    Process paused = startJob(clientJob(1, {"end"}, {"MOSA_DEBUG=1"}));
    waitForText(paused, ").  Attach gdb and set i = 0\n");
    EXPECT_FALSE(waitForEnd(paused, std::chrono::seconds(1)));
    stopProcess(paused);
}

} // namespace
