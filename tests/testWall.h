// A wall of two small tiles, and what it is expected to show.
#pragma once

#include "tests/jobSupport.h"
#include "tools/image.h"
#include "tools/virtualDisplays.h"

#include <functional>

namespace fs = std::filesystem;

enum Colour { red = 1, green, blue };

constexpr int tileWidth = 120, tileHeight = 90; // two tiles, side by side

// A wall for jobs of this test alone, as mosa-wall finds them.
struct TestWall {
    fs::path runtime = temporaryFile("");
    std::vector<VirtualDisplay> displays = startDisplays(2, tileWidth, tileHeight);
    std::string file;
    Strings environment;
    std::vector<Process> jobs;

    TestWall()
    {
        fs::remove(runtime);
        fs::create_directory(runtime);
        fs::permissions(runtime, fs::perms::owner_all);
        file = temporaryFile(displays[0].name + " 240 90 0 0 120 90\n" + displays[1].name +
                             " 240 90 120 0 120 90\n");
        environment = virtualWallEnvironment(file);
        environment.push_back("XDG_RUNTIME_DIR=" + runtime.string());
        environment.push_back("TMPDIR=" + runtime.string());
        environment.push_back("MOSA_FRAMELOCK_HOLD=100000"); // until all are there
    }
    ~TestWall()
    {
        for (Process& job : jobs)
            stopProcess(job);
        stopDisplays(displays);
        fs::remove_all(runtime);
    }
};

struct Painted {
    int x, y, w, h; // from the wall's upper left
    Colour colour;
};

// The wall that is expected, painted from the bottom up.
inline Image painted(const std::vector<Painted>& areas)
{
    Image image = makeImage(2 * tileWidth, tileHeight);
    for (const auto& [left, top, w, h, colour] : areas)
        for (int y = std::max(0, top); y < std::min(tileHeight, top + h); ++y)
            for (int x = std::max(0, left); x < std::min(2 * tileWidth, left + w); ++x)
                for (int i = 0; i < 3; ++i)
                    pixelAt(image, x, y)[i] = colour == i + 1 ? 255 : 0;
    return image;
}

inline Image shown(const TestWall& wall)
{
    Image image = makeImage(2 * tileWidth, tileHeight);
    for (int i = 0; i < 2; ++i)
        copyInto(image, i * tileWidth, 0,
                 grabDisplay(wall.displays[static_cast<std::size_t>(i)].name));
    return image;
}

inline bool equals(const Image& a, const Image& b) { return compareImages(a, b).pixels == 0; }

// Waits until the wall shows this; `meanwhile` is asked of everything that it shows until then.
inline void expectShown(const TestWall& wall, const Image& expected, const std::string& what,
                        const std::function<bool(const Image&)>& meanwhile = {})
{
    const Clock::time_point until = Clock::now() + std::chrono::seconds(60);
    Image now;
    do {
        now = shown(wall);
        if (meanwhile && !meanwhile(now)) {
            writePng("failed-areas.png", now);
            FAIL() << what << ": see failed-areas.png";
        }
    } while (!equals(now, expected) && Clock::now() < until);
    EXPECT_TRUE(equals(now, expected)) << what;
    if (testing::Test::HasFailure())
        writePng("failed-areas.png", now);
}
