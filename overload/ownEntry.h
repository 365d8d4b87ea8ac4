// What the wall file says of this server's display: for overload libraries. Behind the one for
// areas it is the file of the job's area.
#pragma once

#include "coding/display/wallFile.h"
#include "coding/serverProcess.h"

#include <cstdlib>
#include <fstream>

/// False where there is no entry: the server will say so.
inline bool readOwnEntry(WallEntry& entry)
{
    const char* const name = std::getenv("MOSA_DISPLAY");
    std::ifstream file(name ? name : "");
    const auto own = static_cast<std::size_t>(serverID);
    const std::vector<WallLine> lines = readWallLines(file, own + 1);
    return lines.size() > own && parseWallEntry(lines[own].text, entry);
}
