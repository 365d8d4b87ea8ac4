// Tile geometry: rectangles, scales, viewport, scissor, attribute stack and matrices, as sequences
// of calls to the system library.
#include "support/serverState.h"

#include <cmath>
#include <regex>

bool operator==(const MWRect& a, const MWRect& b)
{
    return a.x == b.x && a.y == b.y && a.w == b.w && a.h == b.h;
}

void PrintTo(const MWRect& r, std::ostream* out)
{
    *out << r.x << " " << r.y << " " << r.w << " " << r.h;
}

namespace {

constexpr MWRect nothing{-1, -1, 1, 1};

using Tile = StartedBy<startServer>;

// The call that a record of numbers or of one array of zeros becomes.
std::string callOf(const std::string& wire)
{
    const std::string call = std::regex_replace(wire, std::regex("z:.*"), "ptr");
    return std::regex_replace(call, std::regex("[df]:"), "");
}

// What rebuilds the tile level, at the scale and centre of the tile.
std::string tileLevel(const std::string& scale, const std::string& centre)
{
    return "glPushMatrix\nglGetDoublev 0xba7 ptr\nglLoadIdentity\nglScalef " + scale +
           " 1\nglTranslatef " + centre + " 0\nglMultMatrixd ptr\n";
}

std::string viewportCalls(const std::string& viewport, const std::string& scale,
                          const std::string& centre)
{
    return "glViewport " + viewport +
           "\nglGetIntegerv 0xba0 ptr\nglMatrixMode 0x1701\nglPopMatrix\n" +
           tileLevel(scale, centre) + "glMatrixMode 0x1702\n";
}

TEST_F(Tile, WithoutADrawableThereIsNoTileLevel)
{
    _pushTileTransformation();
    _popTileTransformation();
    EXPECT_EQ(takeCalls(), "");
}

TEST_F(Tile, ClippingKeepsWholePixels)
{
    const MWRect hundred{0, 0, 100, 100};
    const struct {
        MWRect in, clip, out;
    } cases[] = {
        {{10.7F, 20.2F, 5.5F, 3.9F}, hundred, {10, 20, 5, 3}},
        {{-50, 10, 100, 20}, {0, 0, 1024, 768}, {0, 10, 50, 20}},
        {{90.9F, 95, 50, 50}, hundred, {90, 95, 10, 5}},
        {{200, 0, 10, 10}, hundred, nothing},
        {{100, 0, 10, 10}, hundred, nothing}, // touches the edge
        {{0, -10, 10, 10}, hundred, nothing},
        {{0, 0, 0.9F, 10}, hundred, nothing},
        {{50, 50, -20, 10}, hundred, {50, 50, -20, 10}}, // negative sizes stay
        {{0, 0, 300, 300}, {150.5F, 0, 149.5F, 300}, {150, 0, 150, 300}},
        {{-0.9F, 0, 5, 5}, {-10, 0, 20, 20}, {0, 0, 5, 5}}, // toward zero
        {{0, 0, 3e9F, INFINITY}, hundred, hundred},
    };
    for (const auto& c : cases) {
        MWRect out{};
        _clipRect(c.in, c.clip, &out);
        EXPECT_EQ(out, c.out) << testing::PrintToString(c.in);
    }
}

TEST_F(Tile, TheScaleFillsTheWallOrKeepsTheShape)
{
    LocalDisplay display{};
    display.vWidth = 4000;
    display.vHeight = 3000;
    currLocalDisplay = &display;
    const struct {
        int keep, W, H;
        float psx, psy;
    } cases[] = {
        {0, 1000, 500, 4, 6},  {1, 1000, 500, 4, 4}, {1, 500, 1000, 3, 3},
        {1, 400, 300, 10, 10}, {1, 0, 300, 10, 10}, // no size yet: the scale before
        {1, 300, 0, 10, 10},   {0, 0, 0, 10, 10},
    };
    LocalDrawableInfo drawable{};
    for (const auto& c : cases) {
        keep_aspect_ratio = c.keep;
        currAppWidth = c.W;
        currAppHeight = c.H;
        drawable.arect = {30, 40, 50, 60};
        _setTileTransform(&drawable);
        EXPECT_EQ(std::pair(drawable.psx, drawable.psy), std::pair(c.psx, c.psy))
            << c.W << " x " << c.H;
        EXPECT_EQ(drawable.arect, (MWRect{0, 0, 50, 60}));
    }
    drawable.root = &drawable; // inside another window: nothing of it is shown
    _setTileTransform(&drawable);
    EXPECT_EQ(drawable.psx + drawable.psy, 0);
}

TEST_F(Tile, AViewportIsCutToTheTileAndTheProjectionFollows)
{
    const struct {
        MWRect tile;
        const char *wire, *viewport, *scale, *centre;
    } cases[] = {
        {{0, 0, 400, 600}, "i:0 i:0 i:400 i:300", "0 0 400 600", "2 1", "0.5 -0"},
        {{400, 0, 400, 600}, "i:0 i:0 i:400 i:300", "0 0 400 600", "2 1", "-0.5 -0"},
        {{0, 450, 800, 150}, "i:0 i:0 i:400 i:300", "0 0 800 150", "1 4", "-0 -0.75"},
        {{0, 0, 800, 600}, "i:100 i:75 i:200 i:150", "200 150 400 300", "1 1", "-0 -0"},
        {{400, 0, 400, 600}, "i:100 i:0 i:200 i:300", "0 0 200 600", "2 1", "-0.5 -0"},
        {{0, 0, 400, 600}, "i:10 i:20 i:-5 i:30", "10 20 0 0", "0 1", "0.5 -0"}, // empty
    };
    for (const auto& c : cases) {
        startServer();
        makeTileCurrent(c.tile, 400, 300, 2);
        recorder.values[GL_MATRIX_MODE] = {0x1702};
        EXPECT_EQ(run(std::string("glViewport ") + c.wire + " i:400 i:300"),
                  performed(viewportCalls(c.viewport, c.scale, c.centre)));
    }
    const LocalContextInfo& context = makeTileCurrent({400, 0, 400, 600}, 400, 300, 2);
    EXPECT_TRUE(run("glViewport i:0 i:0 i:100 i:300 i:400 i:300")
                    .calls.starts_with("glViewport -401 -1 1 1\n"))
        << "on another tile";
    EXPECT_EQ(std::vector<int>(context.attrStack->vp, context.attrStack->vp + 4),
              (std::vector<int>{0, 0, 100, 300}))
        << "as the application passed it";
    run("glViewport i:5 i:5 i:0 i:9 i:400 i:300");
    EXPECT_TRUE(std::isfinite(currDrawableInfo->vsx + currDrawableInfo->vtx)) << "without an area";
}

TEST_F(Tile, AScissorBoxIsCutToTheDisplay)
{
    makeTileCurrent({400, 300, 400, 300}, 400, 300, 2);
    const std::pair<const char*, const char*> cases[] = {
        {"glScissor i:150 i:100 i:100 i:100", "glScissor 0 0 100 100\n"},
        {"glScissor i:250 i:200 i:10 i:20", "glScissor 100 100 20 40\n"},
        {"glScissor i:0 i:0 i:10 i:10", "glScissor -401 -301 1 1\n"},
    };
    for (const auto& [wire, call] : cases)
        EXPECT_EQ(run(wire), performed(call));
    currLocalDisplay->rect = {0, 0, 400, 600};
    EXPECT_EQ(run("glScissor i:10 i:20 i:-5 i:30"), performed("glScissor 10 20 0 0\n"));
}

TEST_F(Tile, TheAttributeStackRemembersViewportAndRasterPosition)
{
    LocalContextInfo& context = makeTileCurrent({0, 0, 800, 600}, 400, 300, 2);
    EXPECT_EQ(context.attrStack->bits, 0U);
    EXPECT_EQ(context.attrStack->rp[3], 1);
    recorder.values[GL_MATRIX_MODE] = {0x1702};
    const std::vector<double> identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    recorder.values[GL_MODELVIEW_MATRIX] = recorder.values[GL_PROJECTION_MATRIX] = identity;
    const auto top = [&context] {
        return std::to_string(context.attrStack->vp[2]) + " " +
               std::to_string(static_cast<int>(context.attrStack->rp[0]));
    };
    run("glViewport i:0 i:0 i:400 i:300 i:400 i:300 glRasterPos2f f:1 f:0");
    // Nested, each with its own mask: viewport inside current inside neither.
    EXPECT_EQ(run("glPushAttrib i:0x4000"), performed("glPushAttrib 0x4000\n"));
    EXPECT_EQ(top(), "400 1");
    run("glViewport i:0 i:0 i:200 i:300 i:400 i:300 glRasterPos2f f:2 f:0 glPushAttrib i:1");
    run("glViewport i:0 i:0 i:100 i:300 i:400 i:300 glRasterPos2f f:3 f:0 glPushAttrib i:0x801");
    run("glViewport i:0 i:0 i:50 i:300 i:400 i:300 glRasterPos2f f:4 f:0");
    EXPECT_EQ(top(), "50 4");
    // The outer viewport is set again before the system's own pop, which comes last.
    EXPECT_EQ(run("glPopAttrib"), performed(viewportCalls("0 0 200 600", "1 1", "-0 -0") +
                                            "glGetDoublev 0xba6 ptr\nglPopAttrib\n"));
    EXPECT_EQ(top(), "100 3");
    EXPECT_EQ(run("glPopAttrib"), performed("glGetDoublev 0xba6 ptr\nglPopAttrib\n"));
    EXPECT_EQ(top(), "100 2") << "the viewport set inside stays, the raster position does not";
    EXPECT_EQ(context.tileRP[0], 150) << "2 on a viewport 100 wide";
    EXPECT_EQ(run("glPopAttrib"), performed("glPopAttrib\n"));
    EXPECT_EQ(top(), "100 2");
    // One pop too many is the system library's affair alone, and so is a push that it refuses.
    EXPECT_EQ(run("glPopAttrib"), performed("glPopAttrib\n"));
    EXPECT_EQ(top(), "100 2");
    recorder.values[GL_MAX_ATTRIB_STACK_DEPTH] = recorder.values[GL_ATTRIB_STACK_DEPTH] = {16};
    for (int i = 0; i < 40; ++i)
        run("glPushAttrib i:0");
    int elements = 0;
    for (const _vp* element = context.attrStack; element; element = element->next)
        ++elements;
    EXPECT_EQ(elements, 17);
}

TEST_F(Tile, MatrixOperationsActBelowTheTileLevel)
{
    makeTileCurrent({0, 0, 400, 600}, 400, 300, 2);
    const char* operations[] = {"glLoadIdentity",
                                "glPushMatrix",
                                "glPopMatrix",
                                "glLoadMatrixd z:128",
                                "glLoadMatrixf z:64",
                                "glMultMatrixd z:128",
                                "glMultMatrixf z:64",
                                "glRotated d:1 d:2 d:3 d:4",
                                "glRotatef f:1 f:2 f:3 f:4",
                                "glScaled d:1 d:2 d:3",
                                "glScalef f:1 f:2 f:3",
                                "glTranslated d:1 d:2 d:3",
                                "glTranslatef f:1 f:2 f:3",
                                "glOrtho d:1 d:2 d:3 d:4 d:5 d:6",
                                "glFrustum d:1 d:2 d:3 d:4 d:5 d:6"};
    const auto check = [&](const std::string& before, const std::string& after) {
        for (const std::string wire : operations)
            EXPECT_EQ(run(wire), performed(before + callOf(wire) + "\n" + after));
    };
    check("", ""); // a new context counts as not in projection mode
    EXPECT_EQ(run("glMatrixMode i:0x1701"), performed("glMatrixMode 0x1701\n"));
    check("glPopMatrix\n", tileLevel("2 1", "0.5 -0"));
    EXPECT_EQ(run("glMatrixMode i:0x1700"), performed("glMatrixMode 0x1700\n"));
    check("", "");
    // The application's projection is read back at each rebuild.
    recorder.values[GL_PROJECTION_MATRIX] = {10, 11};
    recorder.shownElements = 2;
    EXPECT_TRUE(
        run("glMatrixMode i:0x1701 glLoadIdentity").calls.ends_with("glMultMatrixd [10 11]\n"));
}

} // namespace
