// Loading of the operation table: system library, overloads, overload libraries.
#include "support/serverState.h"

#include "overload/loader.h"
#include "tools/process.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace {

class Loader : public testing::Test {
protected:
    void SetUp() override
    {
        startWithoutOverloads();
        setenv("SYSTEM_OPENGL_LIB", RECORDER_LIBRARY, 1);
        setenv("MOSA_OVERLOAD_FILE", "", 1);
    }

    static void list(const std::string& words)
    {
        setenv("MOSA_OVERLOAD_FILE", temporaryFile(words).c_str(), 1);
    }
};

std::string messagesOf(void (*action)())
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

TEST_F(Loader, OverloadLibrariesAreInstalledInOrderAndChain)
{
    list(" " OVERLOAD_DIR "/overload_first.so\t\n\n" OVERLOAD_DIR "/overload_second.so");
    const std::string file = std::getenv("MOSA_OVERLOAD_FILE");
    EXPECT_EQ(messagesOf(LoadOps),
              "first: installed, live table 1, viewport overloaded 1, undefined 0\n"
              "second: installed, live table 1, viewport overloaded 1, undefined 0\n"
              "Overloads loaded from <" +
                  file + ">\n");
    EXPECT_TRUE(std::ranges::equal(baseOpTable, pTbl));
    EXPECT_EQ(std::ranges::mismatch(glOpTable, baseOpTable).in1 - glOpTable, 10) << "glPointSize";
    const auto [libraries, overloads] = std::pair(1, 68);
    EXPECT_EQ(std::transform_reduce(glOpTable, std::end(glOpTable), baseOpTable, 0, std::plus(),
                                    std::not_equal_to()),
              overloads + libraries);
    // A library that takes an overloaded entry does not come between the overloads and the system.
    makeTileCurrent({0, 0, 8, 6}, 8, 6, 1);
    glOpTable[indexOf(Op::glPushMatrix)] = reinterpret_cast<glOp>(std::abort);
    entryOf<Op::glViewport>(glOpTable)(0, 0, 8, 6);
    clearServerTables();
    nContexts = 3;
    currAppWidth = 30;
    EXPECT_EQ(run("glFlush").messages, "second: glFlush, 3 contexts, app 30 x 0\n"
                                       "first: glFlush, 3 contexts, app 30 x 0\n");
    FreeOps();
}

TEST_F(Loader, WhatCannotBeLoadedEndsTheProcess)
{
    const auto failed = testing::ExitedWithCode(1);
    std::string many;
    for (int i = 0; i < 257; ++i)
        many += OVERLOAD_DIR "/overload_first.so ";
    const std::pair<std::string, std::string> lists[] = {
        {"/nowhere/a.so", "unable to open overlay file /nowhere/a.so\n"},
        {RECORDER_LIBRARY, "unable to access Overlay function in file .*librecorder.so\n"},
        {std::string(256, 'x'), "list file \\(.* longer than 255 characters\n"},
        {std::string(255, 'x'), "unable to open overlay file xxx"},
        {many, "list file \\(.* more than 256 libraries\n"},
    };
    for (const auto& [libraries, message] : lists) {
        list(libraries);
        EXPECT_EXIT(LoadOps(), failed, message);
    }
    setenv("MOSA_OVERLOAD_FILE", "/nowhere", 1);
    EXPECT_EXIT(LoadOps(), failed, "unable to open overlay list file \\(/nowhere");

    setenv("SYSTEM_OPENGL_LIB", "/nowhere/libGL.so", 1);
    EXPECT_EXIT(LoadOps(), failed,
                "^could not open OpenGL shared lib indicated by\n"
                "SYSTEM_OPENGL_LIB environment variable \\(/nowhere/libGL.so\\)\n$");
    glOpTable[0] = reinterpret_cast<glOp>(undefinedOp);
    EXPECT_EQ(_LoadOpFile("/nowhere/libGL.so"), nullptr);
    EXPECT_EQ(glOpTable[0], reinterpret_cast<glOp>(undefinedOp)) << "the table is left alone";
    unsetenv("SYSTEM_OPENGL_LIB");
    if (access("/usr/lib/libGL.so", F_OK) && access("/usr/lib/tls/libGL.so", F_OK)) {
        EXPECT_EXIT(LoadOps(), failed,
                    "^could not open OpenGL shared lib in /usr/lib/libGL.so\n"
                    "or /usr/lib/tls/libGL.so\n$");
    }
}

TEST_F(Loader, AnOperationThatTheLibraryLacksReportsEachCall)
{
    // An overload library has no operations at all.
    void* handle = _LoadOpFile(OVERLOAD_DIR "/overload_first.so");
    ASSERT_TRUE(handle);
    const std::string message = "call made to unresolved OpenGL function\n";
    EXPECT_EQ(run("glVertex3f f:1 f:2 f:3 glIsEnabled i:0 glXGetCurrentContext"),
              (Outcome{1, "", message + message + message}));
    EXPECT_EQ(undefinedOp(), nullptr) << "callers that take a result get zero";
    EXPECT_EQ(run("glXAllocateMemoryNV z:16 i:5").messages, message);
    EXPECT_EQ(LocalVertexArrayRangeTable[0].localVertexArrayRangeID, nullptr);
}

} // namespace
