// Loading of the operation table: system library, overloads, overload libraries.
#include "support/serverState.h"

#include "client/process.h"
#include "overload/loader.h"

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

TEST_F(Loader, TheServersOverloadsReplace68Entries)
{
    EXPECT_EQ(messagesOf(LoadOps), "");
    std::vector<int> replaced;
    for (int op = 0; op < operationCount; ++op) {
        EXPECT_EQ(baseOpTable[op], pTbl[op]);
        if (glOpTable[op] != pTbl[op])
            replaced.push_back(op);
    }
    std::vector<int> expected{10, 19, 33, 34};
    for (int op = 49; op <= 65; ++op)
        expected.push_back(op);
    for (int op = 184; op <= 207; ++op)
        expected.push_back(op);
    for (const int op : {256,  258,  290,  291,  292,  584,  585,  586,  1153, 1154, 1155, 1157,
                         1163, 1166, 1174, 1177, 1178, 1181, 1182, 1184, 1185, 1189, 1237})
        expected.push_back(op);
    EXPECT_EQ(expected.size(), 68U);
    EXPECT_EQ(replaced, expected);
    FreeOps();
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
    nContexts = 3;
    currAppWidth = 30;
    EXPECT_EQ(run("#41").messages, "second: glFlush, 3 contexts, app 30 x 0\n"
                                   "first: glFlush, 3 contexts, app 30 x 0\n");
    FreeOps();
}

TEST_F(Loader, WhatCannotBeLoadedEndsTheProcess)
{
    const auto failed = testing::ExitedWithCode(1);
    list("/nowhere/a.so");
    EXPECT_EXIT(LoadOps(), failed, "unable to open overlay file /nowhere/a.so\n");
    list(RECORDER_LIBRARY);
    EXPECT_EXIT(LoadOps(), failed, "unable to access Overlay function in file .*librecorder.so\n");
    list(std::string(256, 'x'));
    EXPECT_EXIT(LoadOps(), failed, "list file \\(.* longer than 255 characters\n");
    list(std::string(255, 'x'));
    EXPECT_EXIT(LoadOps(), failed, "unable to open overlay file xxx");
    std::string many;
    for (int i = 0; i < 257; ++i)
        many += OVERLOAD_DIR "/overload_first.so ";
    list(many);
    EXPECT_EXIT(LoadOps(), failed, "list file \\(.* more than 256 libraries\n");
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
    EXPECT_EQ(run("#81 f:1 f:2 f:3 #26 i:0 #1160"), (Outcome{1, "", message + message + message}));
    EXPECT_EQ(undefinedOp(), nullptr) << "callers that take a result get zero";
    EXPECT_EQ(run("#1229 z:16 i:5").messages, message);
    EXPECT_EQ(LocalVertexArrayRangeTable[0].localVertexArrayRangeID, nullptr);
}

} // namespace
