// Where a place in the program's window is on the wall.
#pragma once

#include "client/placement.h"
#include "wire/pointerMessages.h"

#include <algorithm>

/// The wall, and how the program's window is put on it.
struct PointerWall {
    int width = 0, height = 0;                 // in pixels; 0: no pointer is shown
    bool isMiddle = true, isStretched = false; // else in the lower left corner
};

/// `x` and `y` from the upper left, like the place.
inline PointerPlace placeOnWall(const PointerWall& wall, int x, int y, int width, int height)
{
    const double across = double{1} * wall.width / width, down = double{1} * wall.height / height;
    if (wall.isStretched)
        return {.number = 0,
                .window = 0,
                .x = x * across,
                .y = y * down,
                .scaleX = across,
                .scaleY = down};
    const Placement area = wall.isMiddle ? inMiddle(width, height, wall.width, wall.height)
                                         : Placement{0, 0, width, height};
    const double scale =
        std::min(double{1} * wall.width / area.width, double{1} * wall.height / area.height);
    return {.number = 0,
            .window = 0,
            .x = scale * (area.dx + x),
            .y = wall.height - scale * (area.dy + height - y),
            .scaleX = scale,
            .scaleY = scale};
}
