// Areas of a wall: several jobs on it at once, each in its place, and moved.
#include <gtest/gtest.h> // before X and its macros

#include "client/programWindow.h"
#include "client/streamFile.h"
#include "tests/testWall.h"
#include "tools/wallArea.h"

#include <csignal>

namespace {

// ---- Places in words ---------------------------------------------------------------------------

TEST(Areas, AreReadAsXWritesThem)
{
    constexpr Size wall{800, 600}, own{100, 50};
    const auto read = [=](const char* text) { return areaText(parseArea(text, wall), wall); };
    const std::pair<const char*, const char*> areas[] = {{"300x200+10+20", "300x200+10+20"},
                                                         {"300x200-10-20", "300x200+490+380"},
                                                         {"300x200+-10+-20", "300x200+-10+-20"},
                                                         {"300x200--10+0", "300x200+510+0"},
                                                         {"300x200", "300x200+250+200"},
                                                         {"50x25%", "400x150+200+225"},
                                                         {"50x25%-0-0", "400x150+400+450"},
                                                         {"left", "400x600+0+0"},
                                                         {"right", "400x600+400+0"},
                                                         {"top", "800x300+0+0"},
                                                         {"bottom", "800x300+0+300"},
                                                         {"center", "400x300+200+150"},
                                                         {"top-left", "400x300+0+0"},
                                                         {"bottom-right", "400x300+400+300"},
                                                         {"all", "800x600+0+0"}};
    for (const auto& [text, area] : areas)
        EXPECT_EQ(read(text), area) << text;
    for (const char* wrong : {"", "300", "0x9", "300x-5", "300x200+5", "300x200+5+5+5", "+5+5",
                              "300x200+5+5x", "middle", "99999x5", "5x5+99999+0"})
        EXPECT_THROW(read(wrong), std::runtime_error) << wrong;
    const auto place = [=](const char* text) {
        return areaText(parsePlace(text, wall, own), wall);
    };
    const std::pair<const char*, const char*> places[] = {
        {"+10+20", "100x50+10+20"}, {"-0-0", "100x50+700+550"},    {"100x50+1+2", "100x50+1+2"},
        {"left", "100x50+0+275"},   {"top-right", "100x50+700+0"}, {"center", "100x50+350+275"}};
    for (const auto& [text, area] : places)
        EXPECT_EQ(place(text), area) << text;
    EXPECT_THROW(place("101x50+1+2"), std::runtime_error); // it keeps its size
}

// ---- Jobs on a wall ----------------------------------------------------------------------------

Ending tool(const TestWall& wall, Strings arguments, const std::string& input = "")
{
    arguments.insert(arguments.begin(), built("mosa-wall"));
    if (!input.empty())
        arguments = {"sh", "-c", "printf '" + input + "' | exec " + shellLine(arguments)};
    return runProcess(
        {.argv = arguments, .environment = wall.environment, .output = Output::capture}, jobTime);
}

std::string said(const TestWall& wall, Strings arguments)
{
    const Ending ending = tool(wall, std::move(arguments));
    EXPECT_EQ(ending.status, 0) << ending.err;
    return ending.out;
}

// A still picture of one colour, of a window of 24 x 9 pixels.
std::string stillPicture(Colour colour)
{
    const ProgramWindow window{
        AppDisplay(1U), AppVisual(2U), AppDrawable(3U), AppContext(4U), 24, 9};
    std::vector<int> attributes(std::begin(usualAttributes), std::end(usualAttributes));
    attributes.push_back(None);
    CommandBuffer frame;
    encodeOpening(frame, window, attributes);
    const auto part = [colour](Colour of) { return colour == of ? 1.0F : 0.0F; };
    encode<Op::glClearColor>(frame, part(red), part(green), part(blue), 1.0F);
    encode<Op::glClear>(frame, GLbitfield{GL_COLOR_BUFFER_BIT});
    encode<Op::glXSwapBuffers>(frame, asParameter<Display*>(window.dpy),
                               GLXDrawable{window.window.number});
    const std::string file = temporaryFile("");
    writeStreamFile(file, {{frame, 1}});
    return file;
}

void start(TestWall& wall, Colour colour, Strings arguments)
{
    const Strings command{built("mosa-wall"), "run", stillPicture(colour), "--hold", "10000"};
    arguments.insert(arguments.begin(), command.begin(), command.end());
    wall.jobs.push_back(startProcess(
        {.argv = arguments, .environment = wall.environment, .output = Output::capture}));
}

// Still programs over each other: what is under one that comes, moves or goes is there at once, and
// nothing is black for a moment.
TEST(Areas, StandOverEachOtherAndMove)
{
    TestWall wall;
    const Painted all{0, 0, 240, 90, red};
    const auto isLit = [](const Image& image) {
        for (std::size_t i = 0; i < image.rgb.size(); i += 3)
            if (!(image.rgb[i] | image.rgb[i + 1] | image.rgb[i + 2]))
                return false;
        return true;
    };
    EXPECT_EQ(said(wall, {"list"}), "");
    start(wall, red, {});
    expectShown(wall, painted({all}), "all of the wall");
    start(wall, blue, {"--at", "80x30+80+20", "--movable", "--name", "it"});
    expectShown(wall, painted({all, {80, 20, 80, 30, blue}}), "an area on both tiles", isLit);
    start(wall, green, {"--at", "80x30-10+30", "--name", "it"});
    expectShown(wall, painted({all, {80, 20, 80, 30, blue}, {150, 30, 80, 30, green}}),
                "another over it", isLit);
    const std::string jobs = said(wall, {"list"});
    for (const char* line : {"\nit      80x30+80+20 ", "\nit-2    80x30+150+30 ", "  all  "})
        EXPECT_PRED_FORMAT2(testing::IsSubstring, line, jobs);
    said(wall, {"raise", "it"});
    expectShown(wall, painted({all, {150, 30, 80, 30, green}, {80, 20, 80, 30, blue}}), "raised",
                isLit);
    said(wall, {"move", "it", "+-30+70"});
    expectShown(wall, painted({all, {150, 30, 80, 30, green}, {-30, 70, 80, 30, blue}}),
                "beyond the edge", isLit);
    const Ending followed = tool(wall, {"move", "it", "--follow"}, "+5+5\\nnowhere\\n+60+40\\n");
    EXPECT_EQ(followed.status, 1);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "\"nowhere\" is no place", followed.err);
    expectShown(wall, painted({all, {150, 30, 80, 30, green}, {60, 40, 80, 30, blue}}), "followed",
                isLit);
    const struct {
        Strings arguments;
        const char* refusal;
    } refused[] = {{{"move", "it-2", "+5+5"}, "it-2 stays where it is: start it with --movable"},
                   {{"raise", "none"}, "no job is called \"none\""},
                   {{"stop"}, "name one of the jobs that run: "},
                   {{"move", "it", "+240+5"}, "nothing of it would be on the wall, 240x90"},
                   {{"move", "it", "all"}, "an area keeps its size, 80x30"}};
    for (const auto& [arguments, refusal] : refused) {
        const Ending ending = tool(wall, arguments);
        EXPECT_EQ(ending.status, 1) << refusal;
        EXPECT_PRED_FORMAT2(testing::IsSubstring, refusal, ending.err);
    }
    // A server each for the tiles that its area touches, or all.
    std::string status;
    for (const auto until = Clock::now() + jobTime;
         occurrences(status, "\"answers\": true") < 5 && Clock::now() < until;)
        status = said(wall, {"status", "--json"});
    EXPECT_EQ(occurrences(status, "\"tile\": "), 5) << status;
    said(wall, {"stop", "it"});
    EXPECT_EQ(finishProcess(wall.jobs[1], jobTime).status, 128 + SIGTERM);
    expectShown(wall, painted({all, {150, 30, 80, 30, green}}), "one has gone", isLit);
    kill(wall.jobs[2].pid, SIGKILL); // it can say nothing more, and leaves its socket
    finishProcess(wall.jobs[2], jobTime);
    const Clock::time_point until = Clock::now() + std::chrono::seconds(20);
    while (occurrences(said(wall, {"list"}), "\n") != 2 && Clock::now() < until) {
    }
    EXPECT_EQ(occurrences(said(wall, {"list"}), "it"), 0);
    wall.jobs.resize(1);
}

// A server that stands still holds the move of all: its part of the stream reaches nobody.
TEST(Areas, MoveOnAllTilesTogether)
{
    TestWall wall;
    start(wall, blue, {"--at", "80x30+80+20", "--movable", "--name", "it"});
    const Image before = painted({{80, 20, 80, 30, blue}});
    expectShown(wall, before, "an area on both tiles");
    const pid_t server = findBelow(wall.jobs[0].pid, built("server"));
    ASSERT_GT(server, 0);
    kill(server, SIGSTOP);
    said(wall, {"move", "it", "+100+40"});
    for (const auto until = Clock::now() + std::chrono::milliseconds(400); Clock::now() < until;)
        ASSERT_TRUE(equals(shown(wall), before));
    kill(server, SIGCONT);
    expectShown(wall, painted({{100, 40, 80, 30, blue}}), "moved");
}

// ---- Running programs --------------------------------------------------------------------------

class Fits : public testing::TestWithParam<const char*> {};

// A running program in an area looks as on a wall of the area's size, however it fits.
TEST_P(Fits, AreTheAreasOwn)
{
    const std::string onWall = temporaryFile(""), inArea = temporaryFile("");
    const auto show = [](const std::string& picture, Strings arguments) {
        const Strings all{built("mosa-wall"), "demo", "--fit", GetParam(),
                          "--frames",         "2",    "-o",    picture};
        arguments.insert(arguments.begin(), all.begin(), all.end());
        arguments.insert(arguments.end(), {"--", built("tests/captureProgram"), "boxes"});
        const Ending ending =
            runProcess({.argv = arguments, .environment = {}, .output = Output::capture}, jobTime);
        EXPECT_EQ(ending.status, 0) << ending.err;
        return readPng(picture);
    };
    const Image expected = show(onWall, {"--tile", "150x90"});
    const Image wall = show(inArea, {"--tile", "190x120", "--at", "300x180+40+30"});
    Image area = makeImage(300, 180);
    copyInto(area, -40, -30, wall);
    EXPECT_EQ(compareImages(area, expected).pixels, 0);
    if (testing::Test::HasFailure())
        writePng("failed-fits.png", wall);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Fits, testing::Values("middle", "corner", "stretch"),
                         [](const auto& test) { return std::string(test.param); });

} // namespace
