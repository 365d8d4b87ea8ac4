// mosa-wall: its parts on texts, and the program itself on virtual displays.
#include <gtest/gtest.h> // before X and its macros

#include "client/programWindow.h"
#include "client/streamFile.h"
#include "tests/jobSupport.h"
#include "tools/image.h"
#include "tools/mpiJob.h"
#include "tools/virtualDisplays.h"
#include "tools/wallCheck.h"
#include "tools/wallDrawing.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include <sys/prctl.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace {

Ending tool(std::vector<std::string> arguments, std::vector<std::string> environment = {})
{
    arguments.insert(arguments.begin(), built("mosa-wall"));
    return runProcess({.argv = arguments, .environment = environment, .output = Output::capture},
                      jobTime);
}

// A place for files, removed with all that is in it.
struct Folder {
    fs::path path = temporaryFile("");
    Folder()
    {
        fs::remove(path);
        fs::create_directory(path);
    }
    ~Folder() { fs::remove_all(path); }
};

void expectEnd(const Ending& ending, int status, const std::string& said)
{
    EXPECT_EQ(ending.status, status) << ending.err;
    EXPECT_PRED_FORMAT2(testing::IsSubstring, said, ending.out + ending.err);
}

// A pixel as red, green and blue in one number.
int colorAt(const Image& image, int x, int y)
{
    const std::uint8_t* rgb = pixelAt(image, x, y);
    return rgb[0] << 16 | rgb[1] << 8 | rgb[2];
}

TEST(WallTool, LayoutsPassTheCheckAndCountFromTheUpperLeft)
{
    const std::string hosts = temporaryFile("# nodes\nleft:2\n\nright # one screen\nlast:5\n");
    const struct {
        std::vector<std::string> arguments;
        std::vector<std::string> entries; // some of the lines
    } cases[] = {
        {{"layout", "4x2", "1920x1080", "--bezel", "40x30"},
         {":0.0 7800 2190 0 1110 1920 1080", ":0.7 7800 2190 5880 0 1920 1080"}},
        {{"layout", "2x3", "100x90", "--bezel", "0x10", "--hosts", hosts},
         {"on left\n:0.1 200 290 100 200 100 90", "on right\n:0.0 200 290 0 100 100 90",
          "on last\n:0.2 200 290 100 0 100 90"}},
    };
    for (const auto& c : cases) {
        const Ending ending = tool(c.arguments);
        for (const std::string& entry : c.entries)
            EXPECT_PRED_FORMAT2(testing::IsSubstring, entry + "\n", ending.out);
        const auto nodes = c.arguments.back() == hosts ? readHosts(hosts) : std::vector<Host>{};
        const Wall wall = readWall(temporaryFile(ending.out));
        const auto findings =
            checkWall(wall, placeServers(nodes, static_cast<int>(wall.tiles.size())));
        EXPECT_TRUE(std::ranges::none_of(findings, &Finding::fault)) << ending.out;
    }
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"layout", "0x1", "9x9"},
          {"layout", "2x1", "9x9px"},
          {"layout", "9x1", "9x9", "--hosts", hosts}}) // places for 8
        EXPECT_NE(tool(wrong).status, 0);
}

// Each mistake is planted in a correct wall of 2 x 2 tiles, and is the only thing to be reported.
TEST(WallTool, CheckFindsEachMistakeOnItsLine)
{
    const std::string correct[] = {"# comment",
                                   "node:0.0 600 400 0 200 300 200",
                                   "",
                                   "node:0.1 600 400 300 200 300 200",
                                   "\t :7 600 400 0 0 300 200",
                                   ":8\t600 400 300 0 300 200 "};
    const struct {
        int changed; // line, from 1
        const char* to;
        const char* findings; // a regular expression for the lines "LINE: TEXT" of them all
    } cases[] = {
        {1, "# the same", ""},
        {4, "node 600 400 300 200 300 200", "4: .*no X display name.*"},
        {5, ":x 600 400 0 0 300 200", "5: \":x\" is no X display name.*"},
        {5, ":7. 600 400 0 0 300 200", "5: .* is no X display name.*"},
        {5, "a:b:7 600 400 0 0 300 200", "5: .* is no X display name.*"},
        {5, "a b:7 600 400 0 0 300 200", "5: .* is no X display name.*"},
        {4, "node:0.0 600 400 300 200 300 200", "4: the same screen as line 2"},
        {6, ":7.0 600 400 300 0 300 200", "6: the same screen as line 5"},
        {6, ":8 600 400 300 0", "6: .*only 4 of the 6 numbers.*"},
        {6, ":8 600.5 400 300 0 300 200", "6: .*only 1 of the 6 numbers.*"},
        {6, ":8 600 400 300 0 300 200x", "6: .*does not read what follows the numbers: \"x\""},
        {6, ":8 600 400 300 0 300 -200", "6: .*holds no pixel.*"},
        {6, ":8 600 400 300 0 nan 200", "6: .*no number of pixels.*"},
        {4, "node:0.1 600 500 300 200 300 200", "4: the wall is 600x500 here and 600x400.*"},
        {5, ":7 0 400 0 0 300 200", "5: the wall has no size.*"},
        {5, ":7 600 400 0 0 310 200", "6: .*that of line 5: 10x200 pixels at \\(300, 0\\).*"},
        {6, ":8 600 400 310 0 300 200", "6: .*beyond the wall's edge.*\n0: .* 10x200 pixels at .*"},
        {6, ":8 600 400 300 -200 300 200", "6: .*wholly outside.*\n0: .* 300x200 pixels at .*"},
        {6, "# gone", "0: no server shows 300x200 pixels at \\(300, 0\\).*"},
        {4, "node:0.1 600 400 300 200 299.9 200", "0: .* 1x200 pixels at \\(599, 200\\).*"},
    };
    for (const auto& [changed, to, expected] : cases) {
        std::string text;
        for (int line = 1; line <= 6; ++line)
            text += (line == changed ? to : correct[line - 1]) + "\n";
        std::string findings;
        for (const Finding& finding : checkWall(readWall(temporaryFile(text))))
            if (finding.fault)
                findings += std::to_string(finding.line) + ": " + finding.text + "\n";
        EXPECT_TRUE(std::regex_match(findings, std::regex(expected + std::string("\n?"))))
            << text << findings;
    }
}

TEST(WallTool, DrawingsHaveTheirOriginBelow)
{
    const std::string wall = temporaryFile(":1 720 80 0 0 360 80\n:2 720 80 360 40 360 40\n");
    EXPECT_EQ("\n" + drawAsText(readWall(wall)), R"(
+-----------------------------------+-----------------------------------+
|                                   |                 1                 |
|                 0                 +-----------------------------------+
|                                   |....................................
+-----------------------------------+....................................
)");
    const Folder folder;
    const std::string svg = folder.path / "wall.svg", png = folder.path / "wall.png";
    EXPECT_EQ(tool({"check", wall, "--picture", svg}).status, 1); // there is a gap
    const std::string text{std::istreambuf_iterator<char>(std::ifstream(svg).rdbuf()), {}};
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "<rect x=\"360\" y=\"0\" width=\"360\" height=\"40\"",
                        text);
    tool({"check", wall, "--picture", png});
    const Image image = readPng(png);
    ASSERT_EQ(image.width, 1000);
    const auto isTile = [&image](int x, int y) { return pixelAt(image, x, y)[0] > 150; };
    EXPECT_TRUE(isTile(100, 100) && isTile(900, 10) && !isTile(900, 100));
    EXPECT_EQ(tool({"check", wall, "--picture", folder.path / "wall.gif"}).status, 1);
    EXPECT_EQ(tool({"check", temporaryFile(":1 7 8 0 0 7 8\n")}).status, 0);
    for (const std::string& none : {temporaryFile("# nobody\n"), std::string("/nonexistent")})
        EXPECT_EQ(tool({"check", none}).status, 1);
}

TEST(WallTool, RunPrintsTheWholeLineAndNamesTheNodeThatFails)
{
    std::vector<VirtualDisplay> displays = startDisplays(1, 100, 100);
    const auto wall = [&displays](const std::string& entry, const std::string& more = "") {
        return temporaryFile(displays[0].name + entry + "\n" + more);
    };
    const std::string one = wall(" 100 100 0 0 100 100");
    const std::string two = wall(" 200 100 0 0 100 100", ":5999 200 100 100 0 100 100\n");
    const std::string hosts = temporaryFile("upper\nlower:3\n"), stream = EXAMPLES "/gears.mws";
    const auto environment = virtualWallEnvironment("replaced");

    expectEnd(tool({"run", "--wall", two, "--hosts", hosts, "--dry-run", "it's", "--hold", "2"},
                   {"SYSTEM_OPENGL_LIB=/opt/libGL.so", "MOSA_OVERLOAD_FILE=/opt/list"}),
              0,
              ":1,upper:1,lower:3 -genv MOSA_DISPLAY " + two +
                  " -genv SYSTEM_OPENGL_LIB /opt/libGL.so -genv UCX_RNDV_THRESH inf -genv "
                  "HWLOC_COMPONENTS -gl -n 1 " +
                  built("play") + " 'it'\\''s' --loop 1 --ahead 2 --wait : -n 2 " +
                  built("server") + "\n");

    const Ending locked =
        tool({"run", "--wall", two, "--hosts", hosts, "--plain", "--dry-run", stream}, {});
    for (const char* part : {"MOSA_FRAMELOCK_SECRET=", "/overload/plain.list -genv",
                             "-genv MOSA_SWAP_ON_RETRACE 1 -genv MOSA_FRAMELOCK upper:"})
        expectEnd(locked, 0, part);

    const Ending noDisplay = tool({"run", "--wall", two, stream}, environment);
    expectEnd(noDisplay, 1, "server 1 (line 2): the display :5999 cannot be opened");
    EXPECT_PRED_FORMAT2(testing::IsNotSubstring, "server 0", noDisplay.err);
    const struct {
        std::vector<std::string> arguments, environment;
        std::string fault;
    } refused[] = {
        {{one, stream}, {"SYSTEM_OPENGL_LIB=/nonexistent.so"}, "/nonexistent.so cannot be loaded"},
        {{one, stream}, {"SYSTEM_OPENGL_LIB=libX11.so.6"}, "libX11.so.6 is no OpenGL library"},
        {{wall(" 110 90 0 0 110 90"), stream}, {}, "the tile is 110x90, its screen 100x100"},
        {{wall(".7 9 9 0 0 9 9"), stream}, {}, displays[0].name + " has no screen 7"},
        {{wall(" 200 100 0 0 100 100"), stream}, {}, "no server shows 100x100 pixels at "},
        {{one, hosts}, {}, hosts + ": at byte 0"},
        {{one, stream, "--snapshot", "/nonexistent/wall.png"}, {}, "/nonexistent/wall.png"},
        {{one, stream, "--hosts", hosts}, {"HYDRA_LAUNCHER_EXEC=false"}, "on upper: its node"},
    };
    for (const auto& c : refused) {
        std::vector<std::string> arguments{"run", "--wall"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const auto start = std::chrono::steady_clock::now();
        expectEnd(tool(arguments, c.environment), 1, c.fault);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50)) << c.fault;
    }
    // The server's own rules stay, those of mpiexec's words on the job's end do not.
    const std::string noVisual = temporaryFile(""), rule(37, '=');
    CommandBuffer opening;
    encodeOpening(opening, {AppDisplay(1U), AppVisual(2U), AppDrawable(3U), AppContext(4U), 9, 9},
                  std::vector<int>{GLX_RGBA, GLX_STEREO, None});
    writeStreamFile(noVisual, {{opening, 1}});
    const Ending aborted = tool({"run", "--wall", one, noVisual}, environment);
    expectEnd(aborted, 1,
              rule + "\n     Visual Attributes Requested     \n" + rule +
                  "\n\nGLX_RGBA\nGLX_STEREO\n\n" + rule + "\nMOSA: Goodbye.\n" +
                  "mosa-wall: the job failed: process ");
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "; the messages above may say why\n", aborted.err);
    EXPECT_PRED_FORMAT2(testing::IsNotSubstring, "TERMINATION", aborted.out + aborted.err);
    Process run = startProcess(
        {.argv = {built("mosa-wall"), "run", "--wall", one, "--loop", "1000000", stream},
         .environment = environment,
         .output = Output::capture});
    waitForText(run, "using display");
    kill(run.pid, SIGINT);
    expectEnd(finishProcess(run, jobTime), 130, "mosa-wall: interrupted\n");
    stopDisplays(displays);
}

TEST(WallTool, SnapshotPutsEachScreenAtItsRectangle)
{
    std::vector<VirtualDisplay> displays = startDisplays(3, 64, 48);
    // A part of a screen at fractions of pixels, a whole screen, one partly outside; the rest grey.
    const char* const rectangles[] = {"10.7 50.2 20.5 20.9", "0 0 0 0", "90 70 20 20"};
    constexpr int colors[] = {0xff0000, 0x00ff00, 0x0000ff, 0x404040};
    std::string text;
    for (std::size_t i = 0; i < 3; ++i) {
        text += displays[i].name + " 100 80 " + rectangles[i] + "\n";
        Display* dpy = XOpenDisplay(displays[i].name.c_str());
        ASSERT_TRUE(dpy);
        XSetWindowBackground(dpy, DefaultRootWindow(dpy), static_cast<unsigned long>(colors[i]));
        XClearWindow(dpy, DefaultRootWindow(dpy));
        XSync(dpy, False);
        XCloseDisplay(dpy);
    }
    const std::string file = temporaryFile("");
    ASSERT_EQ(tool({"snapshot", temporaryFile(text), "-o", file}).status, 0);
    const Image picture = readPng(file);
    ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(100, 80));
    int wrong = 0;
    for (int y = 0; y < 80; ++y) // upward
        for (int x = 0; x < 100; ++x) {
            const int shown = x >= 10 && x < 31 && y >= 50 && y < 71 ? 0
                              : x < 64 && y < 48                     ? 1
                              : x >= 90 && y >= 70                   ? 2
                                                                     : 3;
            wrong += colorAt(picture, x, 79 - y) != colors[shown];
        }
    EXPECT_EQ(wrong, 0);
    stopDisplays(displays);
}

TEST(WallTool, DemoPicturesTheLastFrameAsOneDisplayShowsIt)
{
    const std::string picture = temporaryFile("");
    // Beyond the gap the picture goes on as if nothing were missing.
    const Ending ending =
        tool({"demo", EXAMPLES "/gears.mws", "--tile", "140x140", "--gap", "20", "-o", picture});
    ASSERT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(ending.out, picture + "\n");
    Image expected = readPng(EXAMPLES "/reference/gears.png");
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 300; ++x)
            if ((x >= 140 && x < 160) || (y >= 140 && y < 160))
                std::fill_n(pixelAt(expected, x, y), 3, std::uint8_t{64});
    EXPECT_LT(compareImages(readPng(picture), expected, 8).pixels, 300 * 300 / 500);

    const std::string damaged = temporaryFile("no stream");
    const Ending failed = tool({"demo", damaged, "--wall", "1x1", "-o", picture});
    expectEnd(failed, 1, damaged + ": at byte 0");
    EXPECT_FALSE(fs::exists(picture)) << "an earlier run's";
}

TEST(WallTool, PatternOutlinesEachTileInItsOwnColour)
{
    // Two by two tiles of unequal size with bezels.
    std::vector<VirtualDisplay> displays = startDisplays(4, 330, 250);
    constexpr PixelArea areas[] = {
        {0, 250, 310, 230}, {330, 250, 310, 230}, {0, 0, 310, 240}, {330, 0, 310, 240}};
    std::ostringstream text;
    for (std::size_t i = 0; const auto& [x, y, w, h] : areas)
        text << displays[i++].name << " 640 480 " << x << ' ' << y << ' ' << w << ' ' << h << '\n';
    const std::string wall = temporaryFile(text.str());
    const std::string stream = temporaryFile(""), picture = temporaryFile("");
    ASSERT_EQ(tool({"pattern", "--wall", wall, "--frames", "7", "-o", stream}).status, 0);
    // The command finds the picture. What play says to mosa-wall is not passed on.
    const auto environment = virtualWallEnvironment("replaced");
    const Ending played = tool({"run", "--wall", wall, stream, "--snapshot", picture, "--then",
                                "test -s " + picture + " && echo taken"},
                               environment);
    expectEnd(played, 0, "after the first\ntaken\n");
    EXPECT_PRED_FORMAT2(testing::IsNotSubstring, "shown", played.out);
    const Image image = readPng(picture);
    std::set<int> colors;
    for (const auto& [x, y, w, h] : areas) {
        std::set<int> corners;
        for (const int column : {x, x + w - 1})
            for (const int row : {y, y + h - 1})
                corners.insert(colorAt(image, column, 479 - row));
        EXPECT_EQ(corners.size(), 1U);
        colors.merge(corners);
    }
    EXPECT_EQ(colors.size(), 4U);

    expectEnd(tool({"pattern", "--wall", wall, "--frames", "7", "--then", "false"}, environment), 1,
              "7 frames");
    stopDisplays(displays);
}

TEST(WallTool, NothingOutlivesADemoThatIsStopped)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const Folder folder;
        Process demo = startProcess({.argv = {built("mosa-wall"), "demo", EXAMPLES "/polytopes.mws",
                                              "--loop", "1000000", "-o", folder.path / "wall.png"},
                                     .environment = {"TMPDIR=" + folder.path.string()},
                                     .output = Output::capture});
        waitForText(demo, "on a wall of");
        ASSERT_FALSE(fs::is_empty(folder.path));
        const Wall wall = readWall(fs::directory_iterator(folder.path)->path());
        EXPECT_EQ(wall.tiles.size(), 4U);
        EXPECT_EQ(toText(wallSize(wall)), "800x600") << "each tile is the program's window";
        kill(demo.pid, signal); // it alone, not its group
        EXPECT_TRUE(waitForEnd(demo, jobTime));
        EXPECT_EQ(finishProcess(demo, jobTime).status, 128 + signal);
        while (waitpid(-1, nullptr, 0) > 0) { // every adopted grandchild
        }
        for (const WallTile& tile : wall.tiles) {
            const std::string number = tile.entry.dpyName.substr(1);
            EXPECT_FALSE(fs::exists("/tmp/.X11-unix/X" + number)) << signal;
            EXPECT_FALSE(fs::exists("/tmp/.X" + number + "-lock")) << signal;
        }
        EXPECT_TRUE(fs::is_empty(folder.path));
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST(Process, ProgramsAreBoundedCapturedAndStoppedWithTheirGroup)
{
    const auto shell = [](const std::string& script) {
        return Command{.argv = {"sh", "-c", script},
                       .environment = {"HOME=changed", "MOSA_ADDED=new one"},
                       .output = Output::capture};
    };
    const Ending ended = runProcess(shell("echo $HOME $MOSA_ADDED; echo no >&2; exit 3"), jobTime);
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.out + ended.err, "changed new one\nno\n");

    // More than a pipe holds, with nobody reading; a group whose members ignore SIGTERM.
    EXPECT_EQ(runProcess(shell("head -c 3000000 /dev/zero"), jobTime).out.size(), 3000000U);
    Process deaf = startProcess(shell("trap '' TERM; echo up >&2; (sleep 100; echo late) & wait"));
    waitForText(deaf, "up");
    EXPECT_EQ(stopProcess(deaf, std::chrono::milliseconds(100)).status, 128 + SIGKILL);
    const Ending slow = runProcess(shell("sleep 100"), std::chrono::milliseconds(50));
    EXPECT_TRUE(slow.timedOut);
    EXPECT_EQ(slow.status, 128 + SIGTERM);

    const std::string text = temporaryFile("no program");
    fs::permissions(text, fs::perms::owner_all);
    for (const std::string& program : {text, std::string("no-such-program")})
        EXPECT_THROW(startProcess({.argv = {program}, .environment = {}}), std::runtime_error);
}

} // namespace
