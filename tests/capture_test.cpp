// Running programs: what is captured of them, against what they draw in their own window.
#include <gtest/gtest.h>

#include "client/captureProtocol.h"
#include "client/streamFile.h"
#include "tests/jobSupport.h"
#include "tools/describe.h"
#include "tools/image.h"
#include "tools/virtualDisplays.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr int width = 240, height = 180; // of the program's window
constexpr Timeout limit = std::chrono::seconds(120);

// A desk as large as the program's window, a display for walls of one, and those for tiles; one set
// for all tests, each started when the first wall needs it.
const std::string& displayName(std::size_t number)
{
    static std::vector<VirtualDisplay> started;
    static const struct Stop {
        ~Stop() { stopDisplays(started); }
    } stopAtExit;
    while (started.size() <= number) {
        const int scaled = started.empty() ? 2 : started.size() == 1 ? 6 : 3; // halves
        started.push_back(startDisplay(scaled * width / 2, scaled * height / 2));
    }
    return started[number].name;
}

const std::string& desk() { return displayName(0); }

struct WallShape {
    int columns = 1, rows = 1, scale = 1;
};

std::string wallFile(int columns, int rows, int wallWidth, int wallHeight)
{
    std::string text;
    const int w = wallWidth / columns, h = wallHeight / rows;
    for (int i = 0; i < columns * rows; ++i) {
        text += displayName(columns * rows == 1 ? 1 : static_cast<std::size_t>(2 + i));
        for (const int n : {wallWidth, wallHeight, i % columns * w, i / columns * h, w, h})
            text += " " + std::to_string(n);
        text += "\n";
    }
    return temporaryFile(text);
}

std::string wallFile(WallShape shape = {})
{
    return wallFile(shape.columns, shape.rows, width * shape.scale, height * shape.scale);
}

Command mosaWall(Strings arguments)
{
    arguments.insert(arguments.begin(), PROGRAMS "/mosa-wall");
    return {.argv = arguments,
            .environment = {"DISPLAY=" + desk(), "LIBGL_ALWAYS_SOFTWARE=1", "MOSA_BANNER_TIME=0"},
            .output = Output::capture};
}

Strings program(const std::string& scene, int frames = 0)
{
    return {"--", PROGRAMS "/tests/captureProgram", scene, std::to_string(frames)};
}

Strings operator+(Strings a, const Strings& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Ending run(const Strings& arguments)
{
    const Ending ending = runProcess(mosaWall(arguments), limit);
    EXPECT_FALSE(ending.timedOut) << ending.err;
    return ending;
}

using Counts = std::map<std::string, int>;

// How often each operation is in the frames of a recording, and how many frames there are.
Counts operationsIn(const std::string& file, int& frames)
{
    Counts counts;
    frames = 0;
    const StreamFile stream = readStreamFile(file);
    for (const auto& [offset, hdr] : stream.buffers) {
        frames += hdr.sync != 0;
        const char* at = reinterpret_cast<const char*>(stream.bytes.data() + offset);
        for (const char* const end = at + hdr.size; at < end;) {
            const Record record = measureRecord(at, end - at);
            EXPECT_EQ(record.fault, "");
            if (!record.fault.empty())
                break;
            ++counts[operationName(record.opcode)];
            at += record.bytes;
        }
    }
    return counts;
}

struct Pictures {
    Image own, wall;
};

// A program's own window and the wall: it is held with the frame that the wall shows, while both
// pictures are taken.
Pictures picturesOf(const Strings& command, int frames, const std::string& wall)
{
    const std::string own = temporaryFile(""), shown = temporaryFile("");
    const Ending ending = run(Strings{"run", "--wall", wall, "--force", "--frames",
                                      std::to_string(frames), "--snapshot", shown, "--then",
                                      PROGRAMS "/mosa-wall snapshot -o " + own + " " +
                                          temporaryFile(desk() + " 240 180 0 0 240 180\n")} +
                              command);
    EXPECT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(ending.err.find("Attention"), std::string::npos) << ending.err;
    return {readPng(own), readPng(shown)};
}

Pictures picturesOf(const std::string& scene, WallShape shape)
{
    return picturesOf(program(scene), scene == "modern" || scene == "kept" ? 5 : 3,
                      wallFile(shape));
}

void expectSame(const Image& shown, const Image& expected, bool exact, const std::string& what)
{
    EXPECT_FALSE(std::ranges::adjacent_find(expected.rgb, std::not_equal_to{}) ==
                 expected.rgb.end());
    const long differ = compareImages(shown, expected, exact ? 0 : 4).pixels;
    const double most = exact ? 0 : 0.0025 * shown.width * shown.height;
    EXPECT_LE(static_cast<double>(differ), most) << what;
    std::printf("%s: %ld pixels differ\n", what.c_str(), differ);
    if (testing::Test::HasFailure())
        writePng("failed-" + what + ".png", shown);
}

class Captured : public testing::TestWithParam<const char*> {};

// The wall shows the program's own window: every pixel on one display, and across the seams.
// Enlarged, tiles show what one large display does.
TEST_P(Captured, LooksLikeTheProgramsOwnWindow)
{
    const std::string scene = GetParam();
#ifdef FEW_WALLS
    const Pictures pictures = picturesOf(scene, {});
    expectSame(pictures.wall, pictures.own, true, scene);
#else
    for (const WallShape shape : {WallShape{}, {2, 2}, {3, 2}}) {
        const Pictures pictures = picturesOf(scene, shape);
        expectSame(pictures.wall, pictures.own, shape.columns == 1,
                   scene + " " + std::to_string(shape.columns) + "x" + std::to_string(shape.rows));
    }
    expectSame(picturesOf(scene, {2, 2, 3}).wall, picturesOf(scene, {1, 1, 3}).wall, false,
               scene + " enlarged");
#endif
}

INSTANTIATE_TEST_SUITE_P(Scenes, Captured,
                         testing::Values("arrays", "multitexture", "images", "lists", "rasters",
                                         "lines", "seams", "boxes", "kept", "unseen", "single",
                                         "modern"),
                         [](const auto& test) { return std::string(test.param); });

// ---- Small programs, beside themselves alone ---------------------------------------------------

struct SmallProgram {
    const char* name;
    int frames; // of which the last is looked at; 0: none is
};

class Small : public testing::TestWithParam<SmallProgram> {
protected:
    static Strings command() { return {PROGRAMS "/tests/smallProgram", GetParam().name}; }
};

TEST_P(Small, EndsAndAnswersAsItDoesAlone)
{
    Command plain = mosaWall({});
    plain.argv = command();
    const Ending alone = runProcess(plain, limit);
    const std::string file = temporaryFile("");
    const Ending captured = run(Strings{"record", "-o", file, "--"} + command());
    EXPECT_EQ(captured.status, alone.status) << captured.err;
    EXPECT_EQ(captured.out, alone.out);
    EXPECT_EQ(alone.status, 5);
    EXPECT_LE(occurrences(captured.err, "MOSA: capture: "), 1) << captured.err;
    int frames = 0;
    Counts counts = operationsIn(file, frames);
    EXPECT_GT(frames, 0);
    EXPECT_LE(counts["glXCreateContext"], 3);
    EXPECT_LE(counts["glXChooseVisual"], 1);
}

TEST_P(Small, LooksAsItDoesAlone)
{
    if (GetParam().frames == 0)
        return;
    const Pictures pictures = picturesOf(Strings{"--"} + command(), GetParam().frames, wallFile());
    expectSame(pictures.wall, pictures.own, true, GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Programs, Small,
                         testing::Values(SmallProgram{"still", 1}, SmallProgram{"refusals", 1},
                                         SmallProgram{"within", 1}, SmallProgram{"buffers", 1},
                                         SmallProgram{"sharing", 0}, SmallProgram{"destroyed", 0},
                                         SmallProgram{"shaders", 4}, SmallProgram{"forks", 2},
                                         SmallProgram{"figures", 70}, SmallProgram{"openList", 2},
                                         SmallProgram{"exits", 0}, SmallProgram{"reconnects", 6},
                                         SmallProgram{"returns", 7}, SmallProgram{"queries", 0},
                                         SmallProgram{"closesFiles", 0}, SmallProgram{"steady", 13},
                                         SmallProgram{"turns", 7}, SmallProgram{"begun", 6}),
                         [](const auto& test) { return std::string(test.param.name); });

// What is told of a program, and how it is captured, are not in its environment but people's.
TEST(Environment, TellsEachReasonAndSerialises)
{
    const auto runWith = [](const char* variable, const char* name) {
        return run({"record", "-o", temporaryFile(""), "--", "env", variable,
                    PROGRAMS "/tests/smallProgram", name});
    };
    const char list[] = "a list is kept here, and sent in parts when it is called";
    expectSaid(runWith("A=0", "within"), list, 0);
    expectSaid(runWith("MOSA_CAPTURE_VERBOSE=1", "within"), std::string(list) + " (glEndList)");
    const Ending serial = runWith("MOSA_CAPTURE_SERIAL=1", "threads");
    EXPECT_EQ(serial.status, 5) << serial.err;
    EXPECT_EQ(serial.out, "threads 0\n");
}

// Draws that stay the same are lists from their second time on, within bounds: of two and two there
// is room for two, and old ones go first. They go with their buffers, too, and with the last
// context.
TEST(Kept, DrawsAreCallsOfListsWithinTheirBounds)
{
    const auto countsWith = [](const char* keep, const char* name = "steady") {
        const std::string file = temporaryFile("");
        run({"record", "-o", file, "--", "env", keep, PROGRAMS "/tests/smallProgram", name});
        int frames = 0;
        return operationsIn(file, frames);
    };
    Counts counts = countsWith("MOSA_CAPTURE_KEEP=1");
    EXPECT_EQ(counts["glNewList"], 4 + 1); // the last is the program's
    EXPECT_EQ(counts["glDeleteLists"], 2 + 1);
    EXPECT_EQ(counts["glCallList"], (3 + 4) * 2 + 3); // in the first frame nothing is shown yet
    EXPECT_EQ(counts["glDrawArrays"], (1 + 2 + 2) * 2 + 3);
    counts = countsWith("MOSA_CAPTURE_KEEP=0");
    EXPECT_EQ(counts["glCallList"], 3);
    EXPECT_EQ(counts["glDrawArrays"], 10 * 2 + 3);
    counts = countsWith("MOSA_CAPTURE_KEEP=1", "turns");
    EXPECT_EQ(counts["glNewList"], 1);
    EXPECT_EQ(counts["glDeleteLists"], 2);
}

// Small images are sent once, large ones twice: the first time only some of their bytes are looked
// at.
TEST(Kept, ImagesAreSentOnceOrTwice)
{
    const std::string file = temporaryFile("");
    run({"record", "-o", file, "--", PROGRAMS "/tests/smallProgram", "images"});
    int frames = 0;
    Counts counts = operationsIn(file, frames);
    EXPECT_EQ(frames, 9);
    EXPECT_EQ(counts["glTexImage2D"], 1 + 2 + 9);
}

#ifdef WITH_THREADS
// The thread sanitizer ends a program with another status. It is to see the library alone: what
// others do between would make an order where there is none, and report theirs. A sleep at the end
// of the process would let threads use libraries of the system's that have ended already.
TEST(Threads, GuardWhatTheyShare)
{
    for (const auto& [name, shown] : {std::pair{"threads", "largest"},
                                      {"threads", "all"},
                                      {"sharing", "largest"},
                                      {"destroyed", "largest"},
                                      {"exits", "largest"}}) {
        const Ending ending =
            run({"record", "-o", temporaryFile(""), "--window", shown, "--", "env",
                 "LD_LIBRARY_PATH=" PROGRAMS "/tests/capture", "MOSA_CAPTURE_AHEAD=1",
                 "TSAN_OPTIONS=atexit_sleep_ms=0:halt_on_error=1:ignore_noninstrumented_modules=1",
                 PROGRAMS "/tests/smallProgram_threads", name});
        EXPECT_EQ(ending.status, 5) << ending.err;
    }
}
#endif

// A program that rests does not tell that its window is closed or hidden. The wall is black then,
// or shows the window that is left.
TEST(Unseen, IsTakenFromTheWall)
{
    for (const bool another : {false, true}) {
        const std::string file = temporaryFile("");
        run({"record", "-o", file, "--seconds", "2", "--", PROGRAMS "/tests/smallProgram",
             another ? "closes" : "hides"});
        int frames = 0;
        Counts counts = operationsIn(file, frames);
        EXPECT_EQ(frames, another ? 6 : 2);
        EXPECT_EQ(counts["glXSwapBuffers"], frames);
        EXPECT_EQ(counts["MWRaiseWindow"], another ? 2 : 0);
    }
}

// Anything else would take the place of the program's own.
TEST(Exports, AreTheSystemsNamesAndNothingElse)
{
    const auto namesIn = [](const Strings& libraries) {
        const Ending listed = runProcess({.argv = Strings{"nm", "-D", "--defined-only"} + libraries,
                                          .environment = {},
                                          .output = Output::capture},
                                         limit);
        std::set<std::string> names;
        std::istringstream words(listed.out);
        for (std::string address, kind, name; words >> address;)
            if (address.back() != ':' && words >> kind >> name)
                names.insert(name);
        return names;
    };
    const std::set<std::string> own = namesIn({PROGRAMS "/capture/libmosa-capture.so"});
    EXPECT_GT(own.size(), 3000U);
    const std::set<std::string> systems = namesIn({SYSTEM_LIBRARIES});
    for (const std::string& name : own)
        EXPECT_TRUE(systems.contains(name)) << name;
    for (const std::string& name : systems)
        EXPECT_TRUE(own.contains(name) || !(name.starts_with("gl") || name.starts_with("egl")))
            << name;
    for (const char* library : {"awake", "exactTiles", "frameLock", "lifeline"})
        EXPECT_EQ(namesIn({PROGRAMS "/overload/mosa-" + std::string(library) + ".so"}),
                  std::set<std::string>{"Overload"});
}

double litPixels(const Image& image)
{
    return static_cast<double>(std::ranges::count(image.rgb, 255)) / 3;
}

// Lines and points are as much larger as everything else, wherever they stand.
TEST(CapturedLarger, WidthsGrowWithThePicture)
{
    const Pictures pictures = picturesOf("lines", {2, 2, 2});
    const double area = litPixels(pictures.own);
    EXPECT_GT(area, 1000);
    EXPECT_NEAR(litPixels(pictures.wall) / area, 4, 0.1);
}

// Finished pictures: a program's pixel is a block, halves of blocks meet in a pixel that is the
// average, and tiles agree. Smooth ones are no blocks, and so is `auto` below twice the size.
TEST(CapturedLarger, FinishedPicturesAreSharpOrSmooth)
{
    const auto pixel = [](const Image& image, int x, int y) {
        const std::uint8_t* rgb = pixelAt(image, x, y);
        return std::array<int, 3>{rgb[0], rgb[1], rgb[2]};
    };
    const struct {
        const char* how;
        int tiles;        // across and up
        int w, h;         // of the wall
        int x, y, halves; // where the picture stands from the upper left, and its halves of a size
        bool sharp;
    } cases[] = {
        {"auto", 2, 480, 360, 0, 0, 4, true},    {"auto", 1, 487, 360, 3, 0, 4, true},
        {"sharp", 2, 360, 270, 0, 0, 3, true},   {"sharp", 1, 360, 277, 0, 4, 3, true},
        {"smooth", 1, 480, 360, 0, 0, 4, false}, {"auto", 2, 360, 270, 0, 0, 3, false},
    };
    for (const auto& c : cases) {
        const Pictures pictures = picturesOf(Strings{"--enlarge", c.how} + program("modern"), 5,
                                             wallFile(c.tiles, c.tiles, c.w, c.h));
        int wrong = 0, smoothed = 0;
        for (int y = 0; y < c.h; ++y)
            for (int x = 0; x < c.w; ++x) {
                // What the pixel's edges, in halves of it less nothing, show of the picture.
                const int left = 2 * (x - c.x), top = 2 * (y - c.y);
                const bool black =
                    left < 0 || top < 0 || left >= c.halves * width || top >= c.halves * height;
                for (std::size_t k = 0; k < 3; ++k) {
                    int sum = 0;
                    for (const int across : {left, left + 1})
                        for (const int down : {top, top + 1})
                            sum += black
                                       ? 0
                                       : pixel(pictures.own, across / c.halves, down / c.halves)[k];
                    const int off = std::abs(4 * pixel(pictures.wall, x, y)[k] - sum);
                    (black || c.sharp ? wrong : smoothed) += off > (c.halves == 4 ? 0 : 8);
                }
            }
        EXPECT_EQ(wrong, 0) << c.how << " " << c.w << "x" << c.h;
        EXPECT_EQ(smoothed > 1000, !c.sharp) << c.how << " " << c.w << "x" << c.h;
    }
}

TEST(Recorded, HasWhatIsSeenAndNothingElse)
{
    const std::string file = temporaryFile("");
    EXPECT_EQ(run(Strings{"record", "-o", file} + program("unseen", 4)).status, 5);
    int frames = 0;
    Counts counts = operationsIn(file, frames);
    EXPECT_EQ(frames, 4);
    EXPECT_EQ(counts["glXSwapBuffers"], 4);
    EXPECT_EQ(counts["glXMakeCurrent"], 1) << "repeated, and of other windows";
    EXPECT_EQ(counts["glXCreateContext"], 1) << "probes, and of other windows";
    EXPECT_EQ(counts["glClear"], 4);
    EXPECT_EQ(counts["glRecti"], 8) << "without those of the selection";
    EXPECT_EQ(counts["glShadeModel"], 1) << "what was set before the window was mapped";
    EXPECT_EQ(counts["glLoadMatrixf"], 12);
    for (const char* name : {"glGetIntegerv", "glGetError", "glRenderMode", "glSelectBuffer",
                             "glPushName", "glLoadTransposeMatrixf", "glXCreateWindow"})
        EXPECT_EQ(counts[name], 0) << name;
    run(Strings{"record", "-o", file, "--frames", "2"} + program("images"));
    counts = operationsIn(file, frames);
    EXPECT_EQ(frames, 2);
    EXPECT_EQ(counts["glPixelStorei"], 1) << "the wall's own alignment";
    EXPECT_EQ(counts["glDrawPixels"], 6);
}

// Of finished pictures, what has changed.
TEST(Recorded, PicturesInParts)
{
    const std::string file = temporaryFile("");
    run(Strings{"record", "-o", file, "--frames", "20"} + program("modern"));
    int frames = 0;
    Counts counts = operationsIn(file, frames);
    EXPECT_EQ(frames, 20);
    EXPECT_EQ(counts["glTexImage2D"], 1);
    EXPECT_LT(std::filesystem::file_size(file), 20 * 4 * width * height / 4);
}

// A child that its program leaves behind draws on; the status is the program's. One that only looks
// leaves no trace.
TEST(Recorded, FollowsTheProcessThatDraws)
{
    for (const auto& [name, status] : {std::pair{"fork", 7}, {"forkMeanwhile", 5}}) {
        const std::string file = temporaryFile("");
        EXPECT_EQ(run(Strings{"record", "-o", file} + program(name, 6)).status, status);
        int frames = 0;
        operationsIn(file, frames);
        EXPECT_EQ(frames, 6) << name;
    }
}

// Each ends soon, with a line that says what happened, and leaves nothing running.
TEST(Faults, EndWithOneLineAndTheRightStatus)
{
    const std::string file = temporaryFile("");
    const auto ends = [](const Strings& arguments, int status, const std::string& line) {
        const auto start = std::chrono::steady_clock::now();
        const Ending ending = run(arguments);
        EXPECT_EQ(ending.status, status) << ending.err;
        EXPECT_NE(ending.err.find(line), std::string::npos) << ending.err;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    };
    const std::string wall = wallFile();
    ends({"run", "--wall", wall, "--force", "--", "no-such-program"}, 1,
         "no-such-program: there is no such program");
    ends({"run", "--wall", wall, "--force", "--", "false"}, 1, "drawn nothing with OpenGL");
    ends({"record", "-o", file, "--", "true"}, 1, "drawn nothing with OpenGL");
    ends({"run", "--wall", temporaryFile(":4077 9 9 0 0 9 9\n"), "--", "true"}, 1, ":4077");
    const std::string titled = "into no window with \"no such\" in its title";
    ends(Strings{"run", "--wall", wall, "--force", "--window", "no such", "--seconds", "1"} +
             program("single"),
         1, titled);
    ends(Strings{"record", "-o", file, "--window", "no such"} + program("single", 3), 5, titled);
    ends(Strings{"record", "-o", file, "--calls"} + program("modern", 3), 1, "3.3 core is refused");
    ends({"record", "-o", file, "--", PROGRAMS "/tests/smallProgram", "closesFiles"}, 5,
         "the program has closed the wall's socket; the program goes on without the wall");
    ends(Strings{"record", "-o", "/dev/full"} + program("images", 50), 1, "No space left");
}

TEST(Faults, AProgramThatIsKilledLeavesWholeFrames)
{
    const std::string file = temporaryFile("");
    Process recording = startProcess(mosaWall(Strings{"record", "-o", file} + program("images")));
    const std::string written = file + "." + std::to_string(recording.pid) + ".part";
    std::error_code notYet;
    for (std::uintmax_t size = 0;
         (size < 100'000 || notYet) && !waitForEnd(recording, Timeout{10});)
        size = std::filesystem::file_size(written, notYet);
    const pid_t drawing = findBelow(recording.pid, PROGRAMS "/tests/captureProgram");
    ASSERT_GT(drawing, 0);
    kill(drawing, SIGKILL);
    EXPECT_EQ(finishProcess(recording, limit).status, 128 + SIGKILL);
    int frames = 0;
    operationsIn(file, frames);
    EXPECT_GT(frames, 0);
}

// A wall that takes the handshake and nothing else: the program goes on, and what asks at the same
// time waits for nothing.
TEST(Faults, AWallThatStandsStillIsLeft)
{
    const std::string path = temporaryFile("") + ".socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    for (const Strings& program : {Strings{PROGRAMS "/tests/captureProgram", "images", "30"},
                                   {PROGRAMS "/tests/smallProgram", "queries"}}) {
        Command command = mosaWall({});
        command.argv = program;
        command.environment.insert(command.environment.end(),
                                   {"LD_LIBRARY_PATH=" PROGRAMS "/capture", "MOSA_CAPTURE=" + path,
                                    "MOSA_CAPTURE_PATIENCE=3"});
        Process process = startProcess(command);
        pollfd connecting{listener, POLLIN, 0};
        ASSERT_EQ(poll(&connecting, 1, 30'000), 1);
        const int wall = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::int32_t accepted = captureAccepted;
        ASSERT_EQ(send(wall, &accepted, sizeof accepted, 0), ssize_t{sizeof accepted});
        const Ending ending = finishProcess(process, std::chrono::seconds(30));
        EXPECT_FALSE(ending.timedOut);
        EXPECT_EQ(ending.status, 5);
        expectSaid(ending, "the wall stands still; the program goes on without the wall");
        EXPECT_EQ(ending.out.find("waits 1"), std::string::npos);
        close(wall);
    }
    close(listener);
    std::filesystem::remove(path);
}

// The wall goes; the program draws on by itself until it is done.
TEST(Faults, AProgramOutlivesItsWall)
{
    Process job = startProcess(
        mosaWall(Strings{"run", "--wall", wallFile(), "--force"} + program("single", 150)));
    ASSERT_GT(waitForBelow(job, PROGRAMS "/tests/captureProgram"), 0);
    const pid_t server = findBelow(job.pid, PROGRAMS "/server");
    ASSERT_GT(server, 0);
    kill(server, SIGKILL);
    const Ending ending = finishProcess(job, limit);
    EXPECT_FALSE(ending.timedOut);
    EXPECT_EQ(ending.status, 5) << ending.err;
    EXPECT_NE(ending.err.find("the program goes on without the wall"), std::string::npos)
        << ending.err;
    EXPECT_NE(kill(server, 0), 0);
}

} // namespace
