// The resource tables: lookups, limits, and texture and program names.
#include "support/serverState.h"

#include "coding/displayConfig.h"

namespace {

class Tables : public testing::Test {
protected:
    void SetUp() override { startServer(); }
};

template <class T>
T handle(std::uint32_t value)
{
    return appHandle<T>(value);
}

TEST_F(Tables, LookupsInEmptyTablesFindNothing)
{
    LocalContextTable[0].appCtx = handle<GLXContext>(5); // reserved, not live
    EXPECT_EQ(_getLocalContext(handle<GLXContext>(5)), nullptr);
    EXPECT_EQ(_getLocalFBConfig(nullptr), nullptr);
    EXPECT_EQ(_getLocalPbuffer(0), 0U);
    EXPECT_EQ(_findLocalDrawableInfo(0), nullptr);
    EXPECT_EQ(_checkLocalVertexArrayRangePointer(nullptr), nullptr);
}

TEST_F(Tables, TheFirstRecordOfAHandleCountsButTheLastOfMemory)
{
    nContexts = nFBConfigs = nPbuffers = nDrawables = nVertexArrayRanges = 3;
    GLXFBConfig lists[] = {handle<GLXFBConfig>(71), handle<GLXFBConfig>(72)};
    for (int i : {1, 2}) {
        LocalContextTable[i].appCtx = handle<GLXContext>(5);
        LocalFBConfigTable[i] = {handle<GLXFBConfig>(5), 1, &lists[i - 1]};
        LocalPbufferTable[i] = {5, 70U + static_cast<unsigned>(i)};
        LocalDrawableTable[i].appDrawID = 5;
        LocalVertexArrayRangeTable[i] = {handle<GLvoid*>(5), lists + i};
    }
    EXPECT_EQ(_getLocalContext(handle<GLXContext>(5)), &LocalContextTable[1]);
    EXPECT_EQ(_getLocalFBConfig(handle<GLXFBConfig>(5)), lists[0]);
    EXPECT_EQ(_getLocalPbuffer(5), 71U);
    EXPECT_EQ(_findLocalDrawableInfo(5), &LocalDrawableTable[1]);
    EXPECT_EQ(_checkLocalVertexArrayRangePointer(handle<GLvoid*>(5)), lists + 2);
    LocalFBConfigTable[1].localFBConfig = nullptr; // the server matched none
    EXPECT_EQ(_getLocalFBConfig(handle<GLXFBConfig>(5)), nullptr);
}

TEST_F(Tables, TheRootIsTheOutermostRecordedAncestor)
{
    LocalDisplay display{};
    currLocalDisplay = &display;
    // Windows 1 to 4: 4 in 3 in 2 in an unrecorded one; 1 is its own parent.
    const Drawable parents[] = {1, 99, 2, 3};
    nDrawables = 4;
    for (int i = 0; i < 4; ++i) {
        LocalDrawableTable[i].appDrawID = static_cast<Drawable>(i + 1);
        LocalDrawableTable[i].app_parentID = parents[i];
    }
    EXPECT_EQ(_getLocalRoot(&LocalDrawableTable[0]), nullptr);
    EXPECT_EQ(_getLocalRoot(&LocalDrawableTable[1]), nullptr);
    EXPECT_EQ(_getLocalRoot(&LocalDrawableTable[2]), &LocalDrawableTable[1]);
    EXPECT_EQ(_getLocalRoot(&LocalDrawableTable[3]), &LocalDrawableTable[1]);
    // A loop that window 4 leads into ends at the record met again.
    LocalDrawableTable[1].app_parentID = 3;
    EXPECT_EQ(_getLocalRoot(&LocalDrawableTable[3]), &LocalDrawableTable[1]);
    EXPECT_EQ(_getLocalRoot(&LocalDrawableTable[2]), &LocalDrawableTable[1]);
    currLocalDisplay = nullptr;
    EXPECT_DEATH(_getLocalRoot(&LocalDrawableTable[3]), "failed: currLocalDisplay, file "
                                                        "coding/server_overload/tables.cpp");
}

TEST_F(Tables, NamesOfTheApplicationBecomeLocalOnes)
{
    struct Kind {
        const char *generate, *bind, *remove; // opcodes
        const char* name;
    };
    recorder.shownElements = 1;
    for (const Kind& kind :
         {Kind{"#290", "#292", "#291", "Textures"}, Kind{"#586", "#584", "#585", "ProgramsARB"}}) {
        startServer();
        recorder.shownElements = 1;
        const bool texture = kind.bind == std::string("#292");
        const std::string gen = std::string("glGen") + kind.name + " 1 [0]\n";
        const std::string bind = texture ? "glBindTexture 7 " : "glBindProgramARB 7 ";
        const std::string remove = std::string("glDelete") + kind.name + " 1 ";
        const std::string generate = kind.generate;
        // One call for each name; the recording library gives out 1001, 1002, ...
        EXPECT_EQ(run(generate + " i:3 i:1 i:2 i:3"), performed(gen + gen + gen));
        EXPECT_EQ(run(generate + " i:0 #75"), performed("glEnd\n"));
        EXPECT_EQ(run(std::string(kind.bind) + " i:7 i:2"), performed(bind + "0x3ea\n"));
        EXPECT_EQ(run(std::string(kind.bind) + " i:7 i:9"), performed(bind + "9\n"));
        EXPECT_EQ(run(std::string(kind.bind) + " i:7 i:0"), performed(bind + "0\n"));
        EXPECT_EQ(run(std::string(kind.remove) + " i:2 i:2 i:9"),
                  performed(remove + "[0x3ea]\n" + remove + "[9]\n"));
        EXPECT_EQ(run(std::string(kind.bind) + " i:7 i:2"), performed(bind + "2\n"));
        // Of a name that was generated twice, the last is bound and the first deleted.
        run(generate + " i:1 i:3");
        EXPECT_EQ(run(std::string(kind.bind) + " i:7 i:3"), performed(bind + "0x3ec\n"));
        EXPECT_EQ(run(std::string(kind.remove) + " i:1 i:3"), performed(remove + "[0x3eb]\n"));
        EXPECT_EQ(run(std::string(kind.bind) + " i:7 i:3"), performed(bind + "0x3ec\n"));
    }
}

// A table of n slots holds n - 1 records; the next ends the server.
TEST_F(Tables, FullTablesEndTheServer)
{
    LocalDisplay display{};
    currLocalDisplay = &display;
    LocalVisualTable[0].appVI = 34;
    constexpr int makeCurrent = indexOf(Op::glXMakeCurrent);
    glOpTable[makeCurrent] = recordingTable[makeCurrent];
    nVisualInfos = 1;

    nTextureIDs = 254;
    nPrograms = nVertexArrayRanges = nDrawables = 62;
    EXPECT_EQ(run("#290 i:1 i:7 #586 i:1 i:7 #1229 z:16 i:7 #1163 i:16 i:34 i:51 z:28 ").result, 1);
    EXPECT_EQ(nTextureIDs + nPrograms + nVertexArrayRanges, 255 + 63 + 63);
    EXPECT_DEATH(walk("#290 i:1 i:8"),
                 "failed: nTextureIDs < 256, file coding/server_overload/names.cpp");
    EXPECT_DEATH(walk("#586 i:1 i:8"),
                 "failed: nPrograms < 64, file coding/server_overload/names.cpp");
    EXPECT_DEATH(walk("#1229 z:16 i:8"),
                 "failed: nVertexArrayRanges < 64, file coding/server_overload/tables.cpp");
    EXPECT_EQ(_getLocalDrawable(51), &LocalDrawableTable[62]);
    EXPECT_DEATH(_getLocalDrawable(52),
                 "failed: nDrawables \\+ 1 < 64, file coding/server_overload/drawables.cpp");
    EXPECT_DEATH(walk("#1163 i:16 i:34 i:52 z:28"),
                 "failed: nDrawables \\+ 1 < 64, file coding/glXMakeCurrent_decode.cpp");
}

} // namespace
