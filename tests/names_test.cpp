// The resource tables: lookups, limits, and texture and program names.
#include "support/serverState.h"

#include "coding/displayConfig.h"

namespace {

using Tables = StartedBy<startServer>;

TEST_F(Tables, TheFirstLiveRecordOfAHandleCounts)
{
    // Record 0 is another's, and 3 reserved, but not live.
    auto* const context = appHandle<GLXContext>(5);
    for (const int i : {1, 2, 3})
        LocalContextTable[i].appCtx = context;
    nContexts = 1;
    EXPECT_EQ(_getLocalContext(AppContext(context)), nullptr);
    nContexts = 3;
    EXPECT_EQ(_getLocalContext(AppContext(context)), &LocalContextTable[1]);
    // A configuration to which the server has none that matches.
    LocalFBConfigTable[0].appFBConfigID = appHandle<GLXFBConfig>(5);
    nFBConfigs = 1;
    EXPECT_EQ(_getLocalFBConfig(AppFBConfig(5U)), nullptr);
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
    for (const auto& [kind, bind] :
         {std::pair<std::string, std::string>{"Textures", "glBindTexture"},
          {"ProgramsARB", "glBindProgramARB"}}) {
        const std::string generate = "glGen" + kind, remove = "glDelete" + kind,
                          bound = bind + " 7 ";
        startServer();
        recorder.shownElements = 1;
        const std::string generated = generate + " 1 [0]\n", removed = remove + " 1 ";
        // One call for each name; the recording library gives out 1001, 1002, ...
        EXPECT_EQ(run(generate + " i:3 i:1 i:2 i:3"), performed(generated + generated + generated));
        EXPECT_EQ(run(generate + " i:0 glEnd"), performed("glEnd\n"));
        EXPECT_EQ(run(bind + " i:7 i:1"), performed(bound + "0x3e9\n"));
        EXPECT_EQ(run(bind + " i:7 i:2"), performed(bound + "0x3ea\n"));
        EXPECT_EQ(run(bind + " i:7 i:9"), performed(bound + "9\n"));
        EXPECT_EQ(run(bind + " i:7 i:0"), performed(bound + "0\n"));
        EXPECT_EQ(run(remove + " i:2 i:2 i:9"),
                  performed(removed + "[0x3ea]\n" + removed + "[9]\n"));
        EXPECT_EQ(run(bind + " i:7 i:2"), performed(bound + "2\n"));
        // Of a name that was generated twice, the last is bound and the first deleted.
        run(generate + " i:1 i:3");
        EXPECT_EQ(run(bind + " i:7 i:3"), performed(bound + "0x3ec\n"));
        EXPECT_EQ(run(remove + " i:1 i:3"), performed(removed + "[0x3eb]\n"));
        EXPECT_EQ(run(bind + " i:7 i:3"), performed(bound + "0x3ec\n"));
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
    EXPECT_EQ(run("glGenTextures i:1 i:7 glGenProgramsARB i:1 i:7 glXAllocateMemoryNV z:16 i:7 "
                  "glXMakeCurrent i:16 i:34 i:51 z:28 ")
                  .result,
              1);
    EXPECT_EQ(nTextureIDs + nPrograms + nVertexArrayRanges, 255 + 63 + 63);
    const std::string file = ", file coding/";
    EXPECT_DEATH(walk("glGenTextures i:1 i:8"), "failed: nTextureIDs < 256" + file);
    EXPECT_DEATH(walk("glGenProgramsARB i:1 i:8"), "failed: nPrograms < 64" + file);
    EXPECT_DEATH(walk("glXAllocateMemoryNV z:16 i:8"), "failed: nVertexArrayRanges < 64" + file);
    EXPECT_EQ(_getLocalDrawable(AppDrawable(51U)), &LocalDrawableTable[62]);
    EXPECT_DEATH(_getLocalDrawable(AppDrawable(52U)), "failed: nDrawables \\+ 1 < 64" + file);
    EXPECT_DEATH(walk("glXMakeCurrent i:16 i:34 i:52 z:28"),
                 "failed: nDrawables \\+ 1 < 64" + file);
}

} // namespace
