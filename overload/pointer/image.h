// The pointer's picture, as large as the wall shows it.
#pragma once

#include "wire/pointerMessages.h"

#include <cstdint>
#include <span>
#include <vector>

#include <xcb/xcb.h>

struct PointerImage {
    int width = 0, height = 0;
    std::vector<std::uint32_t> colours;   // 0xRRGGBB, by rows
    std::vector<xcb_rectangle_t> outline; // what is more opaque than not: runs of its rows
};

/// `pixels` as they come with a shape.
PointerImage enlarged(const PointerShape& shape, std::span<const std::uint32_t> pixels, int width,
                      int height);
