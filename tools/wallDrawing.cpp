#include "tools/wallDrawing.h"
#include "client/wholeFile.h"
#include "tools/lettering.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>
#include <stdexcept>

namespace {

using Color = std::array<std::uint8_t, 3>;
constexpr Color bare{64, 64, 64};
constexpr Color tileFill{190, 215, 240};
constexpr Color ink{20, 40, 80};

void fill(Image& image, int left, int top, int w, int h, Color color)
{
    for (int y = std::max(top, 0); y < std::min(top + h, image.height); ++y)
        for (int x = std::max(left, 0); x < std::min(left + w, image.width); ++x)
            std::ranges::copy(color, pixelAt(image, x, y));
}

// The tiles that can be drawn, with their servers.
struct DrawnTile {
    int server;
    PixelArea area;
};

std::vector<DrawnTile> drawnTiles(const Wall& wall)
{
    std::vector<DrawnTile> tiles;
    for (std::size_t n = 0; n < wall.tiles.size(); ++n) {
        const PixelArea area = areaOf(wall.tiles[n].entry);
        if (wall.tiles[n].readable && area.w > 0 && area.h > 0)
            tiles.push_back({static_cast<int>(n), area});
    }
    return tiles;
}

Size drawnSize(const Wall& wall)
{
    for (const WallTile& tile : wall.tiles)
        if (tile.readable && tile.entry.vWidth > 0 && tile.entry.vHeight > 0)
            return {tile.entry.vWidth, tile.entry.vHeight};
    return {};
}

void writeSvg(const Wall& wall, const std::string& file)
{
    std::ostringstream svg;
    const Size size = drawnSize(wall);
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << size.w << ' ' << size.h
        << "\">\n<rect width=\"100%\" height=\"100%\" fill=\"#404040\"/>\n";
    for (const DrawnTile& tile : drawnTiles(wall)) {
        const PixelArea& area = tile.area;
        const int top = size.h - area.y - area.h;
        const int height = std::max(std::min(area.w, area.h) / 4, 1);
        svg << "<rect x=\"" << area.x << "\" y=\"" << top << "\" width=\"" << area.w
            << "\" height=\"" << area.h
            << "\" fill=\"#bed7f0\" fill-opacity=\"0.8\" stroke=\"#142850\" stroke-width=\"2\" "
               "vector-effect=\"non-scaling-stroke\"/>\n"
            << "<text x=\"" << area.x + area.w / 2 << "\" y=\"" << top + area.h / 2
            << "\" font-size=\"" << height
            << "\" font-family=\"sans-serif\" text-anchor=\"middle\" "
               "dominant-baseline=\"central\" fill=\"#142850\">"
            << tile.server << "<title>" << toText({area.w, area.h}) << " at (" << area.x << ", "
            << area.y << ")</title></text>\n";
    }
    svg << "</svg>\n";
    writeWholeFile(file, svg.str());
}

Image drawAsImage(const Wall& wall)
{
    constexpr double longest = 1000;
    const Size size = drawnSize(wall);
    const double scale = longest / std::max({size.w, size.h, 1});
    const auto scaled = [scale](int pixels) {
        return static_cast<int>(std::lround(pixels * scale));
    };
    Image image = makeImage(std::max(scaled(size.w), 1), std::max(scaled(size.h), 1));
    fill(image, 0, 0, image.width, image.height, bare);
    for (const DrawnTile& tile : drawnTiles(wall)) {
        const PixelArea& area = tile.area;
        const int left = scaled(area.x);
        const int bottom = image.height - scaled(area.y);
        const int w = scaled(area.x + area.w) - left;
        const int h = bottom - (image.height - scaled(area.y + area.h));
        fill(image, left, bottom - h, w, h, ink);
        fill(image, left + 1, bottom - h + 1, w - 2, h - 2, tileFill);
        const std::string number = std::to_string(tile.server);
        const int block = std::max(std::min(w, h) / (4 * letterHeight), 1);
        const int textLeft =
            left + (w - static_cast<int>(number.size()) * letterAdvance * block) / 2;
        const int textBottom = bottom - (h - letterHeight * block) / 2;
        letterBlocks(number, [&](int x, int y, int run) {
            fill(image, textLeft + x * block, textBottom - (y + 1) * block, run * block, block,
                 ink);
        });
    }
    return image;
}

} // namespace

std::string drawAsText(const Wall& wall)
{
    const Size size = drawnSize(wall);
    if (size.w <= 0)
        return {};
    // A character is about twice as high as wide.
    constexpr int mostColumns = 72;
    constexpr int mostRows = 36;
    double scale = 1.0 * mostColumns / size.w; // columns per pixel
    scale = std::min(scale, 2.0 * mostRows / size.h);
    const auto column = [scale](int x) { return static_cast<int>(std::lround(x * scale)); };
    const int rows = std::max(static_cast<int>(std::lround(size.h * scale / 2)), 2);
    const auto row = [&](int y) {
        return rows - static_cast<int>(std::lround(1.0 * y * rows / size.h));
    };
    std::vector<std::string> lines(static_cast<std::size_t>(rows) + 1,
                                   std::string(static_cast<std::size_t>(column(size.w)) + 1, '.'));
    const auto put = [&lines](int x, int y, char c) {
        if (y >= 0 && y < static_cast<int>(lines.size()) && x >= 0 &&
            x < static_cast<int>(lines[0].size()))
            lines[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)] = c;
    };
    for (const DrawnTile& tile : drawnTiles(wall)) {
        const PixelArea& area = tile.area;
        const int left = column(area.x);
        const int right = column(area.x + area.w);
        const int top = row(area.y + area.h);
        const int bottom = row(area.y);
        for (int y = std::max(top, 0); y <= std::min(bottom, rows); ++y)
            for (int x = std::max(left, 0); x <= std::min(right, column(size.w)); ++x) {
                const bool side = x == left || x == right;
                const bool level = y == top || y == bottom;
                put(x, y, side && level ? '+' : side ? '|' : level ? '-' : ' ');
            }
        const std::string number = std::to_string(tile.server);
        int x = (left + right + 1 - static_cast<int>(number.size())) / 2;
        for (const char digit : number)
            put(x++, (top + bottom) / 2, digit);
    }
    std::string text;
    for (const std::string& line : lines)
        text += line + '\n';
    return text;
}

void drawToFile(const Wall& wall, const std::string& file)
{
    if (drawnSize(wall).w <= 0)
        throw std::runtime_error(wall.file + ": there is no wall to draw");
    if (file.ends_with(".svg"))
        writeSvg(wall, file);
    else if (file.ends_with(".png"))
        writePng(file, drawAsImage(wall));
    else
        throw std::runtime_error(file + ": a drawing's name ends in .png or .svg");
}

Image snapshotWall(const Wall& wall, const std::vector<Place>& places)
{
    const Size size = wallSize(wall);
    Image picture = makeImage(size.w, size.h);
    fill(picture, 0, 0, size.w, size.h, bare);
    for (std::size_t n = 0; n < wall.tiles.size(); ++n) {
        const WallEntry& entry = wall.tiles[n].entry;
        std::string display = entry.dpyName;
        if (n < places.size() && display.starts_with(':'))
            display = places[n].host + display;
        const Image screen = grabDisplay(display, entry.scrn);
        PixelArea area = areaOf(entry);
        if (entry.rect.w == 0) {
            area.w = screen.width;
            area.h = screen.height;
        }
        if (area.w <= 0 || area.h <= 0)
            continue;
        // The servers draw into the upper left corner of a screen that is larger than its part.
        Image tile = makeImage(std::min(area.w, screen.width), std::min(area.h, screen.height));
        copyInto(tile, 0, 0, screen);
        copyInto(picture, area.x, size.h - area.y - area.h, tile);
    }
    return picture;
}
