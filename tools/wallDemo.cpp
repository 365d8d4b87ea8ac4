#include "tools/wallDemo.h"
#include "client/locations.h"
#include "client/wholeFile.h"
#include "tools/recording.h"
#include "tools/virtualDisplays.h"
#include "tools/wallJob.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace {

constexpr Timeout demoTime = std::chrono::minutes(10);
constexpr Size usualScreen{300, 300};

// Open for as long as this process lives, and with it the wall's window.
Display* userDisplay()
{
    static Display* const dpy = XOpenDisplay(nullptr);
    if (!dpy)
        throw std::runtime_error("--show needs an X display: DISPLAY names none that answers");
    return dpy;
}

// A window on the user's display that is the wall, with one for each tile in its place.
std::vector<Window> openWallWindow(Display* dpy, const Grid& grid)
{
    const Size wall = wallSize(grid);
    const auto pixels = [](int n) { return static_cast<unsigned>(n); };
    const Window frame = XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), 0, 0, pixels(wall.w),
                                             pixels(wall.h), 0, 0, 0x404040);
    XStoreName(dpy, frame, "MOSA wall");
    std::vector<Window> tiles;
    for (int server = 0; server < grid.screens.w * grid.screens.h; ++server) {
        const PixelArea area = areaOf(grid, server);
        tiles.push_back(XCreateSimpleWindow(dpy, frame, area.x, wall.h - area.y - area.h,
                                            pixels(area.w), pixels(area.h), 0, 0, 0));
    }
    XMapSubwindows(dpy, frame);
    XMapWindow(dpy, frame);
    XSync(dpy, False);
    return tiles;
}

std::vector<VirtualDisplay> startTiles(const Grid& grid, const std::vector<Window>& windows)
{
    if (windows.empty())
        return startDisplays(grid.screens.w * grid.screens.h, grid.screen.w, grid.screen.h);
    std::vector<VirtualDisplay> displays;
    for (const Window window : windows)
        displays.push_back(startDisplay(grid.screen.w, grid.screen.h,
                                        {"Xephyr", "-parent", std::to_string(window)}));
    return displays;
}

ChosenWall demoWall(const Grid& grid, const std::vector<VirtualDisplay>& displays)
{
    const std::string file = temporaryName("wall");
    writeWholeFile(file, virtualWallText(grid, displays));
    const Wall wall = readWall(file);
    return {wall, {}, placeServers({}, static_cast<int>(wall.tiles.size()))};
}

void requireShowable(const Grid& grid)
{
    requireUsable(grid);
    constexpr int mostOfTile = 16384; // of the software renderer's windows
    constexpr int mostOfWall = 32767; // of the X protocol's
    const Size wall = wallSize(grid);
    if (std::max(grid.screen.w, grid.screen.h) > mostOfTile)
        throw std::runtime_error("tiles of " + toText(grid.screen) +
                                 " pixels are too large to be drawn: at most " +
                                 toText({mostOfTile, mostOfTile}));
    if (std::max(wall.w, wall.h) > mostOfWall)
        throw std::runtime_error("the wall would be " + toText(wall) + " pixels: at most " +
                                 toText({mostOfWall, mostOfWall}));
}

// True when the user has asked the servers or their overload libraries to say something.
bool wantsServersLines()
{
    return std::getenv("MOSA_TRACE") || std::getenv("MOSA_STATS") ||
           std::getenv("MOSA_OVERLOAD_FILE");
}

} // namespace

std::vector<VirtualDisplay> openVirtualWall(const Grid& grid, bool show)
{
    requireShowable(grid);
    return startTiles(grid, show ? openWallWindow(userDisplay(), grid) : std::vector<Window>{});
}

std::string virtualWallText(const Grid& grid, const std::vector<VirtualDisplay>& displays)
{
    std::vector<std::string> names;
    for (const VirtualDisplay& display : displays)
        names.push_back(display.name);
    return wallFileText(grid, names, placeServers({}, static_cast<int>(names.size())));
}

int runDemo(const DemoOptions& options)
{
    const PlayOptions& play = options.play;
    LiveOptions live = options.live;
    const std::string picture = std::filesystem::absolute(options.picture);
    requireWritable(picture);
    const bool isLive = !live.program.empty();
    const StreamFile scene = isLive ? StreamFile{} : requireStream(findStream(options.scene));
    Grid grid{options.screens, options.screen, {options.gap, options.gap}};
    if (!grid.screen.w && !isLive)
        grid.screen = programWindow(scene);
    if (!grid.screen.w)
        grid.screen = usualScreen;
    std::vector<VirtualDisplay> displays = openVirtualWall(grid, options.show);
    const ChosenWall chosen = demoWall(grid, displays);
    const Wall& wall = chosen.wall;
    std::optional<JobArea> area;
    if (!options.at.at.empty())
        area = areaOn(wall, options.at);
    const ChosenWall onto = area ? withServersOf(chosen, *area) : chosen;
    LastFrame last = lastFrameOn(wall, {}, play, picture);
    bool pictured = false;
    last.picture = [take = last.picture, &pictured] {
        take();
        pictured = true;
    };
    Job job = isLive ? liveJob(play) : playJob({scene.name}, play, last);
    job.servers = static_cast<int>(onto.wall.tiles.size());
    job.environment = virtualWallEnvironment(wall.file);
    if (area)
        putInArea(job, *area, wallSize(grid));
    if (loadOverloads(job, options.plain) && job.servers > 1 && !play.loose && mayLockFrames())
        lockFrames(job, "", freePort());
    watchNodes(job);
    const std::string what = isLive ? live.program[0] : sceneName(scene.name);
    if (isLive && findProgram(what).empty())
        throw std::runtime_error(what + ": there is no such program");
    std::fprintf(stderr, "%s on a wall of %s tiles of %s pixels\n", what.c_str(),
                 toText(grid.screens).c_str(), toText(grid.screen).c_str());
    job.about = aboutJob(onto, options.name, isLive ? shownBy({}, live) : what, wallSize(grid), area);
    if (isLive) {
        live.samples = mostSamples(displays.front().name, 0, findSystemOpenGL());
        constexpr double usualSeconds = 5;
        if (live.seconds == 0 && live.frames == 0 && !options.show)
            live.seconds = usualSeconds;
        const int status = runLive(job, live, area ? sizeOf(area->area) : wallSize(grid), play.ahead, last,
                                   wantsServersLines() ? stderr : nullptr, !options.show);
        stopDisplays(displays);
        if (pictured)
            std::printf("%s\n", picture.c_str());
        return status;
    }
    const JobEnding ending = watchJob(job, last, demoTime, wantsServersLines() ? stderr : nullptr);
    stopDisplays(displays);

    std::fputs(ending.out.c_str(), stderr); // play's summary
    if (ending.status != 0 || ending.timedOut)
        std::fputs(ending.err.c_str(), stderr);
    if (const int status = reportEnding(ending))
        return status;
    std::printf("%s\n", picture.c_str());
    return 0;
}

void listScenes()
{
    const std::vector<std::string> files = exampleStreams();
    if (files.empty())
        throw std::runtime_error("the examples are not there: name a stream file");
    std::printf("%-18s %-8s %6s %9s\n", "scene", "window", "frames", "bytes");
    for (const std::string& file : files) {
        const StreamFile scene = readStreamFile(file);
        std::printf("%-18s %-8s %6d %9zu\n", sceneName(file).c_str(),
                    toText(programWindow(scene)).c_str(), frameCount(scene), scene.bytes.size());
    }
}
