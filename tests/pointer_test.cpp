// The mouse pointer of a running program on the wall.
#include <gtest/gtest.h> // before X and its macros

#include "client/pointerServers.h"
#include "client/pointerWall.h"
#include "client/windowState.h"
#include "tests/testWall.h"

namespace {

TEST(Pointer, HasItsPlaceHoweverThePictureFits)
{
    constexpr PointerWall middle{240, 90, true, false}, corner{240, 90, false, false},
        stretch{240, 90, false, true};
    const struct {
        PointerWall wall;
        int width, height;
        double x, y, scaleX, scaleY; // of (10, 20) in such a window
    } cases[] = {{middle, 60, 45, 80, 40, 2, 2},  {middle, 480, 90, 5, 32.5, 0.5, 0.5},
                 {corner, 60, 45, 20, 40, 2, 2},  {corner, 480, 90, 5, 55, 0.5, 0.5},
                 {stretch, 60, 45, 40, 40, 4, 2}, {stretch, 480, 90, 5, 20, 0.5, 1}};
    for (const auto& [wall, width, height, x, y, scaleX, scaleY] : cases) {
        const PointerPlace place = placeOnWall(wall, 10, 20, width, height);
        EXPECT_EQ(std::tuple(place.x, place.y, place.scaleX, place.scaleY),
                  std::tuple(x, y, scaleX, scaleY));
    }
}

// A server's side of a connection.
struct Tile {
    int fd;
    PointerPlace place = {};
    bool isTold = false; // since it was asked last
};

Tile connectTile(PointerServers& servers, int left, const std::string& secret)
{
    const std::string address =
        "127.0.0.1:" + std::to_string(net::portOf(servers.listening.front()));
    Tile tile{net::connectWithin(address.c_str(), 5000)};
    PointerHello hello{pointerMark, left, 0, 120, 90, {}};
    secret.copy(hello.secret, sizeof hello.secret);
    EXPECT_TRUE(net::sendRecord(tile.fd, hello));
    const auto isGreeted = [&] {
        return !servers.all.empty() && servers.all.back().tile.x == left &&
               servers.all.back().isGreeted;
    };
    for (const auto until = Clock::now() + jobTime;
         secret == servers.secret && !isGreeted() && Clock::now() < until;)
        tellServers(servers);
    return tile;
}

// Moves the pointer, and looks who is told.
void move(PointerServers& servers, double x, std::initializer_list<Tile*> tiles)
{
    if (x >= 0)
        servers.place = {0, 1, x, 40, 1, 1};
    else
        servers.place.window = 0;
    tellServers(servers);
    for (Tile* tile : tiles) {
        char bytes[4096];
        const ssize_t got = recv(tile->fd, bytes, sizeof bytes, 0);
        tile->isTold = got >= ssize_t{sizeof tile->place};
        if (tile->isTold) // the last that was said
            std::memcpy(&tile->place, bytes + got - sizeof tile->place, sizeof tile->place);
    }
}

void answer(PointerServers& servers, const Tile& tile)
{
    net::sendRecord(tile.fd, PointerAnswer{tile.place.number});
    std::vector<pollfd> events;
    addDescriptors(servers, events);
    EXPECT_GT(poll(events.data(), events.size(), 10'000), 0);
}

// A tile that the pointer comes to shows it only when the one that it has left does no more, unless
// that one is silent for too long; others are told nothing.
TEST(Pointer, IsNowhereSeenTwice)
{
    PointerServers servers;
    servers.listening = net::listenOn("127.0.0.1", 0);
    servers.secret = "known";
    servers.patience = std::chrono::hours(1);
    setShape(servers, {8, 4, 2, 1}, std::vector<std::uint32_t>(32, ~0U));
    Tile left = connectTile(servers, 0, "known"), right = connectTile(servers, 120, "known"),
         far = connectTile(servers, 240, "known");
    const auto told = [&] { return std::tuple(left.isTold, right.isTold, far.isTold); };
    const auto moveTo = [&](double x) {
        move(servers, x, {&left, &right, &far});
        return told();
    };
    EXPECT_EQ(moveTo(60), std::tuple(true, false, false));
    EXPECT_EQ(moveTo(70), std::tuple(false, false, false)); // it owes an answer
    answer(servers, left);
    EXPECT_EQ(moveTo(70), std::tuple(true, false, false));
    answer(servers, left);
    EXPECT_EQ(moveTo(180), std::tuple(true, false, false));
    EXPECT_EQ(moveTo(181), std::tuple(false, false, false));
    answer(servers, left);
    EXPECT_EQ(moveTo(182), std::tuple(false, true, false));
    EXPECT_EQ(right.place.x, 182);
    servers.patience = {};
    EXPECT_EQ(moveTo(300), std::tuple(false, false, true)); // the right one is silent
    answer(servers, far);
    EXPECT_EQ(moveTo(-1), std::tuple(false, false, true)); // in no window
    const std::size_t before = servers.all.size();
    const Tile stranger = connectTile(servers, 0, "guessed");
    char byte = 0;
    pollfd closed{stranger.fd, POLLIN, 0};
    for (const auto until = Clock::now() + jobTime;
         poll(&closed, 1, 1) == 0 && Clock::now() < until;)
        tellServers(servers);
    EXPECT_EQ(recv(stranger.fd, &byte, 1, 0), 0);
    EXPECT_EQ(servers.all.size(), before);
    for (const int fd : {left.fd, right.fd, far.fd, stranger.fd})
        close(fd);
    closeServers(servers);
}

// A desk, whose pointer is moved, and a program on it that rests (smallProgram's "pointed").
struct TestDesk {
    std::vector<VirtualDisplay> displays = startDisplays(1, 300, 200);
    xcb_connection_t* x = xcb_connect(displays[0].name.c_str(), nullptr);
    xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(x)).data->root;

    ~TestDesk()
    {
        xcb_disconnect(x);
        stopDisplays(displays);
    }
};

void point(const TestDesk& desk, int x, int y)
{
    xcb_warp_pointer(desk.x, XCB_NONE, desk.root, 0, 0, 0, 0, static_cast<std::int16_t>(x),
                     static_cast<std::int16_t>(y));
    xcb_flush(desk.x);
}

Process startPointed(const TestWall& wall, const TestDesk& desk, Strings arguments)
{
    arguments.insert(arguments.begin(), {built("mosa-wall"), "run"});
    arguments.insert(arguments.end(), {"--", built("tests/smallProgram"), "pointed"});
    Strings environment = wall.environment;
    environment.push_back("DISPLAY=" + desk.displays[0].name);
    return startProcess({.argv = arguments, .environment = environment, .output = Output::capture});
}

// The windows of a tile: none once the job has ended.
int windowsOn(const VirtualDisplay& tile)
{
    xcb_connection_t* const x = xcb_connect(tile.name.c_str(), nullptr);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(x)).data->root;
    const Reply<xcb_query_tree_reply_t> tree{
        xcb_query_tree_reply(x, xcb_query_tree(x, root), nullptr)};
    const int count = tree ? tree->children_len : -1;
    xcb_disconnect(x);
    return count;
}

void endPointed(const TestWall& wall, Process& job)
{
    const Ending ending = stopProcess(job);
    EXPECT_EQ(occurrences(ending.err, "Attention"), 0) << ending.err;
    for (const VirtualDisplay& tile : wall.displays) {
        const auto until = Clock::now() + std::chrono::seconds(20);
        while (windowsOn(tile) != 0 && Clock::now() < until) {
        }
        EXPECT_EQ(windowsOn(tile), 0);
    }
}

// As large as the picture is enlarged, on both sides of a seam, and beneath it all is as it was
// although the program does not draw it again.
TEST(Pointer, MovesOverTilesOfAProgramThatRests)
{
    TestWall wall;
    TestDesk desk;
    point(desk, 200, 100);
    Process job = startPointed(wall, desk, {});
    const Painted window{60, 0, 120, 90, green};
    const Image without = painted({window});
    expectShown(wall, without, "no pointer yet");
    const struct {
        int x, y;
        const char* what;
    } places[] = {{5, 10, "on the left tile"},
                  {45, 30, "on the right tile"},
                  {29, 20, "on both"},
                  {28, 40, "on both, further down"},
                  {59, 44, "beyond the window's edge"},
                  {0, 0, "in the corner"}};
    for (const auto& [x, y, what] : places) {
        point(desk, x, y);
        expectShown(wall, painted({window, {60 + 2 * x - 4, 2 * y - 2, 16, 8, blue}}), what);
        if (HasFailure())
            return; // each waits its time
    }
    point(desk, 60, 20);
    expectShown(wall, without, "it has left");

    constexpr std::uint32_t overrides = 1;
    const xcb_window_t above = xcb_generate_id(desk.x);
    xcb_create_window(desk.x, XCB_COPY_FROM_PARENT, above, desk.root, 20, 0, 20, 45, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &overrides);
    xcb_map_window(desk.x, above);
    point(desk, 10, 20);
    expectShown(wall, painted({window, {76, 38, 16, 8, blue}}), "beside another window");
    point(desk, 30, 20);
    expectShown(wall, without, "in another window");
    xcb_unmap_window(desk.x, above);
    xcb_flush(desk.x);
    expectShown(wall, painted({window, {116, 38, 16, 8, blue}}), "the other is gone");
    endPointed(wall, job);
}

// In an area it is cut at the area's edge, goes with it, and is nowhere else.
TEST(Pointer, StaysInAnArea)
{
    TestWall wall;
    TestDesk desk;
    point(desk, 0, 0);
    Process job = startPointed(wall, desk, {"--at", "120x45+60+20", "--movable", "--name", "it"});
    const auto expectAt = [&wall](int left, int top, int x, int y, const char* what) {
        const Image whole = painted(
            {{left + 30, top, 60, 45, green}, {left + 30 + x - 2, top + y - 1, 8, 4, blue}});
        Image area = makeImage(whole.width, whole.height);
        for (int row = std::max(0, top); row < std::min(whole.height, top + 45); ++row)
            std::copy_n(pixelAt(whole, 0, row), 3 * whole.width, pixelAt(area, 0, row));
        expectShown(wall, area, what);
    };
    expectAt(60, 20, 0, 0, "cut at the upper edge");
    point(desk, 30, 20);
    expectAt(60, 20, 30, 20, "on both tiles");
    const Ending moved = runProcess({.argv = {built("mosa-wall"), "move", "it", "+40+40"},
                                     .environment = wall.environment,
                                     .output = Output::capture},
                                    jobTime);
    EXPECT_EQ(moved.status, 0) << moved.err;
    expectAt(40, 40, 30, 20, "moved");
    endPointed(wall, job);
}

} // namespace
