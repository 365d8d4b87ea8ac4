// Walls as drawings, and what they show as pictures.
#pragma once

#include "tools/image.h"
#include "tools/wallLayout.h"

/// The wall as lines of text: a box with its server's number for each tile, dots where none is.
std::string drawAsText(const Wall& wall);

/// Writes a drawing of the wall as a PNG or SVG file, by the name's ending. Throws
/// std::runtime_error.
void drawToFile(const Wall& wall, const std::string& file);

/// What every tile's display shows, put together as on the wall; what no tile shows is grey. A
/// display without a host is one of this machine's or, with places, of its server's node. Throws
/// std::runtime_error.
Image snapshotWall(const Wall& wall, const std::vector<Place>& places = {});
