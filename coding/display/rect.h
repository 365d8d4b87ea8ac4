// Rectangles of the wall, and how their coordinates become whole pixels.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

/// A rectangle in pixels, origin at the lower left, y upward.
struct MWRect {
    float x, y, w, h;
};

/// Converts toward zero. Values beyond an int give the nearest int, and no number gives 0.
inline int truncate(double value)
{
    using Limits = std::numeric_limits<int>;
    if (std::isnan(value))
        return 0;
    return static_cast<int>(std::clamp(value, double{Limits::min()}, double{Limits::max()}));
}
