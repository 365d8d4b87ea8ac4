// Decoders that do more than read and call: they write the application's handles and window sizes
// into the server's records first. What they call is recorded, not overloaded.
#include "support/serverState.h"

#include "coding/glViewport_decode.h"

#include <array>

namespace {

using Special = StartedBy<startWithoutOverloads>;

// ID, visual, parent, depth; x, y, w, h.
std::string textOf(const LocalDrawableInfo& record)
{
    std::ostringstream text;
    const auto& [x, y, w, h] = record.arect;
    text << record.appDrawID << " " << record.appVI << " " << record.app_parentID << " "
         << record.depth << "; " << x << " " << y << " " << w << " " << h;
    return text.str();
}

TEST_F(Special, AViewportBringsTheWindowSizeAlong)
{
    // The overload still works with the size before.
    static int seen;
    glOpTable[indexOf(Op::glViewport)] = reinterpret_cast<glOp>(
        +[](GLint, GLint, GLsizei, GLsizei) { seen = 10000 * currAppWidth + glV_currAppWidth; });
    const struct {
        const char* wire;
        int width, height, needed, seen;
    } steps[] = {
        {"glViewport i:0 i:0 i:800 i:600 i:800 i:600", 800, 600, 1, 800},
        {"glViewport i:1 i:1 i:9 i:9 i:800 i:600", 800, 600, 0, 8000800},
        {"glViewport i:0 i:0 i:1 i:1 i:1024 i:600", 1024, 600, 1, 8001024},
        {"glViewport i:0 i:0 i:1 i:1 i:1024 i:601", 1024, 601, 1, 10241024},
    };
    for (const auto& step : steps) {
        walk(step.wire);
        EXPECT_EQ((std::array{currAppWidth, currAppHeight, updateScalingNeeded, seen}),
                  (std::array{step.width, step.height, step.needed, step.seen}))
            << step.wire;
    }
    int w = 0, h = 0;
    getCurrentAppWindowSize(&w, &h);
    EXPECT_EQ(w * 10000 + h, 10240601);
    EXPECT_DEATH(getCurrentAppWindowSize(nullptr, &h),
                 "failed: w, file coding/glViewport_decode.cpp, line 30");
    startWithoutOverloads();
    EXPECT_EQ(run("glViewport i:-1 i:2 i:-3 i:4 z:8 glEnd"),
              performed("glViewport -1 2 -3 4\nglEnd\n"));
}

TEST_F(Special, CreatorsReserveTheFirstFreeSlot)
{
    nVisualInfos = nContexts = nFBConfigs = nPbuffers = 2;
    recorder.results[Op::glXChooseVisual] = 0; // there is no display to ask
    recorder.shownElements = 3;
    EXPECT_EQ(run("glXChooseVisual i:16 i:34 i:1 i:5 i:4 i:8 i:8 i:5 i:0 glEnd"),
              performed("glXChooseVisual 16 1 [4 8 8]\nglEnd\n"));
    EXPECT_EQ(LocalVisualTable[2].appVI, 34U);
    EXPECT_EQ(run("glXCreateContext i:16 i:34 i:7 i:-2 i:1 glEnd"),
              performed("glXCreateContext 16 34 7 1\nglEnd\n"));
    EXPECT_EQ(LocalContextTable[2].appCtx, appHandle<GLXContext>(0xfffffffeU));
    EXPECT_EQ(run("glXCreateNewContext i:16 i:35 i:0x8014 i:0 i:9 i:1 glEnd"),
              performed("glXCreateNewContext 16 35 32788 null 1\nglEnd\n"));
    EXPECT_EQ(LocalContextTable[2].appCtx, appHandle<GLXContext>(9));
    recorder.shownElements = 0; // the place for the count is one number
    EXPECT_EQ(run("glXChooseFBConfig i:16 i:36 i:1 i:3 i:0x8010 i:1 i:0 glEnd"),
              performed("glXChooseFBConfig 16 1 ptr ptr\nglEnd\n"));
    recorder.shownElements = 3;
    EXPECT_EQ(LocalFBConfigTable[2].appFBConfigID, appHandle<GLXFBConfig>(36));
    // A list without its terminator is ended for it, also behind a token that wants a value.
    EXPECT_EQ(run("glXCreatePbuffer i:16 i:36 i:51 i:1 i:0x8041 glEnd"),
              performed("glXCreatePbuffer 16 36 [32833 0 0]\nglEnd\n"));
    EXPECT_EQ(LocalPbufferTable[2].appPbufferID, 51U);
    EXPECT_EQ(nVisualInfos + nContexts + nFBConfigs + nPbuffers, 8) << "counted by the decoder";
}

TEST_F(Special, MakeCurrentRecordsTheApplicationsWindow)
{
    // dpy visual drawable ctx w h d x y parent
    EXPECT_EQ(run("glXMakeCurrent i:16 i:34 i:51 i:9 i:300 i:200 i:24 i:-7 i:8 i:50 glEnd"),
              performed("glXMakeCurrent 16 51 9\nglEnd\n"));
    ASSERT_EQ(nDrawables, 1);
    EXPECT_EQ(textOf(LocalDrawableTable[0]), "51 34 50 24; -7 8 300 200");
    EXPECT_EQ(LocalDrawableTable[0].dirtyCtx, 1);
    EXPECT_EQ(std::pair(currAppWidth, currAppHeight), std::pair(300, 200));

    // Known: only its rectangle changes.
    run("glXMakeCurrent i:16 i:35 i:51 i:9 i:310 i:210 i:16 i:1 i:2 i:49");
    EXPECT_EQ(textOf(LocalDrawableTable[0]), "51 34 50 24; 1 2 310 210");

    // A release concerns no drawable, but brings a size.
    EXPECT_EQ(run("glXMakeCurrent i:16 i:0 i:0 i:0 i:4 i:5 i:0 i:0 i:0 i:0"),
              performed("glXMakeCurrent 16 0 null\n"));
    EXPECT_EQ(run("glXMakeContextCurrent i:16 i:1 i:2 i:51 i:52 i:9 i:7 i:7 i:7 i:7 i:7 i:7 glEnd"),
              performed("glXMakeContextCurrent 16 51 52 9\nglEnd\n"));
    EXPECT_EQ(nDrawables, 1);
    EXPECT_EQ(std::pair(currAppWidth, currAppHeight), std::pair(4, 5));
}

TEST_F(Special, ACreatedWindowFillsASlotThatIsCommittedOrCleared)
{
    // dpy window config glxWinID visID w h d cnt
    const std::string create = "glXCreateWindow i:16 i:51 i:36 i:60 i:34 i:300 i:200 i:24 ";
    static LocalDrawableInfo atCall;
    static int counted;
    glOpTable[indexOf(Op::glXCreateWindow)] =
        reinterpret_cast<glOp>(+[](Display*, GLXFBConfig, Window, const int*) -> GLXWindow {
            atCall = LocalDrawableTable[nDrawables];
            nDrawables += counted;
            return 0;
        });
    EXPECT_EQ(run(create + "i:0 glEnd"), performed("glEnd\n"));
    EXPECT_EQ(textOf(atCall), "60 34 0 24; 0 0 300 200");
    // The overload took another record: the next one must start from zero.
    EXPECT_EQ(LocalDrawableTable[0].appDrawID + LocalDrawableTable[0].appVI, 0U);

    counted = 1;
    run(create + "i:0");
    EXPECT_EQ(LocalDrawableTable[0].appDrawID, 60U);
    // Known by its GLX window: its record is left alone, the operation performed.
    startWithoutOverloads();
    nDrawables = 1;
    LocalDrawableTable[0].depth = 3;
    LocalDrawableTable[0].appDrawID = 60;
    recorder.shownElements = 2;
    EXPECT_EQ(run(create + "i:2 i:5 i:0 glEnd"),
              performed("glXCreateWindow 16 36 51 [5 0]\nglEnd\n"));
    EXPECT_EQ(run(create + "i:0 glEnd"), performed("glXCreateWindow 16 36 51 null\nglEnd\n"));
    EXPECT_EQ(LocalDrawableTable[0].depth, 3);
    EXPECT_EQ(LocalDrawableTable[1].appDrawID, 0U);
}

TEST_F(Special, VertexArrayMemoryIsKnownByTheApplicationsPointer)
{
    const std::string allocate = "glXAllocateMemoryNV i:64 f:0.5 f:1 f:0.25 i:0x40001000";
    EXPECT_EQ(run(allocate + " glEnd"), performed("glXAllocateMemoryNV 64 0.5 1 0.25\nglEnd\n"));
    void* const local = LocalVertexArrayRangeTable[0].localVertexArrayRangeID;
    ASSERT_TRUE(local);
    EXPECT_EQ(run(allocate).messages, "GLXALLOCATEMEMORYNV DECODE: memory has already been "
                                      "allocated at this location.\n");
    EXPECT_EQ(nVertexArrayRanges, 1);
    EXPECT_EQ(LocalVertexArrayRangeTable[0].localVertexArrayRangeID, local);
    // Freed by the local address; null for one that is not known.
    static std::vector<void*> freed;
    glOpTable[indexOf(Op::glXFreeMemoryNV)] =
        reinterpret_cast<glOp>(+[](void* memory) { freed.push_back(memory); });
    run("glXFreeMemoryNV i:0x40001000 glXFreeMemoryNV i:0x40002000");
    EXPECT_EQ(freed, (std::vector<void*>{local, nullptr}));
}

} // namespace
