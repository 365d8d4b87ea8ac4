// mosa-wall: its parts on texts, and the program itself on virtual displays.
#include <gtest/gtest.h> // before X and its macros

#include "client/image.h"
#include "client/mpiJob.h"
#include "client/virtualDisplays.h"
#include "client/wallCheck.h"
#include "client/wallDrawing.h"
#include "tests/jobSupport.h"

#include <X11/Xlib.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

Ending tool(std::vector<std::string> arguments, std::vector<std::string> environment = {})
{
    arguments.insert(arguments.begin(), built("mosa-wall"));
    return runProcess({.argv = arguments, .environment = environment, .output = Output::capture},
                      jobTime);
}

Wall wallOf(const std::string& text) { return readWall(temporaryFile(text)); }

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

// A pixel as red, green and blue in one number.
int colorAt(const Image& image, int x, int y)
{
    const std::uint8_t* rgb = pixelAt(image, x, y);
    return rgb[0] << 16 | rgb[1] << 8 | rgb[2];
}

TEST(WallTool, LayoutsPassTheCheckAndCountFromTheUpperLeft)
{
    struct Case {
        std::vector<std::string> arguments;
        std::size_t bezels;
        std::vector<std::string> entries; // some of the lines
    };
    const std::string hosts = temporaryFile("# nodes\nleft:2\n\nright # one screen\nlast:5\n");
    const Case cases[] = {
        {{"1x1", "640x480"}, 0, {":0.0 640 480 0 0 640 480"}},
        {{"4x2", "1920x1080", "--bezel", "40x30"},
         4,
         {":0.0 7800 2190 0 1110 1920 1080", ":0.0 7800 2190 5880 0 1920 1080"}},
        {{"2x3", "100x90", "--bezel", "0x10", "--hosts", hosts},
         2,
         {"on left\n:0.1 200 290 100 200 100 90", "on right\n:0.0 200 290 0 100 100 90",
          "on last\n:0.2 200 290 100 0 100 90"}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments = c.arguments;
        arguments.insert(arguments.begin(), "layout");
        const Ending ending = tool(arguments);
        ASSERT_EQ(ending.status, 0) << ending.err;
        for (const std::string& entry : c.entries)
            EXPECT_NE(ending.out.find(entry + "\n"), std::string::npos) << entry << ending.out;
        std::size_t bezels = 0;
        for (const Finding& finding : checkWall(wallOf(ending.out))) {
            EXPECT_FALSE(finding.fault) << finding.text;
            bezels += finding.text.starts_with("a bezel");
        }
        EXPECT_EQ(bezels, c.bezels);
    }
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"layout", "0x1", "9x9"},
          {"layout", "2by1", "9x9"},
          {"layout", "2", "9x9"},
          {"layout", "2x1", "9x9px"},
          {"layout", "9x1", "9x9", "--hosts", hosts}}) // places for 8
        EXPECT_NE(tool(wrong).status, 0);
}

// Each mistake is planted in a correct wall of 2 x 2 tiles, and is the only thing to be reported.
TEST(WallTool, CheckFindsEachMistakeOnItsLine)
{
    const std::vector<std::string> correct = {"# comment",
                                              "node:0.0 600 400 0 200 300 200",
                                              "",
                                              "node:0.1 600 400 300 200 300 200",
                                              "\t :7 600 400 0 0 300 200",
                                              ":8\t600 400 300 0 300 200 "};
    struct Fault {
        int line;
        std::string words;
    };
    struct Case {
        std::size_t changed; // line, from 1
        std::string to;
        std::vector<Fault> faults;
    };
    const Case cases[] = {
        {1, "# the same", {}},
        {4, "node 600 400 300 200 300 200", {{4, "no X display name"}}},
        {5, ":x 600 400 0 0 300 200", {{5, "\":x\" is no X display name"}}},
        {5, ":7. 600 400 0 0 300 200", {{5, "is no X display name"}}},
        {5, "a:b:7 600 400 0 0 300 200", {{5, "is no X display name"}}},
        {5, "a b:7 600 400 0 0 300 200", {{5, "is no X display name"}}},
        {4, "node:0.0 600 400 300 200 300 200", {{4, "also that of line 2"}}},
        {6, ":8 600 400 300 0", {{6, "only 4 of the 6 numbers"}}},
        {6, ":8", {{6, "only 0 of the 6 numbers"}}},
        {6, ":8 600.5 400 300 0 300 200", {{6, "only 1 of the 6 numbers"}}},
        {6, ":8 600 400 300 0 300 200x", {{6, "does not read what follows the numbers:x"}}},
        {6, ":8 600 400 300 0 300 -200", {{6, "holds no pixel"}}},
        {6, ":8 600 400 300 0 nan 200", {{6, "no number of pixels"}}},
        {4, "node:0.1 600 500 300 200 300 200", {{4, "the wall is 600x500 here and 600x400"}}},
        {5, ":7 0 400 0 0 300 200", {{5, "the wall has no size"}}},
        {5, ":7 600 400 0 0 310 200", {{6, "overlaps that of line 5: 10x200 pixels at (300, 0)"}}},
        {6,
         ":8 600 400 310 0 300 200",
         {{6, "beyond the wall's edge"}, {0, "no server shows 10x200 pixels at (300, 0)"}}},
        {6,
         ":8 600 400 300 -200 300 200",
         {{6, "wholly outside"}, {0, "no server shows 300x200 pixels at (300, 0)"}}},
        {6, "# gone", {{0, "no server shows 300x200 pixels at (300, 0)"}}},
        {4,
         "node:0.1 600 400 300 200 299.9 200",
         {{0, "no server shows 1x200 pixels at (599, 200)"}}},
    };
    for (const Case& c : cases) {
        std::string text;
        for (std::size_t i = 1; i <= correct.size(); ++i)
            text += (i == c.changed ? c.to : correct[i - 1]) + "\n";
        const std::string file = temporaryFile(text);
        std::vector<Finding> faults;
        for (const Finding& finding : checkWall(readWall(file)))
            if (finding.fault)
                faults.push_back(finding);
        ASSERT_EQ(faults.size(), c.faults.size()) << text;
        for (std::size_t i = 0; i < faults.size(); ++i) {
            EXPECT_EQ(faults[i].line, c.faults[i].line) << text << faults[i].text;
            EXPECT_NE(faults[i].text.find(c.faults[i].words), std::string::npos)
                << text << faults[i].text;
        }
        EXPECT_EQ(tool({"check", file}).status, c.faults.empty() ? 0 : 1);
    }
    EXPECT_EQ(tool({"check", temporaryFile("# nobody\n")}).status, 1);
    EXPECT_EQ(tool({"check", "/nonexistent"}).status, 1);
}

TEST(WallTool, DrawingsHaveTheirOriginBelow)
{
    const Wall wall = wallOf(":1 720 80 0 0 360 80\n:2 720 80 360 40 360 40\n");
    const std::string side = std::string(35, '-');
    const std::string empty = std::string(35, ' ');
    EXPECT_EQ(drawAsText(wall), "+" + side + "+" + side + "+\n" +                     //
                                    "|" + empty + "|" + std::string(17, ' ') + "1" +  //
                                    std::string(17, ' ') + "|\n" +                    //
                                    "|" + std::string(17, ' ') + "0" +                //
                                    std::string(17, ' ') + "+" + side + "+\n" +       //
                                    "|" + empty + "|" + std::string(36, '.') + "\n" + //
                                    "+" + side + "+" + std::string(36, '.') + "\n");
    const Folder folder;
    const std::string png = folder.path / "wall.png";
    drawToFile(wall, png);
    const Image image = readPng(png);
    ASSERT_EQ(image.width, 1000);
    const auto isTile = [&image](int x, int y) { return pixelAt(image, x, y)[0] > 150; };
    EXPECT_TRUE(isTile(100, 100));
    EXPECT_TRUE(isTile(900, 10));
    EXPECT_FALSE(isTile(900, 100));

    const std::string svg = folder.path / "wall.svg";
    ASSERT_EQ(tool({"check", wall.file, "--picture", svg}).status, 1); // there is a gap
    const std::string text{std::istreambuf_iterator<char>(std::ifstream(svg).rdbuf()), {}};
    EXPECT_NE(text.find("<rect x=\"360\" y=\"0\" width=\"360\" height=\"40\""), std::string::npos);
    EXPECT_EQ(tool({"check", wall.file, "--picture", folder.path / "wall.gif"}).status, 1);
}

TEST(WallTool, RunPrintsTheWholeLineAndNamesTheNodeThatFails)
{
    std::vector<VirtualDisplay> displays = startDisplays(1, 100, 100);
    const std::string good = displays[0].name + " 200 100 0 0 100 100\n";
    const std::string wall = temporaryFile(good + ":5999 200 100 100 0 100 100\n");
    const std::string library = "SYSTEM_OPENGL_LIB=" + findSystemOpenGL();
    const std::string stream = EXAMPLES "/gears.mws";

    const std::string hosts = temporaryFile("upper\nlower:3\n");
    const Ending dry =
        tool({"run", "--wall", wall, "--hosts", hosts, "--dry-run", "it's", "--loop", "2"},
             {"SYSTEM_OPENGL_LIB=/opt/libGL.so"});
    char own[256] = "";
    gethostname(own, sizeof own - 1);
    const std::string expected =
        std::string(" -hosts ") + own + ":1,upper:1,lower:3 -genv MOSA_DISPLAY " + wall +
        " -genv SYSTEM_OPENGL_LIB /opt/libGL.so -genv HWLOC_COMPONENTS -gl"
        " -n 1 " +
        built("play") + " 'it'\\''s' --loop 2 : -n 2 " + built("server") + "\n";
    EXPECT_TRUE(dry.out.ends_with(expected)) << dry.out << expected;

    const Ending noDisplay = tool({"run", "--wall", wall, stream}, {library});
    EXPECT_EQ(noDisplay.status, 1);
    EXPECT_EQ(noDisplay.err.find("server 0"), std::string::npos) << noDisplay.err;
    EXPECT_NE(noDisplay.err.find("server 1 on " + std::string(own) +
                                 ": the display :5999 cannot be opened"),
              std::string::npos)
        << noDisplay.err;

    const std::string one = temporaryFile(good);
    const Ending noLibrary =
        tool({"run", "--wall", one, stream}, {"SYSTEM_OPENGL_LIB=/nonexistent.so"});
    EXPECT_EQ(noLibrary.status, 1);
    EXPECT_NE(noLibrary.err.find("/nonexistent.so cannot be loaded"), std::string::npos);

    const Ending played = tool({"run", "--wall", one, stream}, virtualWallEnvironment("replaced"));
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_NE(played.out.find("20 frames"), std::string::npos) << played.out;
    stopDisplays(displays);
}

// Gives a display's whole screen one colour.
void paint(const VirtualDisplay& display, unsigned long pixel)
{
    Display* dpy = XOpenDisplay(display.name.c_str());
    ASSERT_NE(dpy, nullptr);
    XSetWindowBackground(dpy, DefaultRootWindow(dpy), pixel);
    XClearWindow(dpy, DefaultRootWindow(dpy));
    XSync(dpy, False);
    XCloseDisplay(dpy);
}

TEST(WallTool, SnapshotPutsEachScreenAtItsRectangle)
{
    std::vector<VirtualDisplay> displays = startDisplays(3, 64, 48);
    paint(displays[0], 0xff0000);
    paint(displays[1], 0x00ff00);
    paint(displays[2], 0x0000ff);
    // A part of a screen at fractions of pixels, a whole screen, one partly outside; the rest grey.
    const std::string wall =
        temporaryFile(displays[0].name + " 100 80 10.7 50.2 20.5 20.9\n" + displays[1].name +
                      " 100 80 0 0 0 0\n" + displays[2].name + " 100 80 90 70 20 20\n");
    const Folder folder;
    const std::string file = folder.path / "wall.png";
    const Ending ending = tool({"snapshot", wall, "-o", file});
    ASSERT_EQ(ending.status, 0) << ending.err;
    const Image picture = readPng(file);
    ASSERT_EQ(picture.width, 100);
    ASSERT_EQ(picture.height, 80);
    const auto colorOfWall = [](int x, int y) { // y upward
        if (x >= 10 && x < 31 && y >= 50 && y < 71)
            return 0xff0000;
        if (x < 64 && y < 48)
            return 0x00ff00;
        return x >= 90 && y >= 70 ? 0x0000ff : 0x404040;
    };
    int wrong = 0;
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 100; ++x)
            wrong += colorAt(picture, x, 79 - y) != colorOfWall(x, y);
    EXPECT_EQ(wrong, 0);
    stopDisplays(displays);
}

TEST(WallTool, DemoPicturesTheLastFrameAsOneDisplayShowsIt)
{
    const Folder folder;
    const std::string picture = folder.path / "wall.png";
    const Ending ending = tool({"demo", EXAMPLES "/gears.mws", "--tile", "150x150", "-o", picture});
    ASSERT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(ending.out, picture + "\n");
    const Image wall = readPng(picture);
    const Difference difference = compareImages(wall, readPng(EXAMPLES "/reference/gears.png"), 8);
    EXPECT_LT(difference.pixels, 300 * 300 / 500);

    // Beyond the gap the picture goes on as if nothing were missing.
    ASSERT_EQ(
        tool({"demo", EXAMPLES "/gears.mws", "--tile", "140x140", "--gap", "20", "-o", picture})
            .status,
        0);
    Image seams = wall;
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 300; ++x)
            if ((x >= 140 && x < 160) || (y >= 140 && y < 160))
                std::fill_n(pixelAt(seams, x, y), 3, std::uint8_t{64});
    EXPECT_LT(compareImages(readPng(picture), seams, 8).pixels, 300 * 300 / 500);

    const std::string damaged = temporaryFile("no stream");
    const Ending failed = tool({"demo", damaged, "--wall", "1x1", "-o", picture});
    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.err.find(damaged + ": at byte 0"), std::string::npos) << failed.err;
    EXPECT_TRUE(failed.out.empty());
    EXPECT_FALSE(fs::exists(picture)) << "an earlier run's";
}

TEST(WallTool, PatternIsWholeOnEveryTile)
{
    // Two by two tiles of unequal size with bezels, and the same wall on one display.
    std::vector<VirtualDisplay> displays = startDisplays(4, 330, 250);
    displays.push_back(startDisplay(640, 480));
    const PixelArea areas[] = {
        {0, 250, 310, 230}, {330, 250, 310, 230}, {0, 0, 310, 240}, {330, 0, 310, 240}};
    std::string text;
    for (std::size_t i = 0; i < 4; ++i) {
        const auto& [x, y, w, h] = areas[i];
        text += displays[i].name + " 640 480 " + std::to_string(x) + " " + std::to_string(y) + " " +
                std::to_string(w) + " " + std::to_string(h) + "\n";
    }
    const std::string tiles = temporaryFile(text);
    const std::string whole = temporaryFile(displays[4].name + " 640 480 0 0 640 480\n");
    const Folder folder;
    const std::vector<std::string> environment = virtualWallEnvironment("replaced");
    const std::string stream = folder.path / "pattern.mws";
    ASSERT_EQ(tool({"pattern", "--wall", tiles, "--frames", "7", "-o", stream}).status, 0);
    const auto play = [&](const std::string& wall, int servers, const std::string& file) {
        Job job{.client = {built("play"), stream, "--then",
                           shellLine({built("mosa-wall"), "snapshot", wall, "-o", file})},
                .server = {built("server")},
                .servers = servers,
                .environment = virtualWallEnvironment(wall),
                .options = {}};
        const Ending ending = runJob(job, jobTime);
        EXPECT_EQ(ending.status, 0) << ending.err;
        return readPng(file);
    };
    const Image wall = play(tiles, 4, folder.path / "tiles.png");
    Image one = play(whole, 1, folder.path / "one.png");
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 640; ++x)
            if ((x >= 310 && x < 330) || (y >= 230 && y < 240))
                std::fill_n(pixelAt(one, x, y), 3, std::uint8_t{64});
    EXPECT_LT(compareImages(wall, one, 8).pixels, 640 * 480 / 500);

    // A tile's outline has one colour, its own.
    std::set<int> colors;
    for (const auto& [x, y, w, h] : areas) {
        const auto corner = [&](int right, int up) {
            return colorAt(wall, right ? x + w - 1 : x, 479 - (up ? y + h - 1 : y));
        };
        colors.insert(corner(0, 0));
        EXPECT_EQ(corner(0, 0), corner(0, 1));
        EXPECT_EQ(corner(0, 0), corner(1, 0));
        EXPECT_EQ(corner(0, 0), corner(1, 1));
    }
    EXPECT_EQ(colors.size(), 4U);

    const Ending played = tool({"pattern", "--wall", tiles, "--frames", "7"}, environment);
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_NE(played.out.find("7 frames"), std::string::npos) << played.out << played.err;
    stopDisplays(displays);
}

// Ends when every child and adopted grandchild of this process has ended.
void waitForAll()
{
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    EXPECT_EQ(errno, ECHILD);
}

TEST(WallTool, NothingOutlivesADemoThatIsStopped)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const int signal : {SIGINT, SIGTERM}) {
        const Folder folder;
        Process demo = startProcess({.argv = {built("mosa-wall"), "demo", EXAMPLES "/gears.mws",
                                              "--loop", "1000000", "-o", folder.path / "wall.png"},
                                     .environment = {"TMPDIR=" + folder.path.string()},
                                     .output = Output::capture});
        for (int i = 0; i < 300 && occurrences(errorsSoFar(demo), "on a wall of") == 0; ++i)
            ASSERT_FALSE(waitForEnd(demo, std::chrono::milliseconds(100))) << errorsSoFar(demo);
        ASSERT_FALSE(fs::is_empty(folder.path));
        const Wall wall = readWall(fs::directory_iterator(folder.path)->path());
        ASSERT_EQ(wall.tiles.size(), 4U);
        kill(demo.pid, signal); // it alone, not its group
        EXPECT_TRUE(waitForEnd(demo, jobTime));
        EXPECT_EQ(finishProcess(demo, jobTime).status, 128 + signal);
        waitForAll();
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
    EXPECT_FALSE(ended.timedOut);
    EXPECT_EQ(ended.out, "changed new one\n");
    EXPECT_EQ(ended.err, "no\n");

    // More than a pipe holds, with nobody reading; a group whose members ignore SIGTERM.
    const Ending much = runProcess(shell("head -c 3000000 /dev/zero"), jobTime);
    EXPECT_EQ(much.out.size(), 3000000U);
    Process deaf = startProcess(shell("trap '' TERM; echo up >&2; (sleep 100; echo late) & wait"));
    while (errorsSoFar(deaf).empty())
        ASSERT_FALSE(waitForEnd(deaf, std::chrono::milliseconds(10)));
    EXPECT_EQ(stopProcess(deaf, std::chrono::milliseconds(100)).status, 128 + SIGKILL);
    const Ending slow = runProcess(shell("sleep 100"), std::chrono::milliseconds(50));
    EXPECT_TRUE(slow.timedOut);
    EXPECT_EQ(slow.status, 128 + SIGTERM);

    EXPECT_THROW(startProcess({.argv = {"no-such-program"}, .environment = {}}),
                 std::runtime_error);
    const std::string text = temporaryFile("no program");
    fs::permissions(text, fs::perms::owner_all);
    EXPECT_THROW(startProcess({.argv = {text}, .environment = {}}), std::runtime_error);
}

} // namespace
