// Walls: what a wall file says, and files for grids of equal screens. The wall's y axis points up,
// as everywhere but in pictures.
#pragma once

#include "coding/display/wallFile.h"

#include <string>
#include <vector>

struct Size {
    int w = 0, h = 0;
};

inline Size sizeOf(const PixelArea& area) { return {area.w, area.h}; }

/// Millimetres, as they are measured.
struct Measure {
    double w = 0, h = 0;
};

/// Read "4x2" and "1209.6x680". False when the text is anything else.
bool parseSize(const std::string& text, Size& size);
bool parseSize(const std::string& text, Measure& size);
std::string toText(Size size);

/// A server's line of the file.
struct WallTile {
    int line;
    bool readable; // false: the servers refuse the line, there is no entry
    WallEntry entry;
};

/// A wall file; tile n is server n's.
struct Wall {
    std::string file;
    std::vector<WallTile> tiles;
};

/// Reads a wall file as the servers do. Throws std::runtime_error when it cannot be opened.
Wall readWall(const std::string& file);

/// The same, for a wall to be shown: throws std::runtime_error when it has no tile, a line that the
/// servers refuse or no size.
Wall readUsableWall(const std::string& file);

/// The wall's size, by its first entry. What its area shows is counted from the bottom.
Size wallSize(const Wall& wall);

/// A node and how many servers it runs.
struct Host {
    std::string name;
    int servers = 1;
};

/// Reads a host file: a line "NAME" or "NAME:SERVERS" per node, in the order of the servers; "#"
/// begins a comment. Throws std::runtime_error with the line's number.
std::vector<Host> readHosts(const std::string& file);

/// The hosts of a wall file itself, in comments that servers skip: a line "#host NAME:SERVERS" for
/// each. Empty when it has none. Throws likewise.
std::vector<Host> hostsIn(const std::string& wallFile);
std::string hostLines(const std::vector<Host>& hosts);

/// The node of each of the first n servers; without hosts all are on this machine, and names are
/// empty. Throws std::runtime_error when the hosts are for fewer.
struct Place {
    std::string host;
    int onHost = 0; // how many servers stand before it on that host
};
std::vector<Place> placeServers(const std::vector<Host>& hosts, int n);

/// A grid of equal screens, numbered from the upper left, row by row.
struct Grid {
    Size screens{2, 2};
    Size screen{300, 300};
    Size bezel; // pixels of the wall that lie between two screens
};

/// Throws std::runtime_error for a grid that makes no wall.
void requireUsable(const Grid& grid);

/// The bezel for a screen whose picture measures so much, with so much between its visible edge and
/// the next picture's. Rounded to whole pixels, since servers show whole ones alone; every bezel is
/// the same, and at most half a pixel off. Throws std::runtime_error for what nobody can have
/// measured.
Size bezelPixels(Size screen, const Measure& picture, const Measure& between);

Size wallSize(const Grid& grid);
PixelArea areaOf(const Grid& grid, int server);

/// The wall file of a grid, with the display of each server and comments that say which screen is
/// which.
std::string wallFileText(const Grid& grid, const std::vector<std::string>& displays,
                         const std::vector<Place>& places);
