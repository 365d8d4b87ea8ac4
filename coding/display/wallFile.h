// The wall configuration file: one line per server, in the order of the server IDs.
#pragma once

#include "coding/display/rect.h"

#include <istream>
#include <string>
#include <vector>

/// A line of the file that is an entry, not a comment and not blank.
struct WallLine {
    int number; // counted from 1
    std::string text;
};

/// What one entry says.
struct WallEntry {
    std::string dpyName;
    int scrn = 0;
    int vWidth = 0, vHeight = 0; // the whole wall
    MWRect rect{};    // what the display shows; a width of 0 stands for all of the screen
    int numbers = 0;  // how many of the six are there; those missing are 0
    std::string rest; // what follows the numbers and is not read
};

/// Whole pixels of the wall, y upward.
struct PixelArea {
    int x, y, w, h;
};

/// The entries of a file, up to the first `most` of them.
std::vector<WallLine> readWallLines(std::istream& file, std::size_t most = SIZE_MAX);

/// Reads an entry. False when the line has no X display name, that is no colon.
bool parseWallEntry(const std::string& line, WallEntry& entry);

/// What a tile shows, in whole pixels: fractions truncate, at both edges. The size is that of the
/// screen, 0 here, for a rectangle of width 0.
PixelArea areaOf(const WallEntry& entry);

/// What two areas have in common; where that is nothing it is empty.
PixelArea commonArea(const PixelArea& a, const PixelArea& b);
inline bool isEmpty(const PixelArea& area) { return area.w <= 0 || area.h <= 0; }
