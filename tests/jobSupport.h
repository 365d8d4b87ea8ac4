// What the tests of whole jobs share.
#pragma once

#include "tools/mpiJob.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using Strings = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
constexpr Timeout jobTime = std::chrono::seconds(120);

/// A program or library of this build.
inline std::string built(const std::string& name) { return PROGRAMS "/" + name; }

/// A job of the raw client, which takes these steps, beside servers that draw nothing.
inline Job clientJob(int servers, Strings steps, Strings environment = {})
{
    steps.insert(steps.begin(), built("tests/jobClient"));
    environment.insert(environment.begin(), "SYSTEM_OPENGL_LIB=" + built("tests/librecorder.so"));
    return {.client = steps,
            .server = {built("server")},
            .servers = servers,
            .environment = environment,
            .options = {},
            .output = Output::capture};
}

/// Runs a job, which must come to its end by itself.
inline Ending run(const Job& job, Timeout time = jobTime)
{
    const Ending ending = runJob(job, time);
    EXPECT_FALSE(ending.timedOut) << ending.err;
    return ending;
}

/// An environment variable that loads jobOverload.cpp.
inline std::string overloads()
{
    return "MOSA_OVERLOAD_FILE=" + temporaryFile(built("tests/jobOverload.so") + "\n");
}

inline int occurrences(const std::string& text, const std::string& part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

/// A job has said this so many times.
inline void expectSaid(const Ending& ending, const std::string& text, int times = 1)
{
    EXPECT_EQ(occurrences(ending.err, text), times) << text << "--- in:\n" << ending.err;
}

/// Waits until a job has said this, or ended. Returns what it said so far.
inline std::string waitForText(const Process& job, const std::string& text)
{
    const Clock::time_point limit = Clock::now() + jobTime;
    std::string said;
    while (said.find(text) == std::string::npos && Clock::now() < limit &&
           !waitForEnd(job, std::chrono::milliseconds(20)))
        said = errorsSoFar(job);
    EXPECT_NE(said.find(text), std::string::npos) << said;
    return said;
}

/// A process among what one has started whose program is this; 0 when there is none.
inline pid_t findBelow(pid_t process, const std::string& program)
{
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream children(folder + "/task/" + std::to_string(process) + "/children");
    std::error_code gone;
    if (std::filesystem::read_symlink(folder + "/exe", gone) == program)
        return process;
    for (pid_t child = 0; children >> child;)
        if (const pid_t found = findBelow(child, program))
            return found;
    return 0;
}

/// Waits until there is one, or this has ended, or for too long.
inline pid_t waitForBelow(const Process& process, const std::string& program)
{
    const Clock::time_point limit = Clock::now() + jobTime;
    pid_t found = 0;
    while (found == 0 && Clock::now() < limit && !waitForEnd(process, Timeout{10}))
        found = findBelow(process.pid, program);
    return found;
}

/// How many frames apart the tiles of three servers were at most, by the file MOSA_TEST_SHOWN in
/// which jobOverload.cpp has noted each.
inline long mostApart(const std::string& shown, int frames)
{
    long shownBy[3] = {};
    long apart = 0;
    std::ifstream file(shown);
    for (char server = 0; file >> server;) {
        ++shownBy[server - '0'];
        const auto [least, most] = std::minmax_element(std::begin(shownBy), std::end(shownBy));
        apart = std::max(apart, *most - *least);
    }
    for (const long count : shownBy)
        EXPECT_EQ(count, frames);
    return apart;
}

// Records: a glXMakeCurrent of a window of 64 x 64 pixels, the creation of visual and context
// before the first, and a glXSwapBuffers.
inline const std::string makeCurrent =
    "glXMakeCurrent i:1 i:33 i:99 i:77 i:64 i:64 i:24 i:0 i:0 i:0 ";
inline const std::string openWindow = "glXChooseVisual i:1 i:33 i:0 i:6 i:4 i:8 i:1 i:9 i:1 i:0 "
                                      "glXCreateContext i:1 i:33 i:0 i:77 i:1 " +
                                      makeCurrent;
inline const std::string swapBuffers = "glXSwapBuffers i:1 i:99 ";
