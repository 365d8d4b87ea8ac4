#include "overload/pointer/image.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using Colour = std::array<double, 4>; // blue, green, red, alpha

// Between two pixels of a row or a column: their numbers, and the part of the second.
struct Between {
    int first, second;
    double part;
};

Between between(int at, int extent, int ofShape)
{
    const double place = (at + 0.5) * ofShape / extent - 0.5;
    const int before = static_cast<int>(std::floor(place));
    return {std::clamp(before, 0, ofShape - 1), std::clamp(before + 1, 0, ofShape - 1),
            place - before};
}

Colour mixed(const PointerShape& shape, std::span<const std::uint32_t> pixels, const Between& x,
             const Between& y)
{
    Colour colour{};
    const auto add = [&](int column, int row, double part) {
        const std::uint32_t pixel = pixels[static_cast<std::size_t>(row * shape.width + column)];
        for (std::size_t i = 0; i < colour.size(); ++i)
            colour[i] += part * (pixel >> (8 * i) & 0xff);
    };
    add(x.first, y.first, (1 - x.part) * (1 - y.part));
    add(x.second, y.first, x.part * (1 - y.part));
    add(x.first, y.second, (1 - x.part) * y.part);
    add(x.second, y.second, x.part * y.part);
    return colour;
}

} // namespace

PointerImage enlarged(const PointerShape& shape, std::span<const std::uint32_t> pixels, int width,
                      int height)
{
    PointerImage image{.width = width, .height = height, .colours = {}, .outline = {}};
    image.colours.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        const Between row = between(y, height, shape.height);
        bool wasOpaque = false;
        for (int x = 0; x < width; ++x) {
            const Colour colour = mixed(shape, pixels, between(x, width, shape.width), row);
            const double alpha = colour[3];
            const bool isOpaque = alpha >= 128;
            std::uint32_t pixel = 0;
            for (std::size_t i = 0; isOpaque && i < 3; ++i)
                pixel |= static_cast<std::uint32_t>(
                             std::lround(std::min(255.0, 255 * colour[i] / alpha)))
                         << (8 * i);
            image.colours.push_back(pixel);
            if (isOpaque && wasOpaque)
                ++image.outline.back().width;
            else if (isOpaque)
                image.outline.push_back(
                    {static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 1, 1});
            wasOpaque = isOpaque;
        }
    }
    return image;
}
