#include "tools/wallArea.h"
#include "overload/areaVariables.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace {

[[noreturn]] void fail(const std::string& text)
{
    throw std::runtime_error("\"" + text +
                             "\" is no area of the wall: it should read like 960x540+480+270, "
                             "960x540, 50x50%, left, top-right, center or all");
}

// Takes a number off the front.
bool takeNumber(std::string_view& text, int& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool take(std::string_view& text, char c)
{
    const bool is = text.starts_with(c);
    text.remove_prefix(is);
    return is;
}

// Takes "+5", "-5" (from the far edge) or "+-5"; `room` is what the area leaves free.
bool takeOffset(std::string_view& text, int room, int& offset)
{
    const bool fromFar = text.starts_with('-');
    if (!fromFar && !text.starts_with('+'))
        return false;
    text.remove_prefix(1);
    if (!takeNumber(text, offset))
        return false;
    if (fromFar)
        offset = room - offset;
    return true;
}

bool takeOffsets(std::string_view& text, Size room, int& left, int& top)
{
    return takeOffset(text, room.w, left) && takeOffset(text, room.h, top);
}

// Halves and quarters; what is not named is the middle.
bool namedArea(const std::string& text, Size wall, PixelArea& area)
{
    if (text == "all") {
        area = {0, 0, wall.w, wall.h};
        return true;
    }
    constexpr const char* names[] = {"top-left",    "top",    "top-right",
                                     "left",        "center", "right",
                                     "bottom-left", "bottom", "bottom-right"};
    const auto* const name = std::ranges::find(names, text);
    if (name == std::end(names))
        return false;
    const auto column = (name - names) % 3, row = (name - names) / 3;
    // Half a wall along an edge, else half as wide and as high.
    const bool isHalf = (column == 1) != (row == 1);
    area.w = isHalf && column == 1 ? wall.w : wall.w / 2;
    area.h = isHalf && row == 1 ? wall.h : wall.h / 2;
    area.x = static_cast<int>(column) * (wall.w - area.w) / 2;
    area.y = static_cast<int>(2 - row) * (wall.h - area.h) / 2;
    return true;
}

void requireSize(const std::string& text, const PixelArea& area)
{
    constexpr int most = 32'767; // pixels of an X window, and as far as its place goes
    if (area.w < 1 || area.h < 1 || area.w > most || area.h > most || std::abs(area.x) > most ||
        std::abs(area.y) > most)
        fail(text);
}

} // namespace

PixelArea parseArea(const std::string& text, Size wall)
{
    PixelArea area{};
    if (namedArea(text, wall, area))
        return area;
    std::string_view rest = text;
    if (!takeNumber(rest, area.w) || !take(rest, 'x') || !takeNumber(rest, area.h))
        fail(text);
    if (take(rest, '%')) {
        area.w = static_cast<int>(std::int64_t{wall.w} * area.w / 100);
        area.h = static_cast<int>(std::int64_t{wall.h} * area.h / 100);
    }
    const Size room{wall.w - area.w, wall.h - area.h};
    int left = room.w / 2, top = room.h / 2;
    if (!rest.empty() && (!takeOffsets(rest, room, left, top) || !rest.empty()))
        fail(text);
    area.x = left;
    area.y = wall.h - top - area.h;
    requireSize(text, area);
    return area;
}

PixelArea parsePlace(const std::string& text, Size wall, Size size)
{
    std::string_view rest = text;
    int left = 0, top = 0;
    if (takeOffsets(rest, {wall.w - size.w, wall.h - size.h}, left, top) && rest.empty()) {
        const PixelArea area{left, wall.h - top - size.h, size.w, size.h};
        requireSize(text, area);
        return area;
    }
    PixelArea named{};
    if (namedArea(text, wall, named) && text != "all") {
        // For an area of its own size: on the same side, or in the middle.
        const auto along = [](int at, int extent, int room, int own) {
            return at == 0 && extent < room        ? 0
                   : at > 0 && at + extent >= room ? room - own
                                                   : (room - own) / 2;
        };
        return {along(named.x, named.w, wall.w, size.w), along(named.y, named.h, wall.h, size.h),
                size.w, size.h};
    }
    PixelArea area{};
    try {
        area = parseArea(text, wall);
    } catch (const std::runtime_error&) {
        throw std::runtime_error("\"" + text +
                                 "\" is no place on the wall: it should read like +480+270, left, "
                                 "top-right or center");
    }
    if (area.w != size.w || area.h != size.h)
        throw std::runtime_error("an area keeps its size, " + toText(size) +
                                 ": name its place alone, like +480+270");
    return area;
}

std::string areaText(const PixelArea& area, Size wall) { return areaText(area, wall.h); }

JobArea areaOn(const Wall& wall, const AtOptions& options)
{
    JobArea job{
        .area = parseArea(options.at, wallSize(wall)), .isMovable = options.isMovable, .tiles = {}};
    const PixelArea& area = job.area;
    for (std::size_t n = 0; n < wall.tiles.size(); ++n) {
        const WallEntry& entry = wall.tiles[n].entry;
        const PixelArea tile = areaOf(entry);
        const bool isKnown = entry.rect.w != 0; // else its screen may show some of it
        const bool shows = !isEmpty(commonArea(area, tile));
        if (options.isMovable || !isKnown || shows)
            job.tiles.push_back(static_cast<int>(n));
    }
    if (job.tiles.empty())
        throw std::runtime_error("no display shows anything of " + areaText(area, wallSize(wall)) +
                                 " on a wall of " + toText(wallSize(wall)));
    return job;
}

ChosenWall withServersOf(const ChosenWall& chosen, const JobArea& area)
{
    ChosenWall part{.wall = {chosen.wall.file, {}}, .hosts = {}, .places = {}};
    for (const int n : area.tiles) {
        const auto tile = static_cast<std::size_t>(n);
        part.wall.tiles.push_back(chosen.wall.tiles.at(tile));
        const std::string& host = chosen.places.at(tile).host;
        if (host.empty())
            continue;
        if (!part.hosts.empty() && part.hosts.back().name == host)
            ++part.hosts.back().servers;
        else
            part.hosts.push_back({host, 1});
    }
    part.places = placeServers(part.hosts, static_cast<int>(area.tiles.size()));
    return part;
}

void putInArea(Job& job, const JobArea& area, Size wall)
{
    const char* own = std::getenv("MOSA_OVERLOAD_FILE");
    if (own && *own)
        throw std::runtime_error("MOSA_OVERLOAD_FILE names libraries of its own: an area of the "
                                 "wall needs those that come with the system");
    std::string tiles;
    for (const int tile : area.tiles)
        tiles += (tiles.empty() ? "" : ",") + std::to_string(tile);
    job.environment.push_back(std::string(areaVariable) + "=" + areaText(area.area, wall));
    job.environment.push_back(std::string(areaTilesVariable) + "=" + tiles);
    if (area.isMovable)
        job.environment.push_back(std::string(areaMovableVariable) + "=1");
}
