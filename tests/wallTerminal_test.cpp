// mosa-wall before a command line, on a terminal and without one: what it leaves alone.
#include <gtest/gtest.h>

#include "tests/jobSupport.h"
#include "tools/virtualDisplays.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <pty.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// A shell with job control on a pseudo-terminal.
struct Shell {
    int terminal = -1;
    pid_t pid = -1;
    std::string said; // and not looked at yet
    ~Shell()
    {
        close(terminal); // hangs up
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

void start(Shell& shell, const fs::path& folder, const std::string& display = ":4077")
{
    const std::string wall = built("mosa-wall");
    shell.pid = forkpty(&shell.terminal, nullptr, nullptr, nullptr);
    if (shell.pid == 0) {
        setenv("DISPLAY", display.c_str(), 1);
        setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
        setenv("MOSA_BANNER_TIME", "0", 1);
        setenv("W", wall.c_str(), 1);
        setenv("PS1", "$ ", 1);
        if (chdir(folder.c_str()) == 0)
            execlp("bash", "bash", "--norc", "--noprofile", "--noediting", "-i", nullptr);
        _exit(127);
    }
}

void type(Shell& shell, const std::string& text)
{
    ASSERT_EQ(write(shell.terminal, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// Waits until the terminal shows this, behind what was waited for before.
void expectShown(Shell& shell, const std::string& text)
{
    const Clock::time_point limit = Clock::now() + std::chrono::seconds(30);
    std::string& said = shell.said;
    while (said.find(text) == said.npos && Clock::now() < limit) {
        pollfd readable{shell.terminal, POLLIN, 0};
        char chunk[4096];
        const ssize_t got =
            poll(&readable, 1, 100) > 0 ? read(shell.terminal, chunk, sizeof chunk) : 0;
        if (got < 0)
            break;
        said.append(chunk, static_cast<std::size_t>(got));
    }
    const std::size_t at = said.find(text);
    ASSERT_NE(at, said.npos) << text << " is not in:\n" << said;
    said.erase(0, at + text.size());
}

// True when everything below a process is stopped: what is not yet may read what is typed next.
bool isStoppedBelow(pid_t process)
{
    const std::string number = std::to_string(process);
    std::ifstream children("/proc/" + number + "/task/" + number + "/children");
    for (pid_t child = 0; children >> child;) {
        std::ifstream stat("/proc/" + std::to_string(child) + "/stat");
        std::string line;
        std::getline(stat, line);
        if (line.find(") T") == line.npos || !isStoppedBelow(child))
            return false;
    }
    return true;
}

void stop(Shell& shell)
{
    type(shell, "\x1a");
    expectShown(shell, "Stopped");
    const Clock::time_point limit = Clock::now() + std::chrono::seconds(30);
    while (!isStoppedBelow(shell.pid) && Clock::now() < limit)
        poll(nullptr, 0, 10);
    ASSERT_TRUE(isStoppedBelow(shell.pid));
}

// Continues what is stopped, until it has the terminal.
void bringBack(Shell& shell)
{
    type(shell, "fg\n");
    expectShown(shell, "fg\r\n");
    const Clock::time_point limit = Clock::now() + std::chrono::seconds(30);
    while (tcgetpgrp(shell.terminal) == shell.pid && Clock::now() < limit)
        poll(nullptr, 0, 10);
    ASSERT_NE(tcgetpgrp(shell.terminal), shell.pid);
}

struct Folder {
    fs::path path = temporaryName("folder");
    Folder() { fs::create_directory(path); }
    ~Folder() { fs::remove_all(path); }
};

void writeFile(const fs::path& file, const std::string& text) { std::ofstream(file) << text; }

std::string readFile(const fs::path& file)
{
    return {std::istreambuf_iterator<char>(std::ifstream(file).rdbuf()), {}};
}

// Each program is a script, so that what it says is not in the line that is typed.
TEST(WallTerminal, BelongsToTheProgram)
{
    const Folder folder;
    writeFile(folder.path / "asks", "echo name''?; read name; echo hello $name");
    writeFile(folder.path / "traps", "trap 'echo caught; exit 3' INT; echo up; read name");
    writeFile(folder.path / "spoils", "stty -icanon; echo spoilt");
    Shell shell;
    start(shell, folder.path);
    const std::string record = "$W record -o live.mws ";

    type(shell, record + "-- sh asks\n");
    expectShown(shell, "name?");
    type(shell, "reader\n");
    expectShown(shell, "hello reader");

    // Stopped for longer than its time, which rests.
    type(shell, record + "--seconds 2 -- sh asks\n");
    expectShown(shell, "name?");
    stop(shell);
    type(shell, "sleep 3; echo rest''ed\n");
    expectShown(shell, "rested");
    bringBack(shell);
    type(shell, "again\n");
    expectShown(shell, "hello again");

    // A reader in the background waits for its turn.
    type(shell, record + "-- sh asks & wait %%; jobs\n");
    expectShown(shell, "Stopped");
    bringBack(shell);
    type(shell, "later\n");
    expectShown(shell, "hello later");

    // The program decides what Ctrl-C means; its end is mosa-wall's.
    type(shell, record + "-- sh traps; echo status=$?\n");
    expectShown(shell, "up\r\n");
    type(shell, "\x03");
    expectShown(shell, "caught");
    expectShown(shell, "status=3");
    type(shell, record + "-- sh asks\n");
    expectShown(shell, "name?");
    type(shell, "\x03");
    expectShown(shell, "$ ");
    type(shell, "echo status=$?\n");
    expectShown(shell, "status=130");

    type(shell, record + "-- sh spoils; echo status=$?\n");
    expectShown(shell, "spoilt");
    expectShown(shell, "status=1\r\n");
    type(shell, "stty -a | grep -ce -icanon; echo don''e\n");
    expectShown(shell, "0\r\ndone");
}

// A program that draws is stopped, continued and ended from the terminal, and the wall with it.
TEST(WallTerminal, IsFollowedByTheWall)
{
    const Folder folder;
    std::vector<VirtualDisplay> displays = startDisplays(2, 300, 300);
    writeFile(folder.path / "wall.conf", displays[1].name + " 300 300 0 0 300 300\n");
    Shell shell;
    start(shell, folder.path, displays[0].name);
    type(shell, "$W run --wall wall.conf -- " + built("tests/captureProgram") + " single 0\n");
    expectShown(shell, "using display");
    type(shell, "\x1a");
    expectShown(shell, "Stopped");
    bringBack(shell);
    type(shell, "\x03");
    expectShown(shell, "play: "); // the job has ended in order, with its summary
    type(shell, "echo status=$?\n");
    expectShown(shell, "status=130");
    stopDisplays(displays);
}

Command wall(Strings arguments)
{
    arguments.insert(arguments.begin(), built("mosa-wall"));
    return {.argv = arguments, .environment = {"DISPLAY=:4077"}, .output = Output::capture};
}

// A signal to mosa-wall alone reaches the program, and how that ends is how mosa-wall does.
TEST(WallProgram, HearsTheSignalsAndItsEndIsPassedOn)
{
    const Folder folder;
    const std::string up = folder.path / "up";
    std::vector<VirtualDisplay> displays{startDisplay(300, 300)};
    for (const auto& [signal, script, status] :
         {std::tuple<int, std::string, int>{SIGTERM, "echo up >$UP; exec sleep 100", 128 + SIGTERM},
          // What it leaves would go on drawing.
          {SIGTERM, built("tests/smallProgram") + " hides | sed -u '1q' >$UP", 128 + SIGTERM},
          {SIGINT, "trap 'exit 7' INT; echo up >$UP; sleep 100 & wait", 7},
          {SIGHUP, "trap 'exit 8' HUP; echo up >$UP; sleep 100 & wait", 8}}) {
        ASSERT_EQ(mkfifo(up.c_str(), 0600), 0);
        Command command = wall({"record", "-o", folder.path / "live.mws", "--", "sh", "-c",
                                "UP=" + up + "; " + script});
        command.environment = {"DISPLAY=" + displays[0].name, "LIBGL_ALWAYS_SOFTWARE=1"};
        Process process = startProcess(command);
        EXPECT_EQ(readFile(up), "up\n");
        kill(process.pid, signal);
        const Ending ending = finishProcess(process, jobTime);
        EXPECT_FALSE(ending.timedOut);
        EXPECT_EQ(ending.status, status) << ending.err;
        EXPECT_EQ(ending.signal, status > 128 ? signal : 0);
        fs::remove(up);
    }
    stopDisplays(displays);
}

pid_t numberIn(const fs::path& file) { return std::stoi("0" + readFile(file)); }

bool isAlive(pid_t pid)
{
    const std::string status = readFile("/proc/" + std::to_string(pid) + "/stat");
    return !status.empty() && status.find(") Z") == status.npos;
}

// Children of before and a daemon go on; what the program has left is asked to end, and then made.
TEST(WallProgram, LeavesOthersAlone)
{
    const Folder folder;
    const auto path = [&folder](const char* name) { return (folder.path / name).string(); };
    writeFile(path("program"), "(trap 'echo told >" + path("told") +
                                   "; exit' TERM; sleep 97 & wait) &\n"
                                   "(trap '' TERM; echo deaf; sleep 98) &\n"
                                   "echo $! >" +
                                   path("deaf") +
                                   "\n"
                                   "setsid sleep 99 &\n"
                                   "echo $! >" +
                                   path("daemon") + "\nwait\n");
    const Ending ending = runProcess(
        {.argv = {"env", "-u", "MOSA_STARTED_BY", "sh", "-c", // nothing that the test would end
                  "sleep 96 & echo $! >" + path("before") + "; exec " + built("mosa-wall") +
                      " record -o " + path("live.mws") + " --seconds 1 -- sh " + path("program")},
         .environment = {"DISPLAY=:4077"},
         .output = Output::capture},
        jobTime);
    EXPECT_EQ(ending.status, 1) << ending.err;
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "the program has left sleep running", ending.err);
    EXPECT_EQ(readFile(path("told")), "told\n");
    EXPECT_FALSE(isAlive(numberIn(path("deaf"))));
    for (const char* name : {"before", "daemon"}) {
        EXPECT_TRUE(isAlive(numberIn(path(name)))) << name;
        kill(numberIn(path(name)), SIGKILL);
    }
}

// One that has cleared its environment, and with it the mark by which it is known, ends as well.
TEST(WallProgram, EndsWhatHasClearedItsEnvironment)
{
    const Folder folder;
    const std::string cleared = folder.path / "cleared";
    const Ending ending =
        runProcess(wall({"record", "-o", folder.path / "live.mws", "--seconds", "1", "--", "sh",
                         "-c", "env -i sleep 93 & echo $! >" + cleared + "; wait"}),
                   jobTime);
    EXPECT_EQ(ending.status, 1) << ending.err;
    EXPECT_GT(numberIn(cleared), 0);
    EXPECT_FALSE(isAlive(numberIn(cleared)));
}

// Toolkits are told to use X11, except those that the user has told something himself.
TEST(WallProgram, UsesX11OnAWaylandDesk)
{
    const Folder folder;
    Command command = wall({"record", "-o", folder.path / "live.mws", "--", "sh", "-c",
                            "echo $GDK_BACKEND $QT_QPA_PLATFORM"});
    command.environment.insert(command.environment.end(),
                               {"WAYLAND_DISPLAY=wayland-7", "QT_QPA_PLATFORM=offscreen"});
    const Ending ending = runProcess(command, jobTime);
    EXPECT_EQ(ending.out, "x11 offscreen\n");
    EXPECT_EQ(occurrences(ending.err, "this desk has Wayland"), 1);
}

// mpiexec may be deaf while it starts a job.
TEST(WallProgram, StopsAJobThatIsStarting)
{
    const Folder folder;
    std::vector<VirtualDisplay> displays = startDisplays(1, 64, 64);
    writeFile(folder.path / "wall.conf", displays[0].name + " 64 64 0 0 64 64\n");
    const std::string up = folder.path / "up", mpiexec = folder.path / "mpiexec.mpich";
    ASSERT_EQ(mkfifo(up.c_str(), 0600), 0);
    writeFile(mpiexec,
              "#!/bin/sh\ntrap '' TERM; echo up >" + up + "; while :; do sleep 0.05; done\n");
    fs::permissions(mpiexec, fs::perms::owner_all);
    Command command = wall({"pattern", folder.path / "wall.conf"});
    command.environment.push_back("PATH=" + folder.path.string() + ":" + std::getenv("PATH"));
    Process process = startProcess(command);
    EXPECT_EQ(readFile(up), "up\n");
    const Clock::time_point start = Clock::now();
    kill(process.pid, SIGTERM);
    EXPECT_EQ(finishProcess(process, jobTime).status, 128 + SIGTERM);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
    stopDisplays(displays);
}

// A recording that is killed leaves the old file, and what it kept in the runtime folder is removed
// by the next. The program goes on.
TEST(WallProgram, WhatAKilledOneLeavesTheNextRemoves)
{
    const Folder folder, runtime;
    fs::permissions(runtime.path, fs::perms::owner_all);
    const fs::path users = runtime.path / "mosa-users"; // of the same name, but not of ours
    fs::create_directory(users);
    fs::permissions(users, fs::perms::owner_all);
    const std::string file = folder.path / "live.mws", up = folder.path / "up";
    writeFile(file, "old");
    ASSERT_EQ(mkfifo(up.c_str(), 0600), 0);
    const auto recordIn = [&](const std::string& script) {
        Command command = wall({"record", "-o", file, "--", "sh", "-c", script});
        command.environment.push_back("XDG_RUNTIME_DIR=" + runtime.path.string());
        return command;
    };
    Process killed = startProcess(recordIn("echo $$ >" + up + "; exec sleep 95"));
    const pid_t program = numberIn(up);
    const auto entries = [&runtime] {
        return std::distance(fs::directory_iterator(runtime.path), fs::directory_iterator());
    };
    EXPECT_EQ(entries(), 2);
    const std::string part = file + "." + std::to_string(killed.pid) + ".part";
    writeFile(file + ".old.part", "the user's");
    runProcess(recordIn("true"), jobTime);
    EXPECT_TRUE(fs::exists(part)) << "it is still being written";
    kill(killed.pid, SIGKILL);
    EXPECT_TRUE(waitForEnd(killed, jobTime));
    EXPECT_TRUE(fs::exists(part));
    EXPECT_TRUE(isAlive(program));
    kill(program, SIGKILL);
    finishProcess(killed, jobTime);
    EXPECT_EQ(entries(), 2);
    runProcess(recordIn("true"), jobTime);
    EXPECT_EQ(entries(), 1);
    EXPECT_TRUE(fs::exists(users));
    EXPECT_FALSE(fs::exists(part));
    EXPECT_TRUE(fs::exists(file + ".old.part"));
    EXPECT_EQ(readFile(file), "old");
}

// Programs that a script starts in turn, with other visuals and other ways to be shown: the wall
// shows each in its turn, and a recording has them all.
TEST(WallProgram, IsFollowedByTheNext)
{
    const Folder folder;
    std::vector<VirtualDisplay> displays{startDisplay(300, 300), startDisplay(240, 180)};
    const std::string wallFile = folder.path / "wall.conf", live = folder.path / "live.mws";
    writeFile(wallFile, displays[1].name + " 240 180 0 0 240 180\n");
    const std::string program = built("tests/captureProgram");
    const std::string before = program + " lines 4; " + program + " modern 4; ";
    const auto show = [&](Strings arguments, const std::string& script) {
        arguments.insert(arguments.end(), {"--", "sh", "-c", script});
        Command command = wall(arguments);
        command.environment = {"DISPLAY=" + displays[0].name, "LIBGL_ALWAYS_SOFTWARE=1",
                               "MOSA_BANNER_TIME=0"};
        return runProcess(command, jobTime);
    };
    const auto picture = [&](const std::string& script) {
        const std::string file = folder.path / "wall.png";
        const Ending ending = show({"run", "--wall", wallFile, "--snapshot", file}, script);
        EXPECT_EQ(ending.status, 5) << ending.err;
        return readFile(file);
    };
    const std::string last = program + " images 4";
    EXPECT_EQ(picture(before + last), picture(last));

    // Returns how many contexts there are in the recording, each under a handle of its own.
    const auto record = [&](const Strings& options, const std::string& script) {
        Strings arguments{"record", "-o", live};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Ending ending = show(arguments, script);
        EXPECT_FALSE(ending.timedOut);
        EXPECT_EQ(occurrences(ending.err, "goes on without the wall"), 0) << ending.err;
        const Command dump{
            .argv = {built("streamdump"), live}, .environment = {}, .output = Output::capture};
        const std::string records = runProcess(dump, jobTime).out;
        int contexts = 0;
        for (const char* made : {"ctx=0x1, direct", "ctx=0x2, direct", "ctx=0x3, direct"})
            contexts += occurrences(records, made) == 1;
        EXPECT_EQ(occurrences(records, "glXCreateContext"), contexts);
        return contexts;
    };
    EXPECT_EQ(record({}, before + last), 3);
    EXPECT_EQ(record({}, "(" + before + last + ") &"), 3); // whose parent is gone at once
    EXPECT_EQ(record({"--frames", "3"}, before + last), 1);

    // What is left drawing has no more time than the program.
    for (const Strings& how : {Strings{"run", "--wall", wallFile}, {"record", "-o", live}}) {
        Strings arguments = how;
        arguments.insert(arguments.end(), {"--seconds", "2"});
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(show(arguments, program + " lines & true").status, 0);
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
    }
    stopDisplays(displays);
}

} // namespace
