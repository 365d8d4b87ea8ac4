#include "tools/wallLayout.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace {

std::ifstream openFile(const std::string& name)
{
    std::ifstream file(name);
    if (!file)
        throw std::runtime_error(name + ": " + std::strerror(errno));
    return file;
}

[[noreturn]] void failAt(const std::string& file, int line, const std::string& what)
{
    throw std::runtime_error(file + ", line " + std::to_string(line) + ": " + what);
}

// Names become arguments of ssh and mpiexec, which would take others for options or for several.
bool isHostName(const std::string& name)
{
    return !name.starts_with('-') && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                                                            "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                            "0123456789.-_") == name.npos;
}

// "row 1 of 2 from the top, column 3 of 4 from the left"
std::string placeInGrid(const Grid& grid, int server)
{
    std::ostringstream text;
    text << "row " << server / grid.screens.w + 1 << " of " << grid.screens.h
         << " from the top, column " << server % grid.screens.w + 1 << " of " << grid.screens.w
         << " from the left";
    return text.str();
}

template <class Number>
bool parsePair(const std::string& text, Number& w, Number& h)
{
    char by = 0;
    std::istringstream in(text);
    in >> w >> by >> h;
    const auto sensible = [](Number n) { return n >= 0 && n <= 1'000'000; };
    return in && by == 'x' && in.peek() == EOF && sensible(w) && sensible(h);
}

} // namespace

bool parseSize(const std::string& text, Size& size) { return parsePair(text, size.w, size.h); }
bool parseSize(const std::string& text, Measure& size) { return parsePair(text, size.w, size.h); }

std::string toText(Size size) { return std::to_string(size.w) + "x" + std::to_string(size.h); }

Wall readWall(const std::string& file)
{
    std::ifstream in = openFile(file);
    Wall wall{file, {}};
    for (const WallLine& line : readWallLines(in)) {
        WallTile tile{line.number, false, {}};
        tile.readable = parseWallEntry(line.text, tile.entry);
        wall.tiles.push_back(tile);
    }
    return wall;
}

Wall readUsableWall(const std::string& file)
{
    Wall wall = readWall(file);
    if (wall.tiles.empty())
        throw std::runtime_error(file + ": no server has an entry in this file");
    for (const WallTile& tile : wall.tiles) {
        if (!tile.readable)
            failAt(file, tile.line, "there is no X display name");
        if (tile.entry.vWidth <= 0 || tile.entry.vHeight <= 0)
            failAt(file, tile.line, "the wall has no size");
    }
    return wall;
}

Size wallSize(const Wall& wall)
{
    const WallEntry& entry = wall.tiles.at(0).entry;
    return {entry.vWidth, entry.vHeight};
}

namespace {

// Reads "NAME" or "NAME:SERVERS".
Host parseHost(const std::string& text, const std::string& file, int line)
{
    std::istringstream words(text);
    std::string word, more;
    words >> word;
    Host host;
    const std::size_t colon = word.find(':');
    host.name = word.substr(0, colon);
    if (colon != std::string::npos) {
        std::istringstream count(word.substr(colon + 1));
        if (!(count >> host.servers) || !count.eof() || host.servers < 1)
            failAt(file, line, "\"" + word + "\" should read NAME or NAME:SERVERS");
    }
    if (host.name.empty() || words >> more)
        failAt(file, line, "a line holds one host, NAME or NAME:SERVERS");
    if (!isHostName(host.name))
        failAt(file, line,
               "\"" + host.name +
                   "\" is no host name: letters, digits, points, hyphens and underscores, with no "
                   "hyphen first");
    return host;
}

constexpr std::string_view hostMark = "#host ";

} // namespace

std::vector<Host> readHosts(const std::string& file)
{
    std::ifstream in = openFile(file);
    std::vector<Host> hosts;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        line = line.substr(0, line.find('#'));
        if (line.find_first_not_of(" \t\r\v\f") != line.npos)
            hosts.push_back(parseHost(line, file, number));
    }
    return hosts;
}

std::vector<Host> hostsIn(const std::string& wallFile)
{
    std::ifstream in = openFile(wallFile);
    std::vector<Host> hosts;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.starts_with(hostMark))
            hosts.push_back(parseHost(line.substr(hostMark.size()), wallFile, number));
    }
    return hosts;
}

std::string hostLines(const std::vector<Host>& hosts)
{
    std::string text = hosts.empty() ? "" : "# The servers' nodes, in their order.\n";
    for (const Host& host : hosts)
        text += std::string(hostMark) + host.name + ":" + std::to_string(host.servers) + "\n";
    return text;
}

std::vector<Place> placeServers(const std::vector<Host>& hosts, int n)
{
    std::vector<Place> places;
    for (const Host& host : hosts)
        for (int i = 0; i < host.servers; ++i)
            places.push_back({host.name, i});
    if (!hosts.empty() && places.size() < static_cast<std::size_t>(n))
        throw std::runtime_error("the wall has " + std::to_string(n) +
                                 " servers, the host file has places for " +
                                 std::to_string(places.size()));
    for (int i = 0; hosts.empty() && i < n; ++i)
        places.push_back({"", i});
    places.resize(static_cast<std::size_t>(n));
    return places;
}

void requireUsable(const Grid& grid)
{
    const auto require = [](bool holds, const char* otherwise) {
        if (!holds)
            throw std::runtime_error(otherwise);
    };
    require(grid.screens.w > 0 && grid.screens.h > 0, "the wall has no screens");
    require(grid.screen.w > 0 && grid.screen.h > 0, "the screens have no pixels");
    require(1.0 * grid.screens.w * grid.screens.h <= 10'000, "the wall has too many screens");
    require(1.0 * grid.screens.w * (grid.screen.w + grid.bezel.w) < 1e9 &&
                1.0 * grid.screens.h * (grid.screen.h + grid.bezel.h) < 1e9,
            "the wall is too large");
}

Size bezelPixels(Size screen, const Measure& picture, const Measure& between)
{
    const auto inText = [](const Measure& size) {
        std::ostringstream text;
        text << size.w << "x" << size.h << " mm";
        return text.str();
    };
    if (picture.w <= 0 || picture.h <= 0)
        throw std::runtime_error("a screen's picture of " + inText(picture) + " has no size");
    const Measure perMm{screen.w / picture.w, screen.h / picture.h};
    constexpr double notSquare = 1.1; // beyond all errors of a ruler
    if (std::fmax(perMm.w / perMm.h, perMm.h / perMm.w) > notSquare)
        throw std::runtime_error("pixels of a picture of " + inText(picture) + " with " +
                                 toText(screen) +
                                 " of them are not square: it is the visible picture's width and "
                                 "height; for screens that stretch their picture there is --bezel, "
                                 "in pixels");
    if (between.w > picture.w || between.h > picture.h)
        throw std::runtime_error(inText(between) + " between two pictures of " + inText(picture) +
                                 " is more than a picture");
    return {static_cast<int>(std::lround(between.w * perMm.w)),
            static_cast<int>(std::lround(between.h * perMm.h))};
}

Size wallSize(const Grid& grid)
{
    return {grid.screens.w * (grid.screen.w + grid.bezel.w) - grid.bezel.w,
            grid.screens.h * (grid.screen.h + grid.bezel.h) - grid.bezel.h};
}

PixelArea areaOf(const Grid& grid, int server)
{
    const int column = server % grid.screens.w;
    const int rowFromBottom = grid.screens.h - 1 - server / grid.screens.w;
    return {column * (grid.screen.w + grid.bezel.w), rowFromBottom * (grid.screen.h + grid.bezel.h),
            grid.screen.w, grid.screen.h};
}

std::string wallFileText(const Grid& grid, const std::vector<std::string>& displays,
                         const std::vector<Place>& places)
{
    const Size wall = wallSize(grid);
    std::ostringstream text;
    text << "# A wall of " << toText(grid.screens) << " screens of " << toText(grid.screen)
         << " pixels";
    if (grid.bezel.w || grid.bezel.h)
        text << " with " << toText(grid.bezel) << " pixels of bezel between them";
    text << ".\n# One line per server: X display, size of the wall, then x, y, width and height of"
            "\n# the part that it shows, counted from the wall's lower left corner.\n";
    for (int server = 0; server < grid.screens.w * grid.screens.h; ++server) {
        const auto n = static_cast<std::size_t>(server);
        const PixelArea area = areaOf(grid, server);
        text << "# server " << server << ": " << placeInGrid(grid, server);
        if (!places[n].host.empty())
            text << ", on " << places[n].host;
        text << "\n"
             << displays[n] << ' ' << wall.w << ' ' << wall.h << ' ' << area.x << ' ' << area.y
             << ' ' << area.w << ' ' << area.h << '\n';
    }
    return text.str();
}
