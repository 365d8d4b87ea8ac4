// Local displays, visuals, contexts, drawables and make-current, on a real X display of 640 x 480;
// the OpenGL library alone is the recording one.
#include "support/serverState.h"

#include "coding/clientMemory.h"
#include "coding/decoder.h"
#include "coding/display/banner.h"
#include "coding/displayConfig.h"
#include "coding/serverProcess.h"
#include "tools/virtualDisplays.h"

#include <X11/Xutil.h>

#include <array>
#include <chrono>
#include <cstring>
#include <limits>

#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

// One X server for all tests of the process.
const std::string& displayName()
{
    static std::vector<VirtualDisplay> displays = startDisplays(1, 640, 480);
    static const struct Stop {
        ~Stop() { stopDisplays(displays); }
    } stopAtExit;
    return displays[0].name;
}

void useWall(const std::string& text) { setenv("MOSA_DISPLAY", temporaryFile(text).c_str(), 1); }

// A handle as it is recorded.
template <class Handle>
std::string hex(Handle handle)
{
    return testing::PrintToString(reinterpret_cast<void*>(handle));
}

using Place = std::array<int, 4>; // x, y, w, h, as X counts

Place placeOf(Drawable window)
{
    XWindowAttributes attributes{};
    XGetWindowAttributes(currLocalDisplay->dpy, window, &attributes);
    EXPECT_EQ(attributes.map_state, IsViewable);
    EXPECT_TRUE(attributes.override_redirect);
    return {attributes.x, attributes.y, attributes.width, attributes.height};
}

class Glx : public testing::Test {
protected:
    void SetUp() override
    {
        CleanupLocalDisplays();
        startServer();
        setenv("MOSA_BANNER_TIME", "0", 1);
        unsetenv("MOSA_KEEP_ASPECT_RATIO");
        // The upper right quarter of a wall of 1280 x 960.
        useWall("# nobody\n\r\n  \t\n " + displayName() + ".0 1280 960 640 480 640 480\n");
        recorder.values[GL_MATRIX_MODE] = {GL_MODELVIEW};
    }
};

constexpr char createContext[] = "glXCreateContext i:16 i:34 i:0 i:9 i:1 ";

// dpy visual drawable ctx, w h d x y parent
std::string makeCurrent(int w, int h, const char* drawable = "i:51", const char* parent = "i:0")
{
    return std::string("glXMakeCurrent i:16 i:34 ") + drawable + " i:9 i:" + std::to_string(w) +
           " i:" + std::to_string(h) + " i:24 i:300 i:200 " + parent + " ";
}

TEST_F(Glx, TheFirstMakeCurrentSetsAContextUpOnce)
{
    EXPECT_EQ(namesOf(run(createContext).calls), "glXChooseVisual\nglXCreateContext\n");
    const LocalContextInfo& context = LocalContextTable[0];
    EXPECT_EQ(context.firsttime, 1);
    const std::string first = run(makeCurrent(640, 480)).calls;
    EXPECT_EQ(first.substr(first.find('\n') + 1),
              "glMatrixMode 0x1701\nglPushMatrix\nglGetDoublev 0xba7 ptr\nglLoadIdentity\n"
              "glScalef 0 0 1\nglTranslatef -0 -0 0\nglMultMatrixd ptr\nglViewport 0 0 640 480\n"
              "glGetIntegerv 0xba0 ptr\nglMatrixMode 0x1701\nglPopMatrix\nglPushMatrix\n"
              "glGetDoublev 0xba7 ptr\nglLoadIdentity\nglScalef 2 2 1\n"
              "glTranslatef -0.5 -0.5 0\nglMultMatrixd ptr\nglMatrixMode 0x1700\n"
              "glMatrixMode 0x1700\n");
    EXPECT_EQ(context.firsttime, 0);
    EXPECT_EQ(context.matrixMode, 0U) << "the application has selected no mode";
    ASSERT_EQ(currDrawableInfo, &LocalDrawableTable[0]);
    EXPECT_EQ(currDrawableInfo->psx, 2);
    EXPECT_EQ(currDrawableInfo->arect.x + currDrawableInfo->arect.y, 0) << "at the wall's origin";
    EXPECT_EQ(placeOf(currDrawableInfo->localDrawable), (Place{0, 0, 640, 480}));

    EXPECT_EQ(run(makeCurrent(640, 480)),
              performed("glXMakeCurrent " + hex(currLocalDisplay->dpy) + " " +
                        hex(currDrawableInfo->localDrawable) + " 0x1389\n"));
}

TEST_F(Glx, LocalWindowsFollowTheApplicationsWindow)
{
    run(createContext + makeCurrent(640, 480));
    const Drawable window = LocalDrawableTable[0].localDrawable;
    const auto place = [&](int w, int h) {
        run(makeCurrent(w, h));
        return placeOf(window);
    };
    // 400 x 400 at scale 2.4 covers 960 columns of the wall, 320 of them here.
    EXPECT_EQ(place(400, 400), (Place{0, 0, 320, 480}));
    // 640 x 360 at scale 2 covers 720 rows; the lowest 240 of the display.
    EXPECT_EQ(place(640, 360), (Place{0, 240, 640, 240}));
    // 1000 x 10 does not reach the upper half: one pixel below and left of the display.
    EXPECT_EQ(place(1000, 10), (Place{-641, 960, 1, 1}));
    EXPECT_EQ(place(640, 480), (Place{0, 0, 640, 480}));
    // The same again sends no request.
    const unsigned long request = NextRequest(currLocalDisplay->dpy);
    run(makeCurrent(640, 480));
    EXPECT_EQ(NextRequest(currLocalDisplay->dpy), request);
    // A window inside a recorded one is the child of its local window.
    run(makeCurrent(100, 100, "i:52", "i:51"));
    Window root = 0, parent = 0, *children = nullptr;
    unsigned count = 0;
    const LocalDrawableInfo& inner = LocalDrawableTable[1];
    XQueryTree(currLocalDisplay->dpy, inner.localDrawable, &root, &parent, &children, &count);
    XFree(children);
    EXPECT_EQ(parent, window);
    EXPECT_EQ(inner.root, &LocalDrawableTable[0]);
    EXPECT_EQ(inner.psx, 0);
}

TEST_F(Glx, TheAspectRatioPreferenceIsReadOnce)
{
    for (const char* keep : {"0", "1"}) {
        setenv("MOSA_KEEP_ASPECT_RATIO", keep, 1);
        run(createContext + makeCurrent(640, 240));
        EXPECT_EQ(currDrawableInfo->psy, 4);
    }
}

TEST_F(Glx, AReleaseKeepsTheCurrentDrawable)
{
    run(createContext + makeCurrent(640, 480));
    const std::pair<const char*, const char*> cases[] = {
        {"glXMakeCurrent i:16 i:0 i:0 i:0 z:24", ""},
        {"glXMakeCurrent i:16 i:0 i:0 i:9 z:24", "MOSA: Drawable is FALSE\n"},
        {"glXMakeContextCurrent i:16 z:44", ""},
        {"glXMakeContextCurrent i:16 z:16 i:9 z:24", "MOSA: Drawable is FALSE\n"},
    };
    for (const auto& [wire, message] : cases) {
        const Outcome outcome = run(wire);
        EXPECT_TRUE(outcome.calls.ends_with(" 0 null\n")) << outcome;
        EXPECT_EQ(outcome.messages, message);
        EXPECT_EQ(currDrawableInfo, &LocalDrawableTable[0]);
    }
    EXPECT_DEATH(walk("glXMakeCurrent i:16 i:34 i:51 i:8 z:24"),
                 "failed: currDrawableInfo->lctx, file");
    EXPECT_DEATH(walk("glXMakeContextCurrent i:16 z:8 i:51 i:51 i:8 z:24"),
                 "failed: rldi->lctx, file");
}

TEST_F(Glx, AMakeCurrentThatIsRefusedLeavesTheClientState)
{
    run(createContext + makeCurrent(640, 480) + "glEnableClientState i:0x8074");
    EXPECT_EQ(clientMemory::drawable, 0) << "the array lacks an address";
    recorder.results[Op::glXMakeCurrent] = 0;
    run("glXCreateContext i:16 i:34 i:0 i:10 i:1 glXMakeCurrent i:16 i:34 i:51 i:10 z:24");
    EXPECT_EQ(clientMemory::drawable, 0);
}

TEST_F(Glx, ASeparateReadDrawableGetsAWindowToo)
{
    run(createContext + makeCurrent(640, 480));
    const Outcome outcome = run("glXMakeContextCurrent i:16 z:8 i:51 i:52 i:9 z:24");
    EXPECT_EQ(currDrawableInfo, &LocalDrawableTable[0]) << "drawing goes to the draw drawable";
    ASSERT_EQ(nDrawables, 2);
    const std::string handles = hex(LocalDrawableTable[0].localDrawable) + " " +
                                hex(LocalDrawableTable[1].localDrawable) + " 0x1389\n";
    EXPECT_TRUE(outcome.calls.ends_with(handles)) << outcome;
    EXPECT_EQ(LocalDrawableTable[1].lctx, LocalContextTable);
}

TEST_F(Glx, WindowOperationsUseTheLocalWindow)
{
    run(createContext);
    LocalVisualTable[0].appVI = 0;
    // An unknown drawable is recorded, gets its visual and its window.
    EXPECT_EQ(namesOf(run("MWRaiseWindow i:51 glXSelectEvent i:16 i:51 i:8").calls),
              "glXSelectEvent\n");
    ASSERT_EQ(nDrawables, 1);
    const Drawable window = LocalDrawableTable[0].localDrawable;
    ASSERT_NE(window, 0U);
    for (const char* wire : {"glXSwapBuffers i:16 i:51", "glXDestroyWindow i:16 i:77"})
        EXPECT_TRUE(run(wire).calls.ends_with(" " + hex(window) + "\n")) << wire;
    EXPECT_EQ(namesOf(run("glXSwapBuffers i:16 i:53").calls), "") << "it has no window yet";
    // The creation commits the slot under the window's own ID.
    EXPECT_EQ(run("glXCreateWindow i:16 i:54 i:0 i:60 i:0 i:30 i:20 i:24 i:0").result, 1);
    EXPECT_EQ(nDrawables, 3);
    EXPECT_EQ(LocalDrawableTable[2].appDrawID, 54U);
    EXPECT_EQ(LocalDrawableTable[2].arect.w, 30);
    EXPECT_EQ(LocalDrawableTable[2].depth, 24);
    EXPECT_EQ(run("MWRaiseWindow i:51 MWRaiseWindow i:99").result, 1);
}

TEST_F(Glx, ContextsThatShareAreOneLocalContext)
{
    // 9, then 10 sharing with 9, then 11 sharing with one that is not known.
    EXPECT_EQ(namesOf(run(std::string(createContext) + "glXCreateContext i:16 i:34 i:9 i:10 i:1 "
                                                       "glXCreateContext i:16 i:34 i:77 i:11 i:1")
                          .calls),
              "glXChooseVisual\nglXCreateContext\n");
    ASSERT_EQ(nContexts, 2);
    EXPECT_EQ(LocalContextTable[1].localCtx, LocalContextTable[0].localCtx);
    EXPECT_NE(LocalContextTable[1].attrStack, LocalContextTable[0].attrStack);
    EXPECT_EQ(LocalContextTable[1].firsttime, 1);
    EXPECT_EQ(namesOf(run("glXCopyContext i:16 i:9 i:10 i:1").calls), "glXCopyContext\n");
    EXPECT_TRUE(run("glXDestroyContext i:16 i:10").calls.ends_with(" 0x1389\n"));
    EXPECT_EQ(run("glXDestroyContext i:16 i:77"), performed(""));
    // The other's end, and whatever else names one of the two, is the library's business.
    EXPECT_TRUE(run("glXDestroyContext i:16 i:9").calls.ends_with(" 0x1389\n"));
    for (const char* again : {"glXCopyContext i:16 i:9 i:10 i:1", "glXDestroyContext i:16 i:10"})
        EXPECT_EQ(namesOf(run(again).calls) + run(again).messages,
                  std::string(again, std::strchr(again, ' ')) + "\n");
    EXPECT_EQ(run("glXCopyContext i:16 i:9 i:77 i:1"),
              (Outcome{1, "", "Attention MOSA: glXCopyContext: context 0x4d is not known\n"}));
    // One that the system refuses leaves its slot to the next.
    recorder.results[Op::glXCreateContext] = 0;
    run("glXCreateContext i:16 i:34 i:0 i:12 i:1");
    recorder.results.clear();
    run("glXCreateContext i:16 i:34 i:0 i:13 i:1");
    ASSERT_EQ(nContexts, 3);
    EXPECT_EQ(LocalContextTable[2].appCtx, appHandle<GLXContext>(13));
    nContexts = 63;
    EXPECT_DEATH(walk(createContext), "failed: nContexts \\+ 1 < 64, file");
}

TEST_F(Glx, AHandleThatComesAgainIsTheLivingContext)
{
    const auto current = [] {
        const std::string calls = run(makeCurrent(640, 480)).calls;
        return calls.substr(calls.find('\n', calls.find("glXMakeCurrent")) - 6, 6);
    };
    run(std::string(createContext) + createContext);
    EXPECT_EQ(current(), "0x1389") << "the first of two that live";
    EXPECT_EQ(namesOf(run("glXDestroyContext i:16 i:9").calls),
              "glXDestroyContext\nglXDestroyContext\n");
    // Nothing but dead ones: the first is made current, and set up for the first time, all the
    // same.
    nDrawables = 0;
    LocalContextTable[0].firsttime = 1;
    EXPECT_EQ(current(), "0x1389");
    EXPECT_EQ(LocalContextTable[0].firsttime, 0);
    run(createContext);
    EXPECT_EQ(current(), "0x138b");
    run("glXCreateContext i:16 i:34 i:9 i:10 i:1");
    EXPECT_EQ(hex(LocalContextTable[3].localCtx), "0x138b") << "to share with";
    EXPECT_TRUE(run("glXCopyContext i:16 i:9 i:9 i:1").calls.ends_with(" 0x138b 0x138b 1\n"));
    // The library hands an address out again: the dead stay dead.
    recorder.results[Op::glXCreateContext] = 0x1389;
    run("glXCreateContext i:16 i:34 i:0 i:11 i:1 glXDestroyContext i:16 i:10");
    EXPECT_EQ(current(), "0x138b");
}

TEST_F(Glx, TablesHoldOneRecordLessThanTheyHaveSlots)
{
    run("glXChooseFBConfig i:16 i:36 i:1 i:0");
    nContexts = nVisualInfos = nFBConfigs = nPbuffers = 62;
    run("glXChooseVisual i:16 i:34 i:1 i:0 glXChooseFBConfig i:16 i:37 i:1 i:0 "
        "glXCreatePbuffer i:16 i:36 i:51 i:0 glXCreateNewContext i:16 i:36 i:0 i:0 i:9 i:1");
    EXPECT_EQ((std::array{nContexts, nVisualInfos, nFBConfigs, nPbuffers}),
              (std::array{63, 63, 63, 63}));
    EXPECT_TRUE(_getLocalContext(AppContext(9U)));
    EXPECT_EQ(_getLocalPbuffer(AppPbuffer(51U)), LocalPbufferTable[62].localPbuffer);
}

TEST_F(Glx, WhatTheLibraryRefusesIsRecorded)
{
    run("glXChooseFBConfig i:16 i:36 i:1 i:0");
    recorder.results[Op::glXChooseFBConfig] = recorder.results[Op::glXCreatePbuffer] = 0;
    run("glXChooseFBConfig i:16 i:37 i:1 i:0 glXCreatePbuffer i:16 i:36 i:51 i:0");
    EXPECT_EQ(nFBConfigs * 10 + nPbuffers, 21);
    EXPECT_EQ(_getLocalFBConfig(AppFBConfig(37U)), nullptr);
    EXPECT_EQ(LocalPbufferTable[0].localPbuffer, 0U);
}

TEST_F(Glx, ConfigurationsAndPbuffersArePaired)
{
    const std::string messages = run("glXChooseFBConfig i:16 i:36 i:1 i:1 i:0").messages;
    const std::string list = hex(LocalFBConfigTable[0].localFBConfig);
    EXPECT_TRUE(messages.ends_with("MOSA: Server FBCONFIG is " + list + "\n"));
    EXPECT_EQ(LocalFBConfigTable[0].nlocalFBConfigs, 1);
    run("glXCreateNewContext i:16 i:36 i:0x8014 i:0 i:9 i:1 glXCreatePbuffer i:16 i:36 i:51 i:0");
    ASSERT_EQ(nContexts + nPbuffers, 2);
    EXPECT_EQ(LocalContextTable[0].firsttime, 1);
    EXPECT_TRUE(LocalContextTable[0].attrStack);
    EXPECT_TRUE(run("glXDestroyPbuffer i:16 i:51").calls.ends_with(" 0x138b\n"));
    const std::string where = ", file coding/server_overload/contexts.cpp";
    EXPECT_DEATH(walk("glXDestroyPbuffer i:16 i:52"), "failed: _localPbuffer" + where);
    EXPECT_DEATH(walk("glXCreatePbuffer i:16 i:37 i:52 i:0"), "failed: _localFBConfig" + where);
    EXPECT_DEATH(walk("glXCreateNewContext i:16 i:37 i:0 i:0 i:9 i:1"), "failed: lconfig" + where);
    nFBConfigs = nPbuffers = nVisualInfos = 63;
    LocalFBConfigTable[0].appFBConfigID = appHandle<GLXFBConfig>(36);
    EXPECT_DEATH(walk("glXCreatePbuffer i:16 i:36 i:51 i:0"), "failed: nPbuffers < 64" + where);
    EXPECT_DEATH(walk("glXChooseFBConfig i:16 i:36 i:1 i:0"), "failed: nFBConfigs < 64, file");
    EXPECT_DEATH(walk("glXChooseVisual i:16 i:36 i:1 i:0"), "failed: nVisualInfos < 64, file");
}

TEST_F(Glx, AVisualThatTheServerLacksEndsItWithAReport)
{
    recorder.results[Op::glXChooseVisual] = 0;
    EXPECT_DEATH(walk("glXChooseVisual i:16 i:34 i:1 i:6 i:4 i:5 i:8 i:8 i:99 i:0"),
                 "\nMOSA: No conforming visual exists on server!\n"
                 "=====================================\n"
                 "     Visual Attributes Requested     \n"
                 "=====================================\n\n"
                 "GLX_RGBA\nGLX_DOUBLEBUFFER\nGLX_RED_SIZE             8\nINVALID ATTRIBUTE\n\n"
                 "=====================================\nMOSA: Goodbye.\n");
    recorder.results.clear();
    // An unknown visual is chosen once.
    run("glXCreateContext i:16 i:40 i:0 i:9 i:1");
    EXPECT_EQ(namesOf(run("glXCreateContext i:16 i:40 i:0 i:10 i:1").calls), "glXCreateContext\n");
    EXPECT_EQ(nVisualInfos, 1);
}

// The set-up is tried once in a process, so each case has its own.
TEST_F(Glx, SwapGroupsAreJoinedOnceOrReported)
{
    const std::string support = "GLX_X GLX_NV_swap_group GLX_Y";
    const auto twice = [](const char* extensions, std::uint64_t result, double groups) {
        swapOnRetrace = 1;
        recorder.results[Op::glXQueryExtensionsString] =
            reinterpret_cast<std::uintptr_t>(extensions);
        recorder.results[Op::glXQueryMaxSwapGroupsNV] = result;
        recorder.values[1234] = {groups};
        recorder.values[1235] = {2};
        walk(createContext + makeCurrent(640, 480) + makeCurrent(640, 480));
        for (const std::string& call : recorder.calls)
            if (call.find("SwapGroupNV") != call.npos || call.find("SwapBarrierNV") != call.npos)
                std::fprintf(stderr, "%s;", call.substr(0, call.find(' ')).c_str());
        std::fprintf(stderr, "end\n");
        std::_Exit(0);
    };
    const auto exited = testing::ExitedWithCode(0);
    EXPECT_EXIT(twice("GLX_X", 1, 1), exited,
                "MOSA: NVIDIA framelock is not supported on the graphics hardware on .*\nend\n");
    EXPECT_EXIT(twice(support.c_str(), 0, 1), exited,
                "MOSA: Error querying MaxSwapGroupsNV on .*\nend\n");
    EXPECT_EXIT(twice(support.c_str(), 1, 0), exited,
                "MOSA: Insufficient number of swap groups \\(0\\) and/or swap barriers "
                "\\(2\\)\nend\n");
    EXPECT_EXIT(twice(support.c_str(), 1, 1), exited,
                "\nglXJoinSwapGroupNV;glXBindSwapBarrierNV;end\n");
}

TEST_F(Glx, ALocalDisplayIsOpenedOncePerApplicationDisplay)
{
    const AppDisplay app(16U);
    setenv("MOSA_BANNER_COLOR", "no such colour", 1);
    testing::internal::CaptureStderr();
    LocalDisplay* const display = GetLocalDisplay(app);
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with(
        "Attention MOSA: X Color no such colour not found.  Using white\n"));
    unsetenv("MOSA_BANNER_COLOR");
    ASSERT_TRUE(display);
    EXPECT_EQ(display->dpyName, displayName() + ".0");
    EXPECT_EQ(display->scrn, 0);
    EXPECT_EQ(display->vWidth * 10000 + display->vHeight, 12800960);
    EXPECT_EQ(display->rect.x + display->rect.w, 1280);
    LocalDisplay* const second = GetLocalDisplay(AppDisplay(19U));
    EXPECT_TRUE(second && second != display && second->dpy != display->dpy);
    unsetenv("MOSA_DISPLAY");
    EXPECT_EQ(GetLocalDisplay(app), display) << "without the file";
    EXPECT_EQ(GetLocalDisplay(AppDisplay(19U)), second);
    EXPECT_EQ(GetLocalDisplay(AppDisplay(17U)), nullptr);

    const auto read = [](const std::string& file) {
        useWall(file);
        return GetLocalDisplay(AppDisplay(18U));
    };
    for (const std::string& name : {std::string(":4077"), displayName() + ".7"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(read(name + " 1 1\n"), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "MOSA: ================= using display " + name +
                      "\nMOSA: unable to open display: " + name + "\n");
    }
    serverID = 1;
    const auto readAgain = [] { GetLocalDisplay(AppDisplay(18U)); };
    EXPECT_DEATH(readAgain(), "MOSA: not enough entries in wall configuration file /");
    useWall("#:9\n:8\n  no display 3\n");
    EXPECT_DEATH(readAgain(), "MOSA: invalid X display string in wall configuration file "
                              ".*\nline was:   no display 3\n");
    serverID = 0;
    // A width of 0 stands for the whole screen; the name alone leaves all numbers 0.
    LocalDisplay* const whole = read(displayName() + "\n");
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->vWidth, 0);
    EXPECT_EQ(whole->rect.w * 1000 + whole->rect.h, 640480);
    setenv("MOSA_DISPLAY", "/nonexistent", 1);
    EXPECT_DEATH(walk("glXCreateContext i:20 i:34 i:0 i:9 i:1"),
                 "MOSA: unable to open wall configuration file /nonexistent(.|\n)*failed: "
                 "currLocalDisplay, file");
}

// Fonts always come from display ":0", which may be this test's own or nobody's.
TEST_F(Glx, AFontIsLoadedByNameOrTheRecordSkipped)
{
    Display* const zero = XOpenDisplay(":0");
    const std::string absent = "Attention MOSA: glXUseXFont: unable to open display :0\n";
    const Outcome fixed = run("glXUseXFont i:6 'fixed 00 i:32 i:96 i:1000 glEnd");
    // Xlib has a word of its own where the display is somebody else's.
    EXPECT_TRUE(zero ? fixed.messages.empty() : fixed.messages.ends_with(absent)) << fixed;
    EXPECT_EQ(namesOf(fixed.calls), zero ? "glXUseXFont\nglEnd\n" : "glEnd\n");
    EXPECT_TRUE(!zero || fixed.calls.ends_with(" 32 96 1000\nglEnd\n")) << fixed;
    const Outcome unknown = run("glXUseXFont i:4 'none i:32 i:96 i:1000 glEnd");
    EXPECT_EQ(unknown.calls, "glEnd\n");
    EXPECT_TRUE(unknown.messages.ends_with(
        zero ? "Attention MOSA: glXUseXFont: display :0 has no font none\n" : absent))
        << unknown;
    if (zero)
        XCloseDisplay(zero);
#ifndef __SANITIZE_ADDRESS__ // its shadow memory needs more than any limit leaves
    Bytes buffer = bytes("glXUseXFont i:0x4000000");
    buffer.resize(buffer.size() + 0x4000000 + 12);
    const auto withoutMemory = [&buffer] {
        const rlimit limit{1U << 27, 1U << 27};
        setrlimit(RLIMIT_AS, &limit);
        std::_Exit(decoder(buffer.data(), static_cast<int>(buffer.size())));
    };
    EXPECT_EXIT(withoutMemory(), testing::ExitedWithCode(1),
                "malloc failed .... glXUseXFont_decode\n");
#endif
}

// A process of its own holds the banner up while the test looks at the screen.
TEST_F(Glx, TheBannerShowsThisDisplaysPartOfTheWall)
{
    Display* const dpy = XOpenDisplay(displayName().c_str());
    ASSERT_TRUE(dpy);
    XSelectInput(dpy, DefaultRootWindow(dpy), SubstructureNotifyMask);
    XSync(dpy, True);
    const pid_t child = fork();
    if (child == 0) {
        setenv("MOSA_BANNER_TIME", "20", 1);
        setenv("MOSA_BANNER_COLOR", "no such colour", 1);
        std::freopen("/dev/null", "w", stderr);
        Display* own = XOpenDisplay(displayName().c_str());
        mosa_banner(own, 0, 614, 300, 307, 0, 307, 300);
        std::_Exit(0);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const auto inTime = [deadline] { return std::chrono::steady_clock::now() < deadline; };
    XEvent event{};
    while (!XCheckTypedEvent(dpy, CreateNotify, &event) && inTime())
        sched_yield();
    EXPECT_EQ((Place{event.xcreatewindow.x, event.xcreatewindow.y, event.xcreatewindow.width,
                     event.xcreatewindow.height}),
              (Place{12, 9, 614, 460}));
    EXPECT_EQ(event.xcreatewindow.border_width, 2);
    EXPECT_TRUE(event.xcreatewindow.override_redirect);

    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    XCloseDisplay(dpy);
    // A wall file may say anything: the sanitizer sees a number that does not fit.
    constexpr int most = std::numeric_limits<int>::max();
    Display* const other = XOpenDisplay(displayName().c_str());
    EXPECT_EQ(mosa_banner(other, 0, 1, 1, most, -most, most, most), 0);
    EXPECT_EQ(mosa_banner(other, 0, -most, most, most, most, most, -most), 0);
    XCloseDisplay(other);
}

} // namespace
