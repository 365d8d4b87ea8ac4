#include "client/wallDemo.h"
#include "client/jobOutput.h"
#include "client/locations.h"
#include "client/virtualDisplays.h"
#include "client/wallRun.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace {

constexpr Timeout demoTime = std::chrono::minutes(10);
constexpr Size usualScreen{300, 300};

struct CloseDisplay {
    void operator()(Display* dpy) const { XCloseDisplay(dpy); }
};
using DisplayHandle = std::unique_ptr<Display, CloseDisplay>;

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
    for (const Window window : windows) {
        DisplayOptions options;
        options.argv = {"Xephyr", "-parent", std::to_string(window)};
        displays.push_back(startDisplay(grid.screen.w, grid.screen.h, options));
    }
    return displays;
}

std::string demoWallFile(const Grid& grid, const std::vector<VirtualDisplay>& displays)
{
    std::vector<std::string> names;
    for (const VirtualDisplay& display : displays)
        names.push_back(display.name);
    return temporaryFile(
        wallFileText(grid, names, placeServers({}, static_cast<int>(names.size()))));
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

int runDemo(const DemoOptions& options)
{
    const Scene scene = findScene(options.scene);
    Grid grid{options.screens, options.screen, {options.gap, options.gap}};
    if (!grid.screen.w)
        grid.screen = scene.width ? Size{scene.width, scene.height} : usualScreen;
    requireShowable(grid);
    const std::string picture = std::filesystem::absolute(options.picture);
    requireWritable(picture);
    std::filesystem::remove(picture); // only this run's picture counts
    requireStream(scene.file);

    DisplayHandle user;
    std::vector<Window> windows;
    if (options.show) {
        user.reset(XOpenDisplay(nullptr));
        if (!user)
            throw std::runtime_error("--show needs an X display: DISPLAY names none that answers");
        windows = openWallWindow(user.get(), grid);
    }
    std::vector<VirtualDisplay> displays = startTiles(grid, windows);
    const std::string wallFile = demoWallFile(grid, displays);

    Job job;
    // The picture is taken when the last frame is on every tile.
    job.client = {playProgram(), scene.file,
                  "--loop",      std::to_string(options.loop),
                  "--then",      shellLine({ownProgram(), "snapshot", wallFile, "-o", picture})};
    job.server = {serverProgram()};
    job.servers = static_cast<int>(displays.size());
    job.environment = virtualWallEnvironment(wallFile);
    std::fprintf(stderr, "%s on a wall of %s tiles of %s pixels\n", scene.name.c_str(),
                 toText(grid.screens).c_str(), toText(grid.screen).c_str());
    const JobEnding ending = watchJob(job, demoTime, wantsServersLines() ? stderr : nullptr);
    stopDisplays(displays);

    std::fputs(ending.out.c_str(), stderr); // play's summary
    if (!ending.interruptedBy && (ending.status != 0 || ending.timedOut))
        std::fputs(ending.err.c_str(), stderr);
    if (const int status = reportEnding(ending))
        return status;
    std::printf("%s\n", picture.c_str());
    return 0;
}

void listScenes()
{
    for (const Scene& scene : readScenes())
        std::printf("%-18s %s\n", scene.name.c_str(), scene.about.c_str());
}
