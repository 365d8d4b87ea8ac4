// Raster positions, pixel images and bitmaps, as sequences of calls to the system library.
#include "support/serverState.h"

#include <cmath>

namespace {

const std::vector<double> identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

using RasterImages = StartedBy<startServer>;

// A tile of an application's window of 800 x 600.
LocalContextInfo& tile(MWRect rect, float scale)
{
    recorder.values[GL_MODELVIEW_MATRIX] = recorder.values[GL_PROJECTION_MATRIX] = identity;
    recorder.values[GL_MATRIX_MODE] = {0x1702};
    recorder.values[GL_VIEWPORT] = {1, 2, 3, 4};
    recorder.values[GL_ZOOM_X] = recorder.values[GL_ZOOM_Y] = {1};
    recorder.values[GL_UNPACK_ROW_LENGTH] = {64};
    recorder.values[GL_UNPACK_SKIP_ROWS] = {6};
    recorder.values[GL_UNPACK_SKIP_PIXELS] = {5};
    recorder.values[GL_UNPACK_ALIGNMENT] = {4};
    return makeTileCurrent(rect, 800, 600, scale);
}

// Selecting the local window's own pixels, and the way back.
std::string localPixels(const std::string& w, const std::string& h)
{
    return "glGetIntegerv 0xba2 ptr\nglGetIntegerv 0xba0 ptr\nglViewport 0 0 " + w + " " + h +
           "\nglMatrixMode 0x1700\nglPushMatrix\nglLoadIdentity\n"
           "glMatrixMode 0x1701\nglPushMatrix\nglLoadIdentity\nglOrtho 0 " +
           w + " 0 " + h + " -1 1\n";
}
constexpr char applicationPixels[] = "glViewport 1 2 3 4\nglPopMatrix\nglMatrixMode 0x1700\n"
                                     "glPopMatrix\nglMatrixMode 0x1702\n";

const std::string readZoom = "glGetFloatv 0xd16 ptr\nglGetFloatv 0xd17 ptr\n";

std::vector<double> positionOf(const LocalContextInfo& context)
{
    return {context.tileRP, context.tileRP + 4};
}

TEST_F(RasterImages, RasterPositionsAreComputedInApplicationPixels)
{
    // On any tile, at any scale.
    LocalContextInfo& context = tile({800, 0, 800, 1200}, 2);
    const struct {
        const char *type, *coordinates; // also of the vector form
        double x, y, z;
    } cases[] = {
        {"2f", "f:0 f:0", 400, 300, 0},
        {"2f", "f:-1 f:-1", 0, 0, 0},
        {"2f", "f:0.9999 f:0", 799, 300, 0},    // truncated, not rounded
        {"4f", "f:2 f:2 f:0 f:2", 800, 600, 0}, // divided by w
        {"2f", "f:3 f:-3", 1600, -600, 0},      // outside the view volume
        {"2d", "d:0.5 d:0", 600, 300, 0},
        {"2i", "i:1 i:0", 800, 300, 0},
        {"2s", "s:-1 s:1", 0, 600, 0},
        {"3d", "d:0 d:0 d:-0.5", 400, 300, -0.5},
        {"3f", "f:0 f:0 f:0.25", 400, 300, 0.25},
        {"3i", "i:0 i:0 i:1", 400, 300, 1},
        {"3s", "s:0 s:0 s:-1", 400, 300, -1},
        {"4d", "d:1 d:1 d:1 d:4", 500, 375, 0.25},
        {"4f", "f:1 f:1 f:1 f:4", 500, 375, 0.25},
        {"4i", "i:1 i:1 i:1 i:2", 600, 450, 0.5},
        {"4s", "s:1 s:-1 s:1 s:2", 600, 150, 0.5},
    };
    for (const auto& c : cases)
        for (const char* form : {" ", "v "}) {
            context.tileRP[0] = 7;
            const std::string wire = std::string("glRasterPos") + c.type + form + c.coordinates;
            EXPECT_EQ(run(wire), performed("glGetDoublev 0xba6 ptr\n")) << wire;
            EXPECT_EQ(positionOf(context), (std::vector<double>{c.x, c.y, c.z, 1})) << wire;
        }
    run("glRasterPos4f f:5 f:5 f:5 f:0"); // nowhere: the position before holds
    EXPECT_EQ(positionOf(context), (std::vector<double>{600, 150, 0.5, 1}));
    EXPECT_EQ(context.attrStack->rp[0], 5) << "as the application passed it";
}

TEST_F(RasterImages, RasterPositionsGoThroughTheApplicationsOwnMatrices)
{
    LocalContextInfo& context = tile({0, 0, 800, 600}, 1);
    // Column-major: the model-view moves by (1, 2, 3), the projection scales by (0.1, 0.2, 1) and
    // puts the negative eye z into w.
    recorder.values[GL_MODELVIEW_MATRIX] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1};
    recorder.values[GL_PROJECTION_MATRIX] = {0.1, 0, 0, 0, 0, 0.2, 0, 0, 0, 0, 1, -1, 0, 0, 0, 0};
    run("glMatrixMode i:0x1701 glLoadIdentity glMatrixMode i:0x1700 glViewport i:100 i:50 i:400 "
        "i:300 i:800 i:600");
    run("glRasterPos3f f:4 f:-1 f:-5"); // eye (5, 1, -2), clip (0.5, 0.2, -2, 2)
    EXPECT_EQ(positionOf(context), (std::vector<double>{350, 215, -1, 1}));
    startServer();
    tile({0, 0, 800, 600}, 3.5F);
    EXPECT_EQ(run("glPointSize f:2"), performed("glPointSize 7\n"));
}

TEST_F(RasterImages, PixelsAreCutAtTheLeftEdgeOfADisplay)
{
    LocalContextInfo& context = tile({150, 0, 1000, 1000}, 2);
    recorder.values[GL_UNPACK_ROW_LENGTH] = recorder.values[GL_UNPACK_SKIP_PIXELS] = {0};
    // 100 x 50 pixels at (0, 0): 75 of the columns lie on the display to the left.
    EXPECT_EQ(run("glDrawPixels i:100 i:50 i:0x1907 i:0x1401 i:3 010203").calls,
              readZoom +
                  "glGetIntegerv 0xcf2 ptr\nglGetIntegerv 0xcf4 ptr\n"
                  "glPixelStorei 0xcf4 75\nglPixelStorei 0xcf2 100\nglPixelZoom 2 2\n" +
                  localPixels("1000", "1000") +
                  "glRasterPos4d 0 0 1 1\nglBitmap 0 0 0 1 0 0 null\n"
                  "glDrawPixels 25 50 0x1907 0x1401 ptr\n" +
                  applicationPixels +
                  "glPixelStorei 0xcf4 0\nglPixelStorei 0xcf2 0\nglPixelZoom 1 1\n");
    EXPECT_EQ(positionOf(context), (std::vector<double>{0, 0, 0, 0})) << "moved by pixels";
}

TEST_F(RasterImages, PixelsKeepTheApplicationsSkipsAndZoom)
{
    LocalContextInfo& context = tile({100, 40, 300, 300}, 2);
    recorder.values[GL_ZOOM_X] = {1.5};
    recorder.values[GL_ZOOM_Y] = {0.5};
    context.tileRP[0] = 20; // on the wall (40, 10), 3 by 1 wall pixels each
    context.tileRP[1] = 5;
    EXPECT_EQ(run("glDrawPixels i:60 i:50 i:1 i:2 i:1 00").calls,
              readZoom +
                  "glGetIntegerv 0xcf2 ptr\nglGetIntegerv 0xcf4 ptr\nglPixelStorei 0xcf4 25\n"
                  "glGetIntegerv 0xcf3 ptr\nglPixelStorei 0xcf3 36\nglPixelZoom 3 1\n" +
                  localPixels("300", "300") +
                  "glRasterPos4d 0 0 1 1\nglBitmap 0 0 0 1 0 0 null\nglDrawPixels 40 20 1 2 ptr\n" +
                  applicationPixels +
                  "glPixelStorei 0xcf4 5\nglPixelStorei 0xcf2 64\nglPixelStorei 0xcf3 6\n"
                  "glPixelZoom 1.5 0.5\n");
    // Inside, with a negative zoom: moved from the corner, nothing cut.
    recorder.values[GL_ZOOM_X] = {-1};
    recorder.values[GL_ZOOM_Y] = {1};
    context.tileRP[0] = 100;
    context.tileRP[1] = 50;
    EXPECT_EQ(run("glDrawPixels i:60 i:50 i:1 i:2 i:1 00").calls,
              readZoom + "glPixelZoom -2 2\n" + localPixels("300", "300") +
                  "glRasterPos4d 0 0 1 1\nglBitmap 0 0 0 1 100 60 null\n"
                  "glDrawPixels 60 50 1 2 ptr\n" +
                  applicationPixels + "glPixelZoom -1 1\n");
}

TEST_F(RasterImages, PixelsThatMissTheDisplayAreDropped)
{
    const std::string image = "glDrawPixels i:100 i:50 i:1 i:2 i:1 00";
    tile({}, 2);
    for (const MWRect& rect :
         {MWRect{300, 0, 1000, 1000}, {0, 101, 1000, 1000}, {-99, -99, 98, 98}}) {
        currLocalDisplay->rect = rect;
        EXPECT_EQ(run(image), performed(readZoom));
    }
    // One that touches the edge is not.
    currLocalDisplay->rect = {200, 0, 1000, 1000};
    EXPECT_NE(run(image).calls.find("glDrawPixels 0 50 1 2 ptr\n"), std::string::npos);
    for (const char* empty :
         {"glDrawPixels i:0 i:5 i:1 i:2 i:1 00", "glDrawPixels i:5 i:0 i:1 i:2 i:1 00",
          "glDrawPixels i:-5 i:5 i:1 i:2 i:1 00", "glDrawPixels i:5 i:5 i:1 i:2 i:0"})
        EXPECT_EQ(run(empty), performed("")) << empty;
}

// ---- Bitmaps -----------------------------------------------------------------------------------

const std::string readUnpack = "glPixelStorei 0xcf1 0\nglGetIntegerv 0xcf2 ptr\n"
                               "glGetIntegerv 0xcf3 ptr\nglGetIntegerv 0xcf4 ptr\n"
                               "glGetIntegerv 0xcf5 ptr\nglPixelStorei 0xcf2 0\n"
                               "glPixelStorei 0xcf3 0\nglPixelStorei 0xcf4 0\n"
                               "glPixelStorei 0xcf5 1\n";
constexpr char restoredUnpack[] = "glPixelStorei 0xcf2 64\nglPixelStorei 0xcf3 6\n"
                                  "glPixelStorei 0xcf4 5\nglPixelStorei 0xcf5 4\n";

// The bits of the bitmap that a record draws.
std::vector<int> drawnBits(const std::string& wire, int bytes)
{
    static std::vector<int> kept;
    static int wanted;
    kept.clear();
    wanted = bytes;
    pTbl[indexOf(Op::glBitmap)] = reinterpret_cast<glOp>(
        +[](GLsizei, GLsizei, GLfloat, GLfloat, GLfloat, GLfloat, const GLubyte* bits) {
            if (bits)
                kept.assign(bits, bits + wanted);
        });
    run(wire);
    return kept;
}

TEST_F(RasterImages, AnEmptyBitmapMovesTheRasterPositionOnly)
{
    LocalContextInfo& context = tile({0, 0, 800, 600}, 1);
    const auto moves = [&context](const char* wire, double x, double y) {
        EXPECT_EQ(run(wire), performed(readUnpack + restoredUnpack));
        EXPECT_EQ(std::pair(context.tileRP[0], context.tileRP[1]), std::pair(x, y));
    };
    moves("glBitmap i:0 i:0 f:0 f:0 f:10 f:0 i:0", 10, 0);
    moves("glBitmap i:8 i:0 f:0 f:0 f:0.5 f:-2 i:1 ff", 10.5, -2);
    context.tileRP[0] = 900; // beyond the display
    moves("glBitmap i:8 i:1 f:0 f:0 f:1 f:0 i:1 ff", 901, -2);
}

TEST_F(RasterImages, BitmapsAreDrawnAtTheScaledPositionAndAdvanceUnscaled)
{
    LocalContextInfo& context = tile({100, 50, 600, 400}, 2);
    context.tileRP[0] = 200;
    context.tileRP[1] = 100;
    const auto drawn = [](const char* x) {
        return readUnpack + localPixels("600", "400") + "glRasterPos2f " + x +
               " 150\nglBitmap 16 2 2 4 0 0 ptr\n" + restoredUnpack + applicationPixels;
    };
    const std::string glyph = "glBitmap i:8 i:1 f:1 f:2 f:9 f:0 i:1 ff";
    EXPECT_EQ(run(glyph), performed(drawn("300")));
    EXPECT_EQ(run(glyph), performed(drawn("318")));
    EXPECT_EQ(context.tileRP[0], 218);
}

// Where the position lies outside the window no raster position is valid: one is moved there.
TEST_F(RasterImages, BitmapsThatBeginOutsideTheWindowAreMovedThere)
{
    LocalContextInfo& context = tile({100, 50, 600, 400}, 1);
    const auto drawn = [](const std::string& place) {
        return performed(readUnpack + localPixels("600", "400") + place +
                         "glBitmap 200 1 0 0 0 0 ptr\n" + restoredUnpack + applicationPixels);
    };
    const std::string wide = "glBitmap i:200 i:1 f:0 f:0 f:0 f:0 i:25 z:25";
    for (const auto& [x, y, move] : {std::tuple{0.0, 60.0, "-100 10"}, {110.0, 49.0, "10 -1"}}) {
        context.tileRP[0] = x;
        context.tileRP[1] = y;
        EXPECT_EQ(run(wide),
                  drawn(std::string("glRasterPos2f 0 0\nglBitmap 0 0 0 0 ") + move + " null\n"));
    }
}

TEST_F(RasterImages, BitmapsAreResampledToTheNearestSourcePixel)
{
    tile({0, 0, 2000, 2000}, 2);
    // Two rows of three pixels: x.x and .x. become rows of six, each twice.
    EXPECT_EQ(drawnBits("glBitmap i:3 i:2 f:0 f:0 f:0 f:0 i:2 a0 40", 4),
              (std::vector<int>{0xcc, 0xcc, 0x30, 0x30}));
    // Eight columns on twelve: the sources are 0 0 1 2 2 3 4 4 5 6 6 7.
    currDrawableInfo->psx = 1.5F;
    currDrawableInfo->psy = 1;
    EXPECT_EQ(drawnBits("glBitmap i:8 i:1 f:0 f:0 f:0 f:0 i:1 b1", 2),
              (std::vector<int>{0b11011100, 0b00010000}));
    // Smaller than the source, and rows of more than a byte.
    currDrawableInfo->psx = 0.5F;
    EXPECT_EQ(drawnBits("glBitmap i:20 i:1 f:0 f:0 f:0 f:0 i:3 88 08 80", 2),
              (std::vector<int>{0b10100010, 0b10000000}));
}

// Scales at which the accumulated steps pass the last source pixel by rounding.
TEST_F(RasterImages, BitmapsNeverReadBeyondTheSource)
{
    tile({0, 0, 4000, 4000}, 1);
    for (int i = 1; i < 400; ++i) {
        currDrawableInfo->psx = 1 + static_cast<float>(i) * 0.00931F;
        currDrawableInfo->psy = 1 + static_cast<float>(i) * 0.01177F;
        const int last = static_cast<int>(7 * currDrawableInfo->psx) - 1;
        const std::vector<int> row =
            drawnBits("glBitmap i:7 i:7 f:0 f:0 f:0 f:0 i:7 fefefefefefefe", last / 8 + 1);
        EXPECT_TRUE(row.back() & (0x80 >> last % 8)) << last << " lies within the source";
    }
    // So many columns that the steps through the source, rounded up, come to its end too early.
    currDrawableInfo->psx = 7100141;
    currDrawableInfo->psy = 1;
    const int last = 49700988 - 1;
    EXPECT_TRUE(drawnBits("glBitmap i:7 i:1 f:0 f:0 f:0 f:0 i:1 fe", last / 8 + 1).back() &
                (0x80 >> last % 8));
    // One as large as the wall is drawn, however large the wall is.
    tile({0, 0, 15360, 8640}, 1920);
    currLocalDisplay->vWidth = 15360;
    currLocalDisplay->vHeight = 8640;
    EXPECT_EQ(drawnBits("glBitmap i:8 i:4 f:0 f:0 f:0 f:0 i:4 80000000", 1), std::vector{255});
    // So wide that the columns do not fit an int: refused, but the unpack state is given back.
    tile({0, 0, 4000, 4000}, 1);
    currDrawableInfo->psx = 3e9F;
    currDrawableInfo->psy = 1e6F;
    EXPECT_EQ(
        run("glBitmap i:7 i:7 f:0 f:0 f:0 f:0 i:7 fefefefefefefe"),
        (Outcome{1, readUnpack + restoredUnpack,
                 "Attention MOSA: glBitmap: 2.1e+10 x 7e+06 pixels on the wall are too many\n"}));
}

} // namespace
