// mosa-wall: its parts on texts, and the program itself on virtual displays.
#include <gtest/gtest.h> // before X and its macros

#include "client/programWindow.h"
#include "client/streamFile.h"
#include "tests/jobSupport.h"
#include "tools/image.h"
#include "tools/jobOutput.h"
#include "tools/mpiJob.h"
#include "tools/virtualDisplays.h"
#include "tools/wallCheck.h"
#include "tools/wallDrawing.h"

#include <X11/Xlib.h>
#include <X11/Xmd.h>
#include <X11/extensions/saverproto.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
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
        {{"layout", "3x2", "1920x1080", "--screen-mm", "1209.6x680.4", "--bezel-mm", "12.4x14.5"},
         {":0.0 5800 2183 0 1103 1920 1080", ":0.5 5800 2183 3880 0 1920 1080"}}, // 19.7 x 23
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
    const struct {
        std::vector<std::string> measured;
        const char* said;
    } unmeasurable[] = {
        {{"--screen-mm", "1210x680"}, "--screen-mm requires --bezel-mm"},
        {{"--bezel-mm", "1x1"}, "--bezel-mm requires --screen-mm"},
        {{"--screen-mm", "1210x680", "--bezel-mm", "1x1", "--bezel", "2x2"}, "excludes"},
        {{"--screen-mm", "0x680", "--bezel-mm", "1x1"}, "has no size"},
        {{"--screen-mm", "680x1210", "--bezel-mm", "1x1"}, "are not square"},
        {{"--screen-mm", "1210x680", "--bezel-mm", "1x690"}, "is more than a picture"},
        {{"--screen-mm", "1210x680", "--bezel-mm", "12,5x1"}, "should read like 12x14.5"},
    };
    for (const auto& c : unmeasurable) {
        Strings arguments{"layout", "3x2", "1920x1080"};
        arguments.insert(arguments.end(), c.measured.begin(), c.measured.end());
        const Ending ending = tool(arguments);
        EXPECT_NE(ending.status, 0) << c.said;
        expectEnd(ending, ending.status, c.said);
        EXPECT_EQ(ending.out, "") << c.said;
    }
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
        {5, "other:0.0 600 400 0 0 300 200", ""},
        {4, "node 600 400 300 200 300 200", "4: .*no X display name.*"},
        {5, ":x 600 400 0 0 300 200", "5: \":x\" is no X display name.*"},
        {5, ":7. 600 400 0 0 300 200", "5: .* is no X display name.*"},
        {5, "a:b:7 600 400 0 0 300 200", "5: .* is no X display name.*"},
        {5, "a b:7 600 400 0 0 300 200", "5: .* is no X display name.*"},
        {4, "node:0.0 600 400 300 200 300 200", "4: the same screen as line 2"},
        {6, ":7.0 600 400 300 0 300 200",
         "6: the same screen as line 5; for several hosts name them by .*"},
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

// Hosts in another order than the entries: the file says whose these are, or the screens tell.
TEST(WallTool, CheckFindsHostsInTheWrongOrder)
{
    const auto faultsOf = [](const std::string& wall, const std::string& hosts) {
        const Ending ending =
            tool({"check", "--offline", temporaryFile(wall), "--hosts", temporaryFile(hosts)});
        return occurrences(ending.out, ": the hosts stand in another order than the entries\n");
    };
    const std::string made =
        tool({"layout", "3x1", "9x9", "--hosts", temporaryFile("a:1\nb:2\n")}).out;
    EXPECT_EQ(faultsOf(made, "a:1\nb:2\n"), 0);
    EXPECT_EQ(faultsOf(made, "b:2\na:1\n"), 2) << "the second is b's all the same";
    EXPECT_EQ(faultsOf(made, "c:1\nd:2\n"), 0) << "other names for them";
    const std::string named = "a:0 18 9 0 0 9 9\nb:0 18 9 9 0 9 9\n";
    EXPECT_EQ(faultsOf(named, "a\nb\n"), 0);
    EXPECT_EQ(faultsOf(named, "b\na\n"), 2);

    // Nodes that are this machine, under names of which one leads to itself.
    std::vector<VirtualDisplay> displays{startDisplay(90, 60), startDisplay(60, 60)};
    const std::string wall = temporaryFile(displays[0].name + " 150 60 0 0 60 60\n" +
                                           displays[1].name + " 150 60 60 0 90 60\n");
    const auto asked = [&wall](const std::string& hosts) {
        return tool({"check", wall, "--hosts", temporaryFile(hosts)}, {"HYDRA_LAUNCHER=fork"});
    };
    expectEnd(
        asked("left\nright\n"), 1,
        "server 0 (line 1) on left: the tile is 60x60, its screen 90x60; right has one of the "
        "tile's size: do the hosts stand in the order of the entries?\n");
    expectEnd(asked("left:2\n"), 1,
              "server 1 (line 2) on left: the tile is 90x60, its screen 60x60\n");
    expectEnd(asked("127.0.0.1\nright\n"), 1,
              "server 1 (line 2) on right: the name 127.0.0.1 leads to this node itself");
    stopDisplays(displays);
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
                  "\n\nGLX_RGBA\nGLX_STEREO\n\n" + rule +
                  "\nMOSA: Goodbye.\nmosa-wall: the job failed: ");
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "; the messages above may say why\n", aborted.err);
    EXPECT_PRED_FORMAT2(testing::IsNotSubstring, "TERMINATION", aborted.out + aborted.err);
    Process run = startProcess(
        {.argv = {built("mosa-wall"), "run", "--wall", one, "--loop", "1000000", stream},
         .environment = environment,
         .output = Output::capture});
    waitForText(run, "using display");
    kill(run.pid, SIGINT);
    expectEnd(finishProcess(run, jobTime), 130, "mosa-wall: interrupted\n");
    run = startProcess(
        {.argv = {built("mosa-wall"), "run", "--wall", one, "--loop", "1000000", stream},
         .environment = environment,
         .output = Output::capture});
    waitForText(run, "using display");
    const pid_t server = findBelow(run.pid, built("server"));
    ASSERT_GT(server, 0);
    kill(server, SIGKILL);
    expectEnd(finishProcess(run, jobTime), 1, "the job failed: server 0 has ");
    stopDisplays(displays);
}

// What is not meant is refused before anything happens, in one line; the old file stays.
TEST(WallTool, RefusesWhatItWouldNotHonour)
{
    const Folder folder;
    const std::string mine = temporaryFile("mine"), wall = temporaryFile(":4077 9 9 0 0 9 9\n");
    const Strings none{"MOSA_DISPLAY=", "XDG_CONFIG_HOME=" + folder.path.string(), "DISPLAY=:4077"};
    const struct {
        Strings arguments;
        std::string said;
    } cases[] = {
        {{"run", "--dry-run", "--", "touch", mine + "2"}, "--dry-run: goes with a wall"},
        {{"run", "--wall", wall, "--dry-run", "--", "touch", mine + "2"},
         "--dry-run: goes with stream files"},
        {{"run", "--stats", "--", "touch", mine + "2"}, "--stats: goes with a wall"},
        {{"pattern", wall, "--", "touch", mine + "2"}, "pattern takes no program"},
        {{"check", wall, "--", "touch", mine + "2"}, "check takes no program"},
        {{"pattern", wall, "-o", mine, "--loop", "2"}, "--loop: does not go with -o"},
        {{"demo", "--loop", "2", "-o", mine, "--", "true"}, "--loop: goes with recordings alone"},
        {{"record", "-o", mine, "--fit", "corner", "--", "true"}, "--fit"},
        {{"record", "-o", mine, "--", "true"}, "drawn nothing"},
        {{"demo", "-o", mine, "--", "no-such-program"}, "there is no such program"},
        {{"run", "gears"}, "name the wall's file"},
        {{"layout", "2x1", "9x9", "-o", "/nonexistent/wall"}, "/nonexistent/wall"},
        {{"check", wall, "--hosts", temporaryFile("-oProxyCommand=true\n")}, "is no host name"},
        {{"check", wall, "--hosts", temporaryFile("a,b\n")}, "is no host name"},
        {{"check", wall, "--hosts", temporaryFile("a:0\n")}, "should read NAME or NAME:SERVERS"},
    };
    for (const auto& [arguments, said] : cases) {
        const Ending ending = tool(arguments, none);
        EXPECT_NE(ending.status, 0) << said;
        EXPECT_PRED_FORMAT2(testing::IsSubstring, said, ending.err);
        EXPECT_FALSE(fs::exists(mine + "2")) << said;
        EXPECT_EQ(fs::file_size(mine), 4U) << said;
    }
    // One name for a wall: hosts in its file, and the file where it is looked for.
    fs::create_directory(folder.path / "mosa");
    const std::string own = folder.path / "mosa/wall.conf";
    const std::string hosts = temporaryFile("upper\nlower\n");
    ASSERT_EQ(tool({"layout", "2x1", "9x9", "--hosts", hosts, "-o", own}).status, 0);
    expectEnd(tool({"check", "--offline"}, none), 0, "2 servers, no fault");
    expectEnd(tool({"run", "--dry-run", "gears"}, none), 0,
              ":1,upper:1,lower:1 -genv MOSA_DISPLAY " + own);
    const Strings named{"MOSA_DISPLAY=" + wall, "XDG_CONFIG_HOME=" + folder.path.string()};
    expectEnd(tool({"check", "--offline"}, named), 0, "1 servers, no fault");
}

// What each server said last of its figures comes with the end of a job that fails, and only then.
TEST(WallTool, FiguresAreKeptForTheFailure)
{
    for (const bool fails : {false, true}) {
        Job job;
        job.client = {"sh", "-c", fails ? "exit 3" : "true"};
        job.server = {"sh", "-c", "for i in 1 2; do echo \"MOSA: server 0, last $i\" >&2; done"};
        job.keepsFigures = true;
        testing::internal::CaptureStderr();
        EXPECT_EQ(reportEnding(watchJob(job, {}, jobTime, stdout)), fails ? 1 : 0);
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(occurrences(said, "MOSA: server 0, last 1"), 0) << said;
        EXPECT_EQ(occurrences(said, "MOSA: server 0, last 2"), fails ? 1 : 0) << said;
    }
}

// Of a server and a client whose ends are heard of at once, whoever made the other end is named.
TEST(WallTool, TheFirstToEndIsTheCause)
{
    const std::string server = "server 1 on node2", client = "its client";
    const auto said = [&](const std::string& remarks, const std::string& first, bool clientToo,
                          bool killed = false) {
        testing::internal::CaptureStderr();
        JobEnding ending;
        ending.status = 1;
        ending.remarks = remarks;
        ending.endedFirst = first;
        ending.clientEndedToo = clientToo;
        ending.clientKilled = killed;
        ending.servers = {{43, server}};
        reportEnding(ending);
        return testing::internal::GetCapturedStderr();
    };
    const auto named = [](const std::string& process) {
        return "=   PID " + process + "\n=   EXIT CODE: 9\n";
    };
    const auto aborts = [](const std::string& rank, const std::string& lost) {
        return "Abort(15) on node " + rank + " (rank " + rank +
               " in comm 0): Fatal error\nMPI_Isend(count=8, MPI_BYTE, " + lost + ", 1) failed\n";
    };
    const struct {
        std::string remarks, first;
        bool clientToo;
        std::string said;
    } cases[] = {
        {"", server, false, server + " has gone"},
        {"", server, true, server + " has gone"},
        {aborts("0", "2"), server, true, server + " has gone"},
        {aborts("1", "0"), server, true, client + " has gone"},
        {named("43 RUNNING AT node2"), server, true, server + " has ended, exit code 9"},
        {named("45 RUNNING AT app"), server, true, client + " has gone"},
        {named("45 RUNNING AT app"), server, false, server + " has gone"},
        {named("43 RUNNING AT node2"), client, false, client + " has gone"},
        {aborts("0", "2"), "", false, "server 1 has gone"},
        {aborts("1", "0"), "", false, client + " has gone"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(said(one.remarks, one.first, one.clientToo),
                  "mosa-wall: the job failed: " + one.said + "\n");
    EXPECT_NE(said("", server, true, true).find(client), std::string::npos);
}

std::set<std::string> optionsIn(std::string text)
{
    for (std::size_t at = 0; (at = text.find("\\-", at)) != text.npos;)
        text.erase(at, 1);
    static const std::regex option("--[a-z][a-z-]*");
    std::set<std::string> found;
    for (std::sregex_iterator at(text.begin(), text.end(), option), end; at != end; ++at)
        found.insert(at->str());
    return found;
}

// The manual page has the commands that the help has, and names the options of each that its help
// does, and no others.
TEST(WallTool, HelpAndManualPageAgree)
{
    const auto pageOf = [](const std::string& name) {
        return std::string{
            std::istreambuf_iterator<char>(std::ifstream(MANUALS "/" + name + ".1").rdbuf()), {}};
    };
    const auto compare = [](std::set<std::string> told, std::set<std::string> helped,
                            const std::string& of) {
        for (const char* everywhere : {"--help", "--version"}) {
            told.erase(everywhere);
            helped.erase(everywhere);
        }
        EXPECT_EQ(told, helped) << of;
    };
    const auto matchesIn = [](const std::string& text, const char* expression) {
        const std::regex wanted(expression);
        std::set<std::string> found;
        for (std::sregex_iterator at(text.begin(), text.end(), wanted), end; at != end; ++at)
            found.insert(at->str(1));
        return found;
    };
    const std::string page = pageOf("mosa-wall");
    const std::set<std::string> commands = matchesIn(page, "\n\\.SS ([a-z]+)\n");
    EXPECT_EQ(commands, matchesIn(tool({"--help"}).out, "\n  ([a-z]+)  "));
    EXPECT_EQ(commands.size(), 13U);
    for (const std::string& command : commands) {
        const std::size_t from = page.find(".SS " + command + "\n");
        compare(optionsIn(page.substr(from, page.find("\n.S", from + 1) - from)),
                optionsIn(tool({command, "--help"}).out), command);
    }
    for (const std::string program : {"play", "streamdump"}) {
        const Ending help = runProcess(
            {.argv = {built(program), "--help"}, .environment = {}, .output = Output::capture},
            jobTime);
        std::set<std::string> told = optionsIn(pageOf(program == "play" ? "mosa-play" : program));
        told.erase("--list"); // of mosa-wall demo
        compare(told, optionsIn(help.out), program);
    }
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
    const std::uintmax_t size = fs::file_size(picture);
    const Ending failed = tool({"demo", damaged, "--wall", "1x1", "-o", picture});
    expectEnd(failed, 1, damaged + ": at byte 0");
    EXPECT_EQ(fs::file_size(picture), size) << "the old one stays";
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
        std::set<int> greys;
        for (int column = x + w / 2 - 72; column < x + w / 2 + 72; ++column) // 9 each
            if (const int color = colorAt(image, column, 479 - (y + h / 6 + 4));
                color == color % 256 * 0x010101)
                greys.insert(color);
        EXPECT_TRUE(greys.size() == 16 && greys.contains(0) && greys.contains(0xffffff)) << x;
    }
    EXPECT_EQ(colors.size(), 4U);
    // The circle around the middle of a seam is as far from it to the sides as up, bezel and all.
    const auto circleAt = [&image](int x, int y) { // within two pixels
        for (int off = -2; off <= 2; ++off)
            for (const auto& [column, row] : {std::pair{x + off, y}, {x, y + off}})
                if (const std::uint8_t* rgb = pixelAt(image, column, 479 - row);
                    rgb[0] < 100 && rgb[1] > 200 && rgb[2] > 200)
                    return true;
        return false;
    };
    constexpr int radius = 44, beside = 12, up = 43; // of 0.15 * 230 + 20 / 2
    EXPECT_TRUE(circleAt(320 - radius, 365) && circleAt(320 + radius, 365));
    EXPECT_TRUE(circleAt(320 - beside, 365 + up) && circleAt(320 + beside, 365 - up));
    EXPECT_TRUE(circleAt(155, 245 + 39) && circleAt(485 + 28, 245 - 28)); // of 10

    expectEnd(tool({"pattern", "--wall", wall, "--frames", "7", "--then", "false"}, environment), 1,
              "7 frames");
    stopDisplays(displays);
}

// An X display's screen saver.
struct ScreenSaver {
    xcb_connection_t* x;
    xcb_extension_t extension{"MIT-SCREEN-SAVER", 0};
    explicit ScreenSaver(const std::string& display) : x(xcb_connect(display.c_str(), nullptr)) {}
    ~ScreenSaver() { xcb_disconnect(x); }
};

bool isDark(ScreenSaver& saver)
{
    xScreenSaverQueryInfoReq request{};
    request.drawable = xcb_setup_roots_iterator(xcb_get_setup(saver.x)).data->root;
    iovec parts[3]{{}, {}, {&request, sizeof request}};
    const xcb_protocol_request_t protocol{1, &saver.extension, X_ScreenSaverQueryInfo, 0};
    auto* const reply = static_cast<xScreenSaverQueryInfoReply*>(
        xcb_wait_for_reply(saver.x, xcb_send_request(saver.x, 0, parts + 2, &protocol), nullptr));
    constexpr CARD8 on = 1;
    const bool dark = reply && reply->state == on;
    std::free(reply);
    return dark;
}

bool waitUntil(const std::function<bool()>& holds, Timeout longest)
{
    const auto until = std::chrono::steady_clock::now() + longest;
    while (!holds() && std::chrono::steady_clock::now() < until)
        poll(nullptr, 0, 20);
    return holds();
}

// A display that is dark is woken for a job, stays so in spite of its own settings, and follows
// them again after it, or those that the job leaves.
TEST(WallTool, DisplaysAreAwakeWhileAJobRuns)
{
    const Folder folder;
    std::vector<VirtualDisplay> displays{startDisplay(100, 100)};
    const std::string display = displays[0].name;
    const std::string wall = temporaryFile(display + " 100 100 0 0 100 100\n");
    const auto arguments = [&wall](const Strings& more) {
        Strings all{built("mosa-wall"), "run", "--wall", wall, "--force", EXAMPLES "/gears.mws"};
        all.insert(all.end(), more.begin(), more.end());
        return Command{.argv = all,
                       .environment = virtualWallEnvironment("replaced"),
                       .output = Output::capture};
    };
    ScreenSaver saver(display);
    xcb_set_screen_saver(saver.x, 1, 0, XCB_BLANKING_PREFERRED, XCB_EXPOSURES_ALLOWED);
    xcb_force_screen_saver(saver.x, XCB_SCREEN_SAVER_ACTIVE);
    ASSERT_TRUE(isDark(saver));
    const fs::path shown = folder.path / "shown", seen = folder.path / "seen";
    Process job =
        startProcess(arguments({"--then", "touch " + shown.string() + "; while [ ! -e " +
                                              seen.string() + " ]; do sleep 0.05; done"}));
    ASSERT_TRUE(waitUntil([&shown] { return fs::exists(shown); }, jobTime));
    EXPECT_FALSE(waitUntil([&saver] { return isDark(saver); }, std::chrono::milliseconds(2500)));
    std::ofstream{seen};
    EXPECT_EQ(finishProcess(job, jobTime).status, 0);
    EXPECT_TRUE(waitUntil([&saver] { return isDark(saver); }, jobTime));

    // Commands around it have the wall file; one that fails is a line, and no more.
    const Ending ending =
        runProcess(arguments({"--blank-after", "7", "--before", "echo before $MOSA_DISPLAY; false",
                              "--after", "echo after $MOSA_DISPLAY"}),
                   jobTime);
    expectEnd(ending, 0, "mosa-wall: the command failed: echo before ");
    EXPECT_LT(ending.out.find("before " + wall), ending.out.find("after " + wall)) << ending.out;
    EXPECT_NE(ending.out.find("after " + wall), std::string::npos) << ending.out;
    xcb_get_screen_saver_reply_t* const now =
        xcb_get_screen_saver_reply(saver.x, xcb_get_screen_saver(saver.x), nullptr);
    EXPECT_EQ(now->timeout, 7 * 60);
    std::free(now);

    // And that of after it however it ends.
    Process told = startProcess(
        arguments({"--loop", "1000000", "--before", "touch " + (folder.path / "begun").string(),
                   "--after", "touch " + (folder.path / "ended").string() + "; exit 4"}));
    ASSERT_TRUE(waitUntil([&folder] { return fs::exists(folder.path / "begun"); }, jobTime));
    kill(told.pid, SIGTERM);
    const Ending end = finishProcess(told, jobTime);
    expectEnd(end, 128 + SIGTERM, "mosa-wall: the command failed: touch ");
    EXPECT_TRUE(fs::exists(folder.path / "ended"));
    stopDisplays(displays);
}

// When the socket of a tile's display was made; 0 when there is none.
long socketOf(const WallTile& tile)
{
    struct stat status {};
    const std::string path = "/tmp/.X11-unix/X" + tile.entry.dpyName.substr(1);
    if (stat(path.c_str(), &status) != 0)
        return 0;
    return status.st_ctim.tv_sec * 1'000'000'000 + status.st_ctim.tv_nsec;
}

TEST(WallTool, NothingOutlivesADemoThatIsStopped)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const Folder folder;
        Process demo =
            startProcess({.argv = {built("mosa-wall"), "demo", EXAMPLES "/polytopes.mws", "--loop",
                                   "1000000", "-o", folder.path / "wall.png"},
                          .environment = {"TMPDIR=" + folder.path.string(), "XDG_RUNTIME_DIR="},
                          .output = Output::capture});
        waitForText(demo, "on a wall of");
        Wall wall;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder.path))
            if (entry.path().filename().string().starts_with("wall"))
                wall = readWall(entry.path());
        EXPECT_EQ(wall.tiles.size(), 4U);
        EXPECT_EQ(toText(wallSize(wall)), "800x600") << "each tile is the program's window";
        std::vector<long> sockets;
        for (const WallTile& tile : wall.tiles)
            sockets.push_back(socketOf(tile));
        kill(demo.pid, signal); // it alone, not its group
        EXPECT_TRUE(waitForEnd(demo, jobTime));
        EXPECT_EQ(finishProcess(demo, jobTime).status, 128 + signal);
        while (waitpid(-1, nullptr, 0) > 0) { // every adopted grandchild
        }
        for (std::size_t i = 0; i < wall.tiles.size(); ++i) { // another may have the number by now
            EXPECT_GT(sockets[i], 0);
            EXPECT_NE(socketOf(wall.tiles[i]), sockets[i]) << signal;
        }
        EXPECT_TRUE(fs::is_empty(folder.path));
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST(Process, ProgramsAreBoundedCapturedAndStoppedWithTheirGroup)
{
    const auto shell = [](const std::string& script) {
        return Command{
            .argv = {"sh", "-c", script},
            .environment = {"HOME=changed", "MOSA_ADDED=new one", "MOSA_KEP=h", "MOSA_KEPT_TOO=h"},
            .output = Output::capture};
    };
    const Ending ended = runProcess(shell("echo $HOME $MOSA_ADDED; echo no >&2; exit 3"), jobTime);
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.out + ended.err, "changed new one\nno\n");

    // What only begins like another variable does not replace it, nor a longer one a shorter; what
    // has a session of its own ends with the program that started it.
    setenv("MOSA_KEPT", "kept", 1);
    EXPECT_EQ(runProcess(shell("echo $MOSA_KEPT"), jobTime).out, "kept\n");
    Process parent = startProcess(shell("setsid sleep 94 & echo started $! >&2; wait"));
    const std::string said = waitForText(parent, "\n");
    const pid_t child = std::stoi(said.substr(said.find(' ')));
    EXPECT_EQ(kill(child, 0), 0);
    stopProcess(parent, std::chrono::milliseconds(100));
    // Whoever has adopted it may take a moment to notice.
    EXPECT_TRUE(waitUntil([child] { return kill(child, 0) != 0; }, std::chrono::seconds(20)));

    // More than a pipe holds, with nobody reading; a group whose members ignore SIGTERM.
    EXPECT_EQ(runProcess(shell("head -c 3000000 /dev/zero"), jobTime).out.size(), 3000000U);
    Process deaf = startProcess(shell("trap '' TERM; echo up >&2; (sleep 100; echo late) & wait"));
    waitForText(deaf, "up");
    EXPECT_EQ(stopProcess(deaf, std::chrono::milliseconds(100)).status, 128 + SIGKILL);
    const Ending slow = runProcess(shell("sleep 100"), std::chrono::milliseconds(50));
    EXPECT_TRUE(slow.timedOut);
    EXPECT_EQ(slow.status, 128 + SIGTERM);

    // What cannot be started leaves nothing: no signal blocked, no descriptor.
    const std::string text = temporaryFile("no program");
    fs::permissions(text, fs::perms::owner_all);
    const auto state = [] {
        sigset_t mask;
        sigprocmask(SIG_SETMASK, nullptr, &mask);
        const auto open = std::distance(fs::directory_iterator("/proc/self/fd"), {});
        return std::pair(open, sigismember(&mask, SIGTERM) + sigismember(&mask, SIGCHLD));
    };
    const auto before = state();
    for (const std::string& program : {text, std::string("no-such-program")})
        EXPECT_THROW(
            startProcess(
                {.argv = {program}, .environment = {}, .output = Output::pipe, .inputPipe = true}),
            std::runtime_error);
    EXPECT_EQ(state(), before);
}

} // namespace
