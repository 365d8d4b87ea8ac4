#include "tools/hostOrder.h"

#include <algorithm>
#include <fstream>
#include <string_view>

namespace {

// The host that the comment before an entry gives it, as `layout` writes them: "# server 2: ..., on
// left". By the entry's line.
std::map<int, std::string> hostsInComments(const std::string& wallFile)
{
    constexpr std::string_view opening = "# server ", on = ", on ";
    std::ifstream file(wallFile);
    std::map<int, std::string> hosts;
    int number = 1;
    for (std::string line; std::getline(file, line); ++number)
        if (const std::size_t at = line.rfind(on); line.starts_with(opening) && at != line.npos)
            hosts[number + 1] = line.substr(at + on.size());
    return hosts;
}

} // namespace

void checkHosts(const Wall& wall, const std::vector<Place>& places, std::vector<Finding>& findings)
{
    const std::map<int, std::string> comments = hostsInComments(wall.file);
    for (std::size_t n = 0; n < std::min(wall.tiles.size(), places.size()); ++n) {
        const WallTile& tile = wall.tiles[n];
        const std::string& host = places[n].host;
        const auto comment = comments.find(tile.line);
        for (const std::string& meant :
             {tile.entry.dpyName.substr(0, tile.entry.dpyName.find(':')),
              comment != comments.end() ? comment->second : std::string()})
            if (meant != host && !meant.empty() &&
                std::ranges::find(places, meant, &Place::host) != places.end()) {
                findings.push_back({tile.line, true,
                                    "the entry is for " + meant + ", its server is on " + host +
                                        ": the hosts stand in another order than the entries"});
                break;
            }
    }
}

void judgeOrder(const Wall& wall, const std::vector<Place>& places,
                std::map<std::size_t, NodeAnswer>& answers)
{
    const auto same = [](Size a, Size b) { return a.w == b.w && a.h == b.h; };
    for (auto& [server, answer] : answers) {
        const PixelArea area = areaOf(wall.tiles.at(server).entry);
        const Size tile{area.w, area.h};
        if (answer.screen.w == 0 || tile.w == 0 || same(tile, answer.screen))
            continue;
        for (const auto& [other, its] : answers)
            if (same(its.screen, tile) && places.at(other).host != places.at(server).host) {
                answer.finding.fault = true;
                answer.finding.text += "; " + places.at(other).host +
                                       " has one of the tile's size: do the hosts stand in the "
                                       "order of the entries?";
                break;
            }
    }
}
