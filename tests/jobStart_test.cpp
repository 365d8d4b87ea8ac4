// How a server starts, and what it says when it cannot.
#include "tests/jobSupport.h"

#include <unistd.h>

namespace {

// A job whose servers' own exit statuses appear as "status N".
Ending runForStatus(Job job)
{
    job.server = {"sh", "-c", "\"$0\"; echo \"status $?\" >&2", built("server")};
    return runJob(job, jobTime);
}

struct Refusal {
    std::vector<std::string> steps, environment;
    std::string message;
};

void expectRefusal(const Refusal& refusal)
{
    const Ending ending = runForStatus(clientJob(1, refusal.steps, refusal.environment));
    EXPECT_FALSE(ending.timedOut) << refusal.message;
    EXPECT_NE(ending.err.find(refusal.message), std::string::npos)
        << refusal.message << "--- was not in:\n"
        << ending.err;
    EXPECT_EQ(occurrences(ending.err, "status 1\n"), 1) << ending.err;
}

TEST(JobStart, HandshakeMismatches)
{
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const auto message = [&host](const std::string& field, int value) {
        return "Error MOSA: Host " + field + " (" + std::to_string(value) +
               ") does not match server " + field + " (0) on server " + host + "\n";
    };
    expectRefusal({{"handshake", "1", "0", "0"}, {}, message("version", 1)});
    expectRefusal({{"handshake", "0", "64", "0"}, {}, message("addrmode", 64)});
    expectRefusal({{"handshake", "0", "0", "-1"}, {}, message("endian", -1)});
    // Only the first difference is told.
    const Ending all = runForStatus(clientJob(1, {"handshake", "3", "4", "5"}));
    EXPECT_EQ(occurrences(all.err, "Error MOSA: Host"), 1) << all.err;
    EXPECT_EQ(occurrences(all.err, message("version", 3)), 1) << all.err;
}

TEST(JobStart, LibrariesThatCannotBeLoaded)
{
    const std::string noEntry = built("tests/librecorder.so"); // a library, but not an overload
    const std::string missing = temporaryFile("/nowhere/libNone.so\n");
    const std::string wrong = temporaryFile(noEntry);
    const std::string tooLong = temporaryFile(std::string(256, 'x'));
    const auto list = [](const std::string& file) { return "MOSA_OVERLOAD_FILE=" + file; };
    for (const Refusal& refusal : std::vector<Refusal>{
             {{},
              {"SYSTEM_OPENGL_LIB=/nowhere/libGL.so"},
              "could not open OpenGL shared lib indicated by\n"
              "SYSTEM_OPENGL_LIB environment variable (/nowhere/libGL.so)\n"},
             {{}, {list("/nowhere/list")}, "unable to open overlay list file (/nowhere/list)\n"},
             {{}, {list(missing)}, "unable to open overlay file /nowhere/libNone.so\n"},
             {{}, {list(wrong)}, "unable to access Overlay function in file " + noEntry + "\n"},
             {{},
              {list(tooLong)},
              "a name in overlay list file (" + tooLong + ") is longer than 255 characters\n"}})
        expectRefusal(refusal);
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
    EXPECT_EQ(occurrences(alone.err, line), 1) << alone.err;

    Job first = clientJob(1, {});
    first.client = {built("server")};
    const Ending asFirst = runJob(first, jobTime);
    EXPECT_NE(asFirst.status, 0);
    EXPECT_FALSE(asFirst.timedOut);
    EXPECT_EQ(occurrences(asFirst.err, line), 1) << asFirst.err;
}

// Only the number 1 stops a server for a debugger; an empty list of overloads is a list.
TEST(JobStart, HarmlessSettings)
{
    const std::string empty = temporaryFile(" \n\t\n");
    for (const std::string value : {"", "0", "2", "yes"}) {
        const Ending ending =
            runJob(clientJob(1, {"send", "1", "#41", "acknowledged", "1", "end"},
                             {"MOSA_DEBUG=" + value, "MOSA_OVERLOAD_FILE=" + empty}),
                   jobTime);
        EXPECT_EQ(ending.status, 0) << value << ending.err;
        EXPECT_EQ(occurrences(ending.err, "Overloads loaded from <" + empty + ">\n"), 1);
        EXPECT_EQ(occurrences(ending.err, "sleeping"), 0);
    }
    Process paused = startJob(clientJob(1, {"end"}, {"MOSA_DEBUG=1"}));
    waitForText(paused, ").  Attach gdb and set i = 0\n");
    EXPECT_FALSE(waitForEnd(paused, std::chrono::seconds(1)));
    stopProcess(paused);
}

// ---- The wall file -----------------------------------------------------------------------------

struct WallFault {
    const char* file; // content; "%s" in a message stands for the file's name
    std::string message;
};

TEST(JobStart, WallFileMistakes)
{
    const WallFault faults[] = {
        {"", "MOSA: not enough entries in wall configuration file %s\n"},
        {"# :1 600 600 0 0 300 300\n \t\n",
         "MOSA: not enough entries in wall configuration file %s\n"},
        {"\n  left 600 600 0 0 300 300\n",
         "MOSA: invalid X display string in wall configuration file %s\n"
         "line was:   left 600 600 0 0 300 300\n"},
        {":9999 600 600 0 0 300 300", "MOSA: unable to open display: :9999\n"},
        {"\t:9999.1", "MOSA: unable to open display: :9999.1\n"},
    };
    for (const WallFault& fault : faults) {
        const std::string file = temporaryFile(fault.file);
        std::string message = fault.message;
        if (const std::size_t at = message.find("%s"); at != std::string::npos)
            message.replace(at, 2, file);
        // A glXCreateContext after a glEnd: the first operation that needs the display.
        const Ending ending =
            runJob(clientJob(1, {"send", "0", "#75 #1155 i:1 i:2 i:0 i:3 i:1", "wait"},
                             {"MOSA_DISPLAY=" + file}),
                   jobTime);
        EXPECT_FALSE(ending.timedOut) << fault.file;
        EXPECT_NE(ending.status, 0) << fault.file;
        EXPECT_EQ(occurrences(ending.err, message), 1) << message << "--- was not in:\n"
                                                       << ending.err;
    }
    for (const std::string setting : {"MOSA_DISPLAY=/nowhere/wall", ""}) {
        Job job = clientJob(1, {"send", "0", "#75 #1155 i:1 i:2 i:0 i:3 i:1", "wait"});
        job.server = {"env", "-u", "MOSA_DISPLAY"};
        if (!setting.empty())
            job.server.push_back(setting);
        job.server.push_back(built("server"));
        const Ending ending = runJob(job, jobTime);
        EXPECT_NE(ending.status, 0);
        EXPECT_EQ(
            occurrences(ending.err, "MOSA: unable to open wall configuration file /nowhere/wall\n"),
            setting.empty() ? 0 : 1)
            << ending.err;
    }
}

} // namespace
