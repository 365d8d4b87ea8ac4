// Where a window stands in the area that is stretched over the wall, in the window's pixels.
#pragma once

#include <cstdint>

/// The area, and the window's lower left corner in it.
struct Placement {
    int dx, dy, width, height;
};

/// In the middle of the smallest area of the wall's shape; all of it where a size is not known.
inline Placement inMiddle(int width, int height, int wallWidth, int wallHeight)
{
    Placement area{0, 0, width, height};
    if (wallWidth <= 0 || wallHeight <= 0 || width <= 0 || height <= 0)
        return area;
    const std::int64_t across = std::int64_t{width} * wallHeight;
    const std::int64_t down = std::int64_t{height} * wallWidth;
    if (across < down) {
        area.width = static_cast<int>((down + wallHeight - 1) / wallHeight);
        area.dx = (area.width - width) / 2;
    } else if (down < across) {
        area.height = static_cast<int>((across + wallWidth - 1) / wallWidth);
        area.dy = (area.height - height) / 2;
    }
    return area;
}
