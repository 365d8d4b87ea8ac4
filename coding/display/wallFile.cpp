#include "coding/display/wallFile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {
constexpr char blank[] = " \t\n\v\f\r";
}

std::vector<WallLine> readWallLines(std::istream& file, std::size_t most)
{
    std::vector<WallLine> lines;
    std::string text;
    for (int number = 1; lines.size() < most && std::getline(file, text); ++number) {
        const std::size_t first = text.find_first_not_of(blank);
        if (first != std::string::npos && text[first] != '#')
            lines.push_back({number, text});
    }
    return lines;
}

bool parseWallEntry(const std::string& line, WallEntry& entry)
{
    const std::size_t first = line.find_first_not_of(blank);
    const std::size_t colon = line.find(':');
    if (first == std::string::npos || colon == std::string::npos)
        return false;
    int display = 0; // part of the name, of no interest here
    std::sscanf(line.c_str() + colon + 1, "%d.%d", &display, &entry.scrn);

    const std::size_t end = std::min(line.find_first_of(" \t\r", colon), line.size());
    entry.dpyName = line.substr(first, end - first);
    MWRect& rect = entry.rect;
    int used = 0; // characters up to behind the sixth number
    const int numbers = std::sscanf(line.c_str() + end, "%d%d%f%f%f%f%n", &entry.vWidth,
                                    &entry.vHeight, &rect.x, &rect.y, &rect.w, &rect.h, &used);
    entry.numbers = std::max(numbers, 0); // at the end of the line there is nothing to read
    if (used > 0)
        entry.rest = line.substr(end + static_cast<std::size_t>(used));
    return true;
}

PixelArea areaOf(const WallEntry& entry)
{
    const auto whole = [](double edge) {
        return static_cast<int>(std::fmin(std::fmax(std::trunc(edge), -1e9), 1e9));
    };
    const MWRect& rect = entry.rect;
    const int x = whole(rect.x);
    const int y = whole(rect.y);
    return {x, y, whole(double{rect.x} + rect.w) - x, whole(double{rect.y} + rect.h) - y};
}

PixelArea commonArea(const PixelArea& a, const PixelArea& b)
{
    const int x = std::max(a.x, b.x);
    const int y = std::max(a.y, b.y);
    return {x, y, std::min(a.x + a.w, b.x + b.w) - x, std::min(a.y + a.h, b.y + b.h) - y};
}
