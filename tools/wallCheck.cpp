#include "tools/wallCheck.h"
#include "tools/hostOrder.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <sstream>
#include <string_view>

namespace {

constexpr const char* numberNames[] = {"wall width", "wall height", "x", "y", "width", "height"};

std::string pixelsText(const PixelArea& area)
{
    std::ostringstream text;
    text << area.w << "x" << area.h << " pixels at (" << area.x << ", " << area.y << ")";
    return text.str();
}

// The wall's size as most entries have it, so that one wrong line is the one that is reported.
Size prevailingSize(const Wall& wall)
{
    std::map<std::pair<int, int>, int> votes;
    for (const WallTile& tile : wall.tiles)
        if (tile.readable && tile.entry.vWidth > 0 && tile.entry.vHeight > 0)
            ++votes[{tile.entry.vWidth, tile.entry.vHeight}];
    const auto most =
        std::ranges::max_element(votes, {}, [](const auto& vote) { return vote.second; });
    return most == votes.end() ? Size{} : Size{most->first.first, most->first.second};
}

// True for an entry whose part of the wall is known from the file alone.
bool hasArea(const WallTile& tile)
{
    return tile.readable && tile.entry.numbers == 6 && !isEmpty(areaOf(tile.entry));
}

// HOST:DISPLAY or HOST:DISPLAY.SCREEN, the host perhaps empty. The server takes the screen's number
// from behind the first colon, so that a host must not hold one.
bool isDisplayName(const std::string& name)
{
    const auto none = std::string_view::npos;
    const std::string_view text = name;
    const std::size_t colon = text.find(':');
    const std::string_view host = text.substr(0, colon);
    const std::string_view numbers = text.substr(colon + 1);
    const std::size_t point = numbers.find('.');
    const auto isNumber = [](std::string_view digits) {
        return !digits.empty() && digits.find_first_not_of("0123456789") == none;
    };
    const bool hostReadable = std::ranges::all_of(host, [](unsigned char c) {
        return std::isalnum(c) || c == '.' || c == '-' || c == '_' || c == '/';
    });
    return hostReadable && isNumber(numbers.substr(0, point)) &&
           (point == none || isNumber(numbers.substr(point + 1)));
}

void checkDisplayName(const WallTile& tile, std::vector<Finding>& findings)
{
    if (!isDisplayName(tile.entry.dpyName))
        findings.push_back({tile.line, true,
                            "\"" + tile.entry.dpyName +
                                "\" is no X display name: HOST:DISPLAY.SCREEN or :DISPLAY"});
}

std::string trimmed(const std::string& text)
{
    constexpr char blanks[] = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

void checkNumbers(const WallTile& tile, std::vector<Finding>& findings)
{
    const WallEntry& entry = tile.entry;
    if (entry.numbers < 6) {
        std::string missing;
        for (int i = entry.numbers; i < 6; ++i)
            missing += std::string(missing.empty() ? "" : ", ") + numberNames[i];
        findings.push_back({tile.line, true,
                            "only " + std::to_string(entry.numbers) +
                                " of the 6 numbers can be read; the server takes 0 for " +
                                missing});
        return;
    }
    if (!trimmed(entry.rest).empty())
        findings.push_back(
            {tile.line, true,
             "the server does not read what follows the numbers: \"" + trimmed(entry.rest) + "\""});
    const MWRect& rect = entry.rect;
    for (const float value : {rect.x, rect.y, rect.w, rect.h})
        if (!std::isfinite(value) || std::fabs(value) > 1e9F) {
            findings.push_back({tile.line, true, "a number is no number of pixels"});
            return;
        }
    if (rect.w == 0)
        findings.push_back({tile.line, false,
                            "a width of 0 stands for all of the screen, whose size is only known "
                            "on its node"});
    else if (isEmpty(areaOf(entry)))
        findings.push_back({tile.line, true, "the rectangle holds no pixel"});
    for (const float value : {rect.x, rect.y, rect.w, rect.h})
        if (value != std::trunc(value)) {
            findings.push_back(
                {tile.line, false,
                 "fractions of pixels are cut off: it shows " + pixelsText(areaOf(entry))});
            break;
        }
}

void checkAgainstWall(const WallTile& tile, Size wall, std::vector<Finding>& findings)
{
    const WallEntry& entry = tile.entry;
    if (entry.vWidth <= 0 || entry.vHeight <= 0)
        findings.push_back(
            {tile.line, true, "the wall has no size: " + toText({entry.vWidth, entry.vHeight})});
    else if (entry.vWidth != wall.w || entry.vHeight != wall.h)
        findings.push_back({tile.line, true,
                            "the wall is " + toText({entry.vWidth, entry.vHeight}) + " here and " +
                                toText(wall) + " on other lines"});
    if (!hasArea(tile))
        return;
    const PixelArea area = areaOf(entry);
    const PixelArea inside = commonArea(area, {0, 0, wall.w, wall.h});
    if (isEmpty(inside))
        findings.push_back({tile.line, true, "the tile lies wholly outside the wall"});
    else if (inside.w != area.w || inside.h != area.h)
        findings.push_back({tile.line, true,
                            "the tile reaches beyond the wall's edge: " + pixelsText(area) +
                                " on a wall of " + toText(wall)});
}

// What tells one screen from another: host, display and screen, however the entry writes them.
std::string screenOf(const WallEntry& entry, const std::string& node)
{
    const std::size_t colon = entry.dpyName.find(':');
    const std::string host = colon ? entry.dpyName.substr(0, colon) : node;
    const std::string display = entry.dpyName.substr(colon, entry.dpyName.find('.', colon) - colon);
    return host + display + "." + std::to_string(entry.scrn);
}

void checkAgainstEarlier(const Wall& wall, const std::vector<Place>& places, std::size_t n,
                         std::vector<Finding>& findings)
{
    const WallTile& tile = wall.tiles[n];
    const auto screenAt = [&](std::size_t i) {
        return screenOf(wall.tiles[i].entry, i < places.size() ? places[i].host : "");
    };
    const bool noHosts =
        std::ranges::all_of(places, [](const Place& place) { return place.host.empty(); });
    for (std::size_t i = 0; i < n; ++i) {
        const WallTile& other = wall.tiles[i];
        const std::string thatLine = "line " + std::to_string(other.line);
        if (other.readable && screenAt(i) == screenAt(n))
            findings.push_back({tile.line, true,
                                "the same screen as " + thatLine +
                                    (noHosts && tile.entry.dpyName.starts_with(':')
                                         ? "; for several hosts name them by --hosts, or by lines "
                                           "#host NAME:SERVERS in the file"
                                         : "")});
        if (!hasArea(tile) || !hasArea(other))
            continue;
        const PixelArea common = commonArea(areaOf(tile.entry), areaOf(other.entry));
        if (!isEmpty(common))
            findings.push_back(
                {tile.line, true,
                 "the tile overlaps that of " + thatLine + ": " + pixelsText(common)});
    }
}

// The wall cut along every edge of a tile: column i reaches from xs[i] to xs[i + 1], rows likewise.
struct Cells {
    std::vector<int> xs, ys;
    std::vector<char> covered; // row by row
};

std::vector<int> sortedCuts(std::vector<int> cuts, int size)
{
    for (int& cut : cuts)
        cut = std::clamp(cut, 0, size);
    cuts.insert(cuts.end(), {0, size});
    std::ranges::sort(cuts);
    const auto same = std::ranges::unique(cuts);
    cuts.erase(same.begin(), same.end());
    return cuts;
}

std::size_t columnsOf(const Cells& cells) { return cells.xs.size() - 1; }
std::size_t rowsOf(const Cells& cells) { return cells.ys.size() - 1; }

char& cellAt(Cells& cells, std::size_t column, std::size_t row)
{
    return cells.covered[row * columnsOf(cells) + column];
}

// Marks the cells of a rectangle whose edges are cuts.
void cover(Cells& cells, const PixelArea& area)
{
    for (std::size_t row = 0; row < rowsOf(cells); ++row)
        for (std::size_t column = 0; column < columnsOf(cells); ++column)
            if (cells.xs[column] >= area.x && cells.xs[column] < area.x + area.w &&
                cells.ys[row] >= area.y && cells.ys[row] < area.y + area.h)
                cellAt(cells, column, row) = 1;
}

Cells cutWall(const Wall& wall, Size size)
{
    std::vector<int> xs;
    std::vector<int> ys;
    for (const WallTile& tile : wall.tiles) {
        const PixelArea area = areaOf(tile.entry);
        xs.insert(xs.end(), {area.x, area.x + area.w});
        ys.insert(ys.end(), {area.y, area.y + area.h});
    }
    Cells cells{sortedCuts(xs, size.w), sortedCuts(ys, size.h), {}};
    cells.covered.resize(columnsOf(cells) * rowsOf(cells));
    for (const WallTile& tile : wall.tiles)
        cover(cells, areaOf(tile.entry));
    return cells;
}

// Reports strips without a tile that run across the whole wall, between tiles: bezels.
void takeBezels(Cells& cells, Size size, std::vector<Finding>& findings)
{
    std::vector<PixelArea> bezels;
    const auto bare = [&cells](std::size_t column, std::size_t row) {
        return !cellAt(cells, column, row);
    };
    for (std::size_t column = 1; column + 1 < columnsOf(cells); ++column) {
        bool all = true;
        for (std::size_t row = 0; row < rowsOf(cells); ++row)
            all &= bare(column, row);
        if (all)
            bezels.push_back(
                {cells.xs[column], 0, cells.xs[column + 1] - cells.xs[column], size.h});
    }
    for (std::size_t row = 1; row + 1 < rowsOf(cells); ++row) {
        bool all = true;
        for (std::size_t column = 0; column < columnsOf(cells); ++column)
            all &= bare(column, row);
        if (all)
            bezels.push_back({0, cells.ys[row], size.w, cells.ys[row + 1] - cells.ys[row]});
    }
    for (const PixelArea& bezel : bezels) {
        cover(cells, bezel);
        findings.push_back({0, false,
                            bezel.h == size.h ? "a bezel of " + std::to_string(bezel.w) +
                                                    " columns at x = " + std::to_string(bezel.x)
                                              : "a bezel of " + std::to_string(bezel.h) +
                                                    " rows at y = " + std::to_string(bezel.y)});
    }
}

// Reports the other places without a tile, as rectangles.
void takeGaps(Cells& cells, std::vector<Finding>& findings)
{
    for (std::size_t row = 0; row < rowsOf(cells); ++row)
        for (std::size_t column = 0; column < columnsOf(cells); ++column) {
            if (cellAt(cells, column, row))
                continue;
            std::size_t right = column;
            while (right < columnsOf(cells) && !cellAt(cells, right, row))
                ++right;
            std::size_t top = row;
            const auto bareRow = [&](std::size_t r) {
                for (std::size_t c = column; c < right; ++c)
                    if (cellAt(cells, c, r))
                        return false;
                return true;
            };
            while (top < rowsOf(cells) && bareRow(top))
                ++top;
            const PixelArea gap{cells.xs[column], cells.ys[row], cells.xs[right] - cells.xs[column],
                                cells.ys[top] - cells.ys[row]};
            cover(cells, gap);
            findings.push_back({0, true, "no server shows " + pixelsText(gap)});
        }
}

} // namespace

std::string describeTile(const Wall& wall, int server)
{
    const WallTile& tile = wall.tiles.at(static_cast<std::size_t>(server));
    std::ostringstream text;
    text << "server " << server << " (line " << tile.line << "): ";
    if (!tile.readable) {
        text << "stops: the line has no X display name";
        return text.str();
    }
    const WallEntry& entry = tile.entry;
    text << "display " << entry.dpyName << ", screen " << entry.scrn << ": ";
    const PixelArea area = areaOf(entry);
    if (entry.rect.w == 0)
        text << "as much of the wall from (" << area.x << ", " << area.y << ") as its screen holds";
    else
        text << pixelsText(area) << " of the wall's " << toText({entry.vWidth, entry.vHeight});
    return text.str();
}

std::vector<Finding> checkWall(const Wall& wall, const std::vector<Place>& places)
{
    std::vector<Finding> findings;
    if (wall.tiles.empty())
        findings.push_back({0, true, "the file has no entry"});
    const Size size = prevailingSize(wall);
    bool allKnown = size.w > 0;
    for (std::size_t n = 0; n < wall.tiles.size(); ++n) {
        const WallTile& tile = wall.tiles[n];
        allKnown &= hasArea(tile);
        if (!tile.readable) {
            findings.push_back({tile.line, true, "there is no X display name: no colon"});
            continue;
        }
        checkDisplayName(tile, findings);
        checkNumbers(tile, findings);
        if (tile.entry.numbers >= 2)
            checkAgainstWall(tile, size, findings);
        checkAgainstEarlier(wall, places, n, findings);
    }
    checkHosts(wall, places, findings);
    if (allKnown) {
        Cells cells = cutWall(wall, size);
        takeBezels(cells, size, findings);
        takeGaps(cells, findings);
    } else if (!wall.tiles.empty())
        findings.push_back(
            {0, false, "gaps were not looked for: not every tile's rectangle is known"});
    return findings;
}

int printFindings(std::FILE* to, const Wall& wall, const std::vector<Finding>& findings, bool notes)
{
    int faults = 0;
    for (const Finding& finding : findings) {
        faults += finding.fault;
        const std::string line = finding.line ? ":" + std::to_string(finding.line) : "";
        if (finding.fault || notes)
            std::fprintf(to, "%s%s: %s: %s\n", wall.file.c_str(), line.c_str(),
                         finding.fault ? "fault" : "note", finding.text.c_str());
    }
    return faults;
}
