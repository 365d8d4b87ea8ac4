// How a server starts, and what it says when it cannot.
#include "tests/jobSupport.h"

#include <unistd.h>

namespace {

// The server's own exit status is 1 and it says this once.
void expectRefusal(const Strings& steps, const Strings& environment, const std::string& message)
{
    Job job = clientJob(1, steps, environment);
    job.server = {"sh", "-c", "\"$0\"; echo \"status $?\" >&2", built("server")};
    const Ending ending = run(job);
    expectSaid(ending, message);
    expectSaid(ending, "status 1\n");
}

TEST(JobStart, HandshakeMismatches)
{
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const struct {
        const char *version, *addrmode, *endian, *field, *value;
    } mismatches[] = {
        {"1", "0", "0", "version", "1"},
        {"0", "64", "0", "addrmode", "64"},
        {"0", "0", "-1", "endian", "-1"},
        {"3", "4", "5", "version", "3"}, // only the first difference is told
    };
    for (const auto& [version, addrmode, endian, field, value] : mismatches)
        expectRefusal({"handshake", version, addrmode, endian}, {},
                      std::string("Error MOSA: Host ") + field + " (" + value +
                          ") does not match server " + field + " (0) on server " + host + "\n");
}

TEST(JobStart, LibraryThatCannotBeLoaded)
{
    expectRefusal({}, {"SYSTEM_OPENGL_LIB=/nowhere/libGL.so"},
                  "could not open OpenGL shared lib indicated by\n"
                  "SYSTEM_OPENGL_LIB environment variable (/nowhere/libGL.so)\n");
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
            run(clientJob(1, {"send", "1", "1", "#41", "acknowledged", "1", "end"},
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

// Both are seen in the middle of the stream, on the decode thread.
TEST(JobStart, WallWithoutADisplay)
{
    const std::string mistaken = temporaryFile("\n  left 600 600 0 0 300 300\n");
    const std::pair<std::string, std::string> walls[] = {
        {mistaken, "MOSA: invalid X display string in wall configuration file " + mistaken +
                       "\nline was:   left 600 600 0 0 300 300\n"},
        {temporaryFile("\t:9999.1"), "MOSA: unable to open display: :9999.1\n"},
    };
    for (const auto& [file, message] : walls) {
        // A glXCreateContext after a glEnd: the first operation that needs the display.
        const Ending ending =
            run(clientJob(1, {"send", "1", "0", "#75 #1155 i:1 i:2 i:0 i:3 i:1", "wait"},
                          {"MOSA_DISPLAY=" + file}));
        EXPECT_NE(ending.status, 0);
        expectSaid(ending, message);
    }
}

} // namespace
