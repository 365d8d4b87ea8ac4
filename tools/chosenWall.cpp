#include "tools/chosenWall.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

std::string usualWall(const std::string& given)
{
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value ? value : "");
    };
    if (!given.empty())
        return given;
    if (const std::string named = variable("MOSA_DISPLAY"); !named.empty())
        return named;
    std::string settings = variable("XDG_CONFIG_HOME");
    if (settings.empty())
        settings = variable("HOME") + "/.config";
    const std::string own = settings + "/mosa/wall.conf";
    return std::filesystem::exists(own) ? own : "";
}

ChosenWall chooseWall(const WallChoice& choice, Wall (*read)(const std::string&))
{
    const std::string file = usualWall(choice.wall);
    if (file.empty())
        throw std::runtime_error("name the wall's file: by --wall, MOSA_DISPLAY or "
                                 "~/.config/mosa/wall.conf");
    if (choice.wall.empty())
        std::fprintf(stderr, "mosa-wall: the wall is %s\n", file.c_str());
    ChosenWall chosen{.wall = read(file), .hosts = {}, .places = {}};
    chosen.hosts = choice.hosts.empty() ? hostsIn(file) : readHosts(choice.hosts);
    const std::size_t servers = chosen.wall.tiles.size();
    std::size_t room = 0;
    for (const Host& host : chosen.hosts)
        room += static_cast<std::size_t>(host.servers);
    if (room > servers)
        std::fprintf(stderr,
                     "mosa-wall: note: the host file has places for %zu servers, the wall has %zu: "
                     "the last are not used\n",
                     room, servers);
    chosen.places = placeServers(chosen.hosts, static_cast<int>(servers));
    return chosen;
}
