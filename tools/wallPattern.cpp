#include "tools/wallPattern.h"
#include "client/programWindow.h"
#include "tools/lettering.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

namespace {

// The application's handles, which stand for themselves only.
constexpr AppDisplay display(1U);
constexpr AppVisual visual(2U);
constexpr AppContext context(3U);
constexpr AppDrawable window(4U);
constexpr GLuint stillList = 1; // the part of the picture that does not move

struct PatternTile {
    int server;
    PixelArea area;
    std::string display;
};

std::vector<PatternTile> patternTiles(const Wall& wall)
{
    const Size size = wallSize(wall);
    std::vector<PatternTile> tiles;
    for (std::size_t n = 0; n < wall.tiles.size(); ++n) {
        const WallEntry& entry = wall.tiles[n].entry;
        PixelArea area = areaOf(entry);
        if (entry.rect.w == 0) { // all of a screen, whose size only its node knows
            area.w = size.w - area.x;
            area.h = size.h - area.y;
        }
        if (area.w > 0 && area.h > 0)
            tiles.push_back({static_cast<int>(n), area, entry.dpyName});
    }
    return tiles;
}

void rectangle(CommandBuffer& out, double x, double y, double w, double h)
{
    encode<Op::glRectf>(out, static_cast<float>(x), static_cast<float>(y),
                        static_cast<float>(x + w), static_cast<float>(y + h));
}

void text(CommandBuffer& out, const std::string& words, int x, int y, int block)
{
    letterBlocks(words, [&](int column, int row, int run) {
        rectangle(out, x + column * block, y + row * block, run * block, block);
    });
}

int textWidth(const std::string& words, int block)
{
    return (static_cast<int>(words.size()) * letterAdvance - 1) * block;
}

// A colour per server; neighbours in number are far apart.
void tileColor(CommandBuffer& out, int server)
{
    const double hue = server * 0.381966 * 2 * std::numbers::pi;
    const auto part = [hue](double turn) {
        return static_cast<float>(0.65 + 0.35 * std::cos(hue + turn));
    };
    encode<Op::glColor3f>(out, part(0), part(2.1), part(4.2));
}

int shortestSide(const std::vector<PatternTile>& tiles)
{
    int side = 1 << 20;
    for (const PatternTile& tile : tiles)
        side = std::min({side, tile.area.w, tile.area.h});
    return side;
}

// The greatest of 1, 2, 5, 10, 20, ... pixels that puts some five grid lines on the smallest tile.
int gridStep(int side)
{
    int step = 1;
    for (int decade = 1; decade <= side; decade *= 10)
        for (const int factor : {1, 2, 5})
            if (decade * factor * 5 <= side)
                step = decade * factor;
    return step;
}

void grid(CommandBuffer& out, Size wall, int step, int thickness)
{
    encode<Op::glColor3f>(out, 0.25F, 0.35F, 0.45F);
    for (int x = 0; x < wall.w; x += step)
        rectangle(out, x, 0, thickness, wall.h);
    for (int y = 0; y < wall.h; y += step)
        rectangle(out, 0, y, wall.w, thickness);
}

void circle(CommandBuffer& out, double x, double y, double radius, int thickness)
{
    encode<Op::glLineWidth>(out, static_cast<float>(thickness));
    constexpr int corners = 360;
    encode<Op::glBegin>(out, static_cast<GLenum>(GL_LINE_LOOP));
    for (int i = 0; i < corners; ++i) {
        const double angle = 2 * std::numbers::pi * i / corners;
        encode<Op::glVertex2f>(out, static_cast<float>(x + radius * std::cos(angle)),
                               static_cast<float>(y + radius * std::sin(angle)));
    }
    encode<Op::glEnd>(out);
}

// The diagonals of a rectangle around a point.
void diagonals(CommandBuffer& out, double x, double y, double w, double h, int thickness)
{
    encode<Op::glLineWidth>(out, static_cast<float>(thickness));
    encode<Op::glBegin>(out, static_cast<GLenum>(GL_LINES));
    for (const auto& [right, up] : {std::pair{-0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.5}, {0.5, -0.5}})
        encode<Op::glVertex2f>(out, static_cast<float>(x + right * w),
                               static_cast<float>(y + up * h));
    encode<Op::glEnd>(out);
}

// The largest circle that the wall holds, and the wall's diagonals.
void largestCircle(CommandBuffer& out, Size wall, int thickness)
{
    encode<Op::glColor3f>(out, 1.0F, 0.8F, 0.2F);
    circle(out, 0.5 * wall.w, 0.5 * wall.h, 0.5 * std::min(wall.w, wall.h) - 2 * thickness,
           2 * thickness);
    encode<Op::glColor3f>(out, 0.5F, 0.5F, 0.5F);
    diagonals(out, 0.5 * wall.w, 0.5 * wall.h, wall.w, wall.h, thickness);
}

// Two ranges of pixels with so many between them, and the middle of that.
struct Between {
    int pixels;
    double middle;
};

Between between(int a, int aLength, int b, int bLength)
{
    const int from = std::min(a + aLength, b + bLength), to = std::max(a, b);
    return {to - from, 0.5 * (from + to)}; // negative, and the middle of what they share
}

// A small circle with its diagonals across the middle of every seam: a bezel of the wrong width
// makes an oval of it, and breaks both lines.
void seamCircles(CommandBuffer& out, const std::vector<PatternTile>& tiles, int side, int thickness)
{
    encode<Op::glColor3f>(out, 0.3F, 0.9F, 0.9F);
    for (std::size_t n = 0; n < tiles.size(); ++n)
        for (std::size_t i = 0; i < n; ++i) {
            const PixelArea &a = tiles[i].area, &b = tiles[n].area;
            const Between across = between(a.x, a.w, b.x, b.w);
            const Between up = between(a.y, a.h, b.y, b.h);
            // Neighbours: beside each other, with no room for another tile.
            if (std::min(across.pixels, up.pixels) >= 0 || std::max(across.pixels, up.pixels) < 0 ||
                std::max(across.pixels, up.pixels) >= side)
                continue;
            const double radius = 0.15 * side + 0.5 * std::max(across.pixels, up.pixels);
            circle(out, across.middle, up.middle, radius, thickness);
            diagonals(out, across.middle, up.middle, 2 * radius, 2 * radius, thickness);
        }
}

// White, and steps of grey down to black: neighbours are compared by them.
void greys(CommandBuffer& out, const PatternTile& tile)
{
    constexpr int steps = 16;
    const auto& [x, y, w, h] = tile.area;
    const int step = w / (2 * steps), height = h / 18;
    const int left = x + (w - steps * step) / 2, bottom = y + h / 6;
    for (int i = 0; i < steps; ++i) {
        const float grey = static_cast<float>(i) / (steps - 1);
        encode<Op::glColor3f>(out, grey, grey, grey);
        rectangle(out, left + i * step, bottom, step, height);
    }
    rectangle(out, left, bottom + height, steps * step, height);
}

// The outermost pixels of a tile, which a display that cuts its edge off does not show, and above
// its middle what the tile is.
void label(CommandBuffer& out, const PatternTile& tile, int thickness)
{
    const auto& [x, y, w, h] = tile.area;
    tileColor(out, tile.server);
    rectangle(out, x, y, w, thickness);
    rectangle(out, x, y + h - thickness, w, thickness);
    rectangle(out, x, y, thickness, h);
    rectangle(out, x + w - thickness, y, thickness, h);

    const std::string number = "SERVER " + std::to_string(tile.server);
    const std::string about[] = {toText({w, h}) + " AT (" + std::to_string(x) + ", " +
                                     std::to_string(y) + ")",
                                 "DISPLAY " + tile.display};
    const int large = std::max(1, std::min(w / (letterAdvance * 14), h / 70));
    const int small = std::max(1, large / 2);
    int bottom = y + h - 4 * thickness - (letterHeight + 2) * large;
    text(out, number, x + 2 * letterAdvance * small, bottom, large);
    for (const std::string& line : about) {
        bottom -= (letterHeight + 3) * small;
        text(out, line, x + 2 * letterAdvance * small, bottom, small);
    }
}

void counter(CommandBuffer& out, const PatternTile& tile, int frame)
{
    char digits[16];
    std::snprintf(digits, sizeof digits, "%04d", frame);
    const auto& [x, y, w, h] = tile.area;
    const int block = std::max(1, std::min(w / (letterAdvance * 6), h / (letterHeight * 3)));
    const int left = x + (w - textWidth(digits, block)) / 2;
    const int bottom = y + (h - letterHeight * block) / 2;
    encode<Op::glColor3f>(out, 0.0F, 0.0F, 0.0F);
    rectangle(out, left - block, bottom - block, textWidth(digits, block) + 2 * block,
              (letterHeight + 2) * block);
    tileColor(out, tile.server);
    text(out, digits, left, bottom, block);
}

void setUp(CommandBuffer& out, const Wall& wall, const std::vector<PatternTile>& tiles)
{
    const Size size = wallSize(wall);
    std::vector<int> attributes(std::begin(usualAttributes), std::end(usualAttributes));
    attributes.push_back(None);
    encodeOpening(out, {display, visual, window, context, size.w, size.h}, attributes);
    encode<Op::glMatrixMode>(out, static_cast<GLenum>(GL_PROJECTION));
    encode<Op::glLoadIdentity>(out);
    encode<Op::glOrtho>(out, 0.0, double(size.w), 0.0, double(size.h), -1.0, 1.0);
    encode<Op::glMatrixMode>(out, static_cast<GLenum>(GL_MODELVIEW));
    encode<Op::glClearColor>(out, 0.05F, 0.08F, 0.12F, 1.0F);

    const int side = shortestSide(tiles);
    const int thickness = std::max(1, side / 300);
    encode<Op::glNewList>(out, stillList, static_cast<GLenum>(GL_COMPILE));
    grid(out, size, gridStep(side), thickness);
    largestCircle(out, size, thickness);
    seamCircles(out, tiles, side, thickness);
    for (const PatternTile& tile : tiles) {
        greys(out, tile);
        label(out, tile, thickness);
    }
    encode<Op::glEndList>(out);
}

} // namespace

std::vector<OutgoingBuffer> patternStream(const Wall& wall, int frames)
{
    const Size size = wallSize(wall);
    const std::vector<PatternTile> tiles = patternTiles(wall);
    std::vector<OutgoingBuffer> buffers;
    for (int frame = 0; frame < frames; ++frame) {
        CommandBuffer out;
        if (frame == 0)
            setUp(out, wall, tiles);
        encode<Op::glClear>(out, static_cast<GLbitfield>(GL_COLOR_BUFFER_BIT));
        encode<Op::glCallList>(out, stillList);
        constexpr int crossing = 120; // frames that the bar takes across the wall
        encode<Op::glColor3f>(out, 0.9F, 0.3F, 0.3F);
        rectangle(out, 1.0 * size.w * (frame % crossing) / crossing, 0,
                  std::max(1.0, size.w / 300.0), size.h);
        for (const PatternTile& tile : tiles)
            counter(out, tile, frame);
        encode<Op::glXSwapBuffers>(out, asParameter<Display*>(display),
                                   asParameter<GLXDrawable>(window));
        buffers.push_back({std::move(out), 1});
    }
    return buffers;
}
