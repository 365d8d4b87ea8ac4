// What the wall shows: real jobs on virtual displays, the tiles put together against one display.
#include <gtest/gtest.h> // before X and its macros

#include "client/streamFile.h"
#include "tests/scenes.h"
#include "tools/image.h"
#include "tools/mpiJob.h"
#include "tools/virtualDisplays.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

namespace {

struct Grid {
    int columns, rows;
};
constexpr Grid oneDisplay{1, 1};

constexpr Grid manyTiles{2, 2};
#ifdef FEW_WALLS
constexpr bool fewWalls = true;
#else
constexpr bool fewWalls = false;
#endif

// The displays of this process, large enough for every wall below: tiles show their rectangle in
// the upper left corner. The first one serves the walls of one display.
const std::vector<VirtualDisplay>& displays(std::size_t n)
{
    static std::vector<VirtualDisplay> started;
    while (started.size() < n)
        started.push_back(startDisplay(started.empty() ? 1024 : 512, started.empty() ? 768 : 400));
    return started;
}

// The files of one job; each overwrites the last one's.
const std::string streamFile = temporaryFile("");
const std::string wallFile = temporaryFile("");
const std::string picture = temporaryFile("");

// Writes the wall file: tiles from the lower left, row by row upward. Edges need not divide evenly.
void writeWallFile(Grid grid, int width, int height)
{
    std::ofstream text(wallFile);
    std::size_t display = 0;
    for (int row = 0; row < grid.rows; ++row)
        for (int column = 0; column < grid.columns; ++column, ++display) {
            const int x = width * column / grid.columns;
            const int y = height * row / grid.rows;
            text << displays(display + 1)[display].name << ' ' << width << ' ' << height << ' ' << x
                 << ' ' << y << ' ' << width * (column + 1) / grid.columns - x << ' '
                 << height * (row + 1) / grid.rows - y << '\n';
        }
}

// Plays a stream file on a wall and returns what the wall shows.
Image play(const std::string& stream, Grid grid, int width, int height,
           const std::vector<std::string>& more = {})
{
    writeWallFile(grid, width, height);
    std::vector<std::string> environment = virtualWallEnvironment(wallFile);
    environment.insert(environment.end(), more.begin(), more.end());
    const Job job{.client = {PROGRAMS "/play", "--then",
                             PROGRAMS "/mosa-wall snapshot " + wallFile + " -o " + picture, stream},
                  .server = {PROGRAMS "/server"},
                  .servers = grid.columns * grid.rows,
                  .environment = environment,
                  .options = {}};
    const Ending ending = runJob(job, std::chrono::minutes(2));
    EXPECT_EQ(ending.status, 0) << ending.out << ending.err;
    EXPECT_EQ(ending.err.find("Attention"), std::string::npos) << ending.err;
    return readPng(picture);
}

// The same in an area of the stream's own size on a wall of 2 x 2 tiles, which shows the middle
// half of its width and leaves some free above and below. The seams are where those of a wall of
// the area's size are.
Image playInArea(const std::string& stream, int width, int height, bool movable)
{
    static const std::string library = temporaryFile(PROGRAMS "/overload/mosa-area.so\n");
    const int left = -(width / 4), top = height / 5;
    const std::string place = std::to_string(width) + "x" + std::to_string(height) + "+" +
                              std::to_string(left) + "+" + std::to_string(top);
    const int wallWidth = 2 * (width / 2 + left), wallHeight = 2 * (top + height - height / 2);
    const Image wall = play(stream, manyTiles, wallWidth, wallHeight,
                            {"MOSA_OVERLOAD_FILE=" + library, "MOSA_AREA=" + place,
                             std::string("MOSA_AREA_MOVABLE=") + (movable ? "1" : "0")});
    Image seen = makeImage(wallWidth, height);
    copyInto(seen, 0, -top, wall);
    return seen;
}

// What the wall shows of an area, of a picture of all of it.
Image middleOf(const Image& image)
{
    Image middle = makeImage(2 * (image.width / 2 - image.width / 4), image.height);
    copyInto(middle, -(image.width / 4), 0, image);
    return middle;
}

// Interpolated colours may differ in their last bits from tile to tile.
void expectSame(const Image& wall, const Image& expected, double most, const std::string& what)
{
    constexpr int levels = 4;
    const Difference difference = compareImages(wall, expected, levels);
    const double pixels = 1.0 * wall.width * wall.height;
    EXPECT_LE(static_cast<double>(difference.pixels), most)
        << what << ": " << difference.pixels << " of " << pixels << " pixels, by up to "
        << difference.greatest << " of 255";
    if (testing::Test::HasFailure())
        writePng("failed-" + what + ".png", wall);
    std::printf("%s: %ld of %.0f pixels differ by more than %d levels\n", what.c_str(),
                difference.pixels, pixels, levels);
}

constexpr double tileBound = 0.0025; // of a recording's pixels

bool isBlank(const Image& image)
{
    return std::ranges::adjacent_find(image.rgb, std::not_equal_to{}) == image.rgb.end();
}

class Recordings : public testing::TestWithParam<std::string> {};

std::vector<std::string> recordings()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(EXAMPLES))
        if (entry.path().string().find(".mws") != std::string::npos)
            names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

std::string stemOf(const std::string& file) { return file.substr(0, file.find('.')); }

// A real program's last frame, at its own size: on one display what it drew natively, in every
// pixel, and on several the same within the bound.
TEST_P(Recordings, LookAsDrawnNatively)
{
    const std::string stem = stemOf(GetParam());
    const Image native = readPng(EXAMPLES "/reference/" + stem + ".png");
    const std::string stream = EXAMPLES "/" + GetParam();
    const Image single = play(stream, oneDisplay, native.width, native.height);
    // The teapot's own replay without a server differs in a few pixels of its edges too.
    const double allowed = stem == "demos_teapot" ? 0.0002 : 0;
    EXPECT_LE(static_cast<double>(compareImages(single, native).pixels),
              allowed * native.width * native.height);
    if (fewWalls)
        return;
    const Image tiles = play(stream, manyTiles, native.width, native.height);
    expectSame(tiles, native, tileBound * native.width * native.height, stem + " tiles");
    const bool isWhole = stem.size() % 2 == 0; // drawn by every server
    expectSame(playInArea(stream, native.width, native.height, isWhole),
               middleOf(isWhole ? single : tiles), 0, stem + " area");
}

INSTANTIATE_TEST_SUITE_P(Examples, Recordings, testing::ValuesIn(recordings()),
                         [](const auto& test) { return stemOf(test.param); });

class Scenes : public testing::TestWithParam<Scene> {};

// Each feature, enlarged: the tiles together show what one display of the wall's size shows.
TEST_P(Scenes, MeetAtTheSeams)
{
    writeStreamFile(streamFile, {{frameOf(GetParam()), 1}});
    constexpr int width = sceneWidth * wallScale;
    constexpr int height = sceneHeight * wallScale;
    const Image single = play(streamFile, oneDisplay, width, height);
    ASSERT_FALSE(isBlank(single));
    const std::string name = GetParam().name;
    const Image tiles = play(streamFile, manyTiles, width, height);
    expectSame(tiles, single, GetParam().differs, name + " tiles");
    if (!fewWalls)
        expectSame(playInArea(streamFile, width, height, false), middleOf(tiles), GetParam().differs,
                   name + " area");
}

INSTANTIATE_TEST_SUITE_P(Features, Scenes,
                         testing::ValuesIn(allScenes().begin(), allScenes().end()),
                         [](const auto& test) { return test.param.name; });

} // namespace
