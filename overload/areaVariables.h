// How a server hears which area of the wall its job has: by environment variables, which mosa-wall
// sets for all tasks of the job.
#pragma once

#include "coding/display/wallFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

inline constexpr char areaVariable[] = "MOSA_AREA", areaTilesVariable[] = "MOSA_AREA_TILES",
                      areaMovableVariable[] = "MOSA_AREA_MOVABLE";

/// An area as X writes it, WxH+X+Y, but from the wall's upper left always: "+-5" is left of it.
inline std::string areaText(const PixelArea& area, int wallHeight)
{
    std::ostringstream text;
    text << area.w << "x" << area.h << "+" << area.x << "+" << wallHeight - area.y - area.h;
    return text.str();
}

/// Reads it. False when the text is anything else.
inline bool readArea(const char* text, int wallHeight, PixelArea& area)
{
    int left = 0, top = 0, end = 0;
    if (!text ||
        std::sscanf(text, "%dx%d+%d+%d%n", &area.w, &area.h, &left, &top, &end) != 4 ||
        text[end] != '\0' || area.w < 1 || area.h < 1)
        return false;
    area.x = left;
    area.y = wallHeight - top - area.h;
    return true;
}

/// The entry of the wall file that a server of the job takes: MOSA_AREA_TILES names one for each,
/// with commas between; without it a server takes the one of its own number.
inline std::size_t entryOf(std::size_t server)
{
    const char* tiles = std::getenv(areaTilesVariable);
    if (!tiles)
        return server;
    std::istringstream list(tiles);
    std::string tile;
    for (std::size_t n = 0; std::getline(list, tile, ','); ++n)
        if (n == server)
            return static_cast<std::size_t>(std::max(0, std::atoi(tile.c_str())));
    return SIZE_MAX;
}
