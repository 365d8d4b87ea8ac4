#include "client/steering.h"
#include "client/encoder.h"
#include "wire/areaMessages.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <sstream>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace {

void add(CommandBuffer& out, AreaWord word, int value = 0)
{
    encode<Op::MWRaiseWindow>(out, Window{areaMessage(word, value)});
}

// What has come so far, up to the end of its last whole line. Empty when there is nothing.
std::string takeLines(Steering& steering)
{
    std::array<char, 4096> chunk;
    pollfd readable{steering.fd, POLLIN, 0};
    while (steering.fd >= 0 && poll(&readable, 1, 0) > 0) {
        const ssize_t got = read(steering.fd, chunk.data(), chunk.size());
        if (got > 0)
            steering.rest.append(chunk.data(), static_cast<std::size_t>(got));
        else if (got == 0 || errno != EINTR)
            steering.fd = -1, steering.hasEnded = true;
    }
    const std::size_t end = steering.rest.rfind('\n') + 1;
    std::string lines = steering.rest.substr(0, end);
    steering.rest.erase(0, end);
    return lines;
}

} // namespace

std::string moveLine(int left, int top)
{
    return "move " + std::to_string(left) + " " + std::to_string(top) + "\n";
}

CommandBuffer takeSteering(Steering& steering)
{
    std::optional<std::pair<int, int>> place;
    bool raises = false;
    std::istringstream lines(takeLines(steering));
    for (std::string line; std::getline(lines, line);) {
        line += '\n';
        int left = 0, top = 0;
        if (std::sscanf(line.c_str(), "move %d %d", &left, &top) == 2)
            place = {left, top};
        raises |= line == raiseLine;
    }
    CommandBuffer out;
    if (place) {
        add(out, AreaWord::left, place->first);
        add(out, AreaWord::top, place->second);
        add(out, AreaWord::move);
    }
    if (raises)
        add(out, AreaWord::raise);
    return out;
}
