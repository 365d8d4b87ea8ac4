#include "client/pointerServers.h"

#include <algorithm>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

template <class Record>
void append(std::string& to, const Record& record)
{
    to.append(reinterpret_cast<const char*>(&record), sizeof record);
}

// True once it is to be forgotten.
bool hear(PointerServer& server, const std::string& secret)
{
    if (!server.isGreeted) {
        PointerHello hello{};
        const net::Heard heard = net::receiveRecord(server.fd, server.hello, hello);
        if (heard == net::Heard::nothing)
            return false;
        server.isGreeted = heard == net::Heard::record && hello.mark == pointerMark &&
                           net::isSecret(hello.secret, secret);
        server.tile = {hello.x, hello.y, hello.w, hello.h};
        return !server.isGreeted;
    }
    PointerAnswer answer{};
    for (;;)
        switch (net::receiveRecord(server.fd, server.incoming, answer)) {
        case net::Heard::record:
            server.answered = answer.number;
            break;
        case net::Heard::nothing:
            return false;
        case net::Heard::end:
            return true;
        }
}

void accept(PointerServers& servers)
{
    constexpr std::size_t mostNewcomers = 64;
    for (const int listener : servers.listening)
        for (int fd = -1;
             (fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0;) {
            const auto isNew = [](const PointerServer& server) { return !server.isGreeted; };
            if (std::ranges::count_if(servers.all, isNew) == mostNewcomers) {
                const auto first = std::ranges::find_if(servers.all, isNew);
                close(first->fd);
                servers.all.erase(first);
            }
            net::sendAtOnce(fd);
            servers.all.push_back({.fd = fd});
        }
}

bool isTouched(const PointerServers& servers, const PointerArea& tile)
{
    if (servers.place.window == 0 || servers.shapeMessage.empty())
        return false;
    const PointerArea area = pointerArea(servers.place, servers.shape);
    return area.x < tile.x + tile.w && tile.x < area.x + area.w && area.y < tile.y + tile.h &&
           tile.y < area.y + area.h;
}

bool isSettled(const PointerServer& server)
{
    return server.unsent.empty() && server.told.number == server.answered;
}

bool isAnotherPlace(const PointerPlace& a, const PointerPlace& b)
{
    return a.window != b.window || a.x != b.x || a.y != b.y || a.scaleX != b.scaleX ||
           a.scaleY != b.scaleY;
}

// What the connection takes; its end is heard.
void sendOn(PointerServer& server)
{
    if (server.unsent.empty())
        return;
    const ssize_t sent = send(server.fd, server.unsent.data(), server.unsent.size(), MSG_NOSIGNAL);
    if (sent > 0)
        server.unsent.erase(0, static_cast<std::size_t>(sent));
}

void tellPlace(PointerServers& servers, PointerServer& server, bool shows)
{
    if (shows && !server.knowsShape) {
        server.unsent += servers.shapeMessage;
        server.knowsShape = true;
    }
    const std::uint32_t number = server.told.number + 1;
    server.told = servers.place;
    server.told.number = number;
    server.showsIt = shows;
    server.toldAt = Clock::now();
    append(server.unsent, PointerHeader{PointerWord::place, sizeof server.told});
    append(server.unsent, server.told);
    sendOn(server);
}

} // namespace

void addDescriptors(const PointerServers& servers, std::vector<pollfd>& events)
{
    for (const int listener : servers.listening)
        events.push_back({listener, POLLIN, 0});
    for (const PointerServer& server : servers.all)
        events.push_back(
            {server.fd, static_cast<short>(server.unsent.empty() ? POLLIN : POLLIN | POLLOUT), 0});
}

void setShape(PointerServers& servers, const PointerShape& shape,
              const std::vector<std::uint32_t>& pixels)
{
    servers.shape = shape;
    const std::size_t bytes = pixels.size() * sizeof pixels[0];
    std::string message;
    append(message,
           PointerHeader{PointerWord::shape, static_cast<std::uint32_t>(sizeof shape + bytes)});
    append(message, shape);
    message.append(reinterpret_cast<const char*>(pixels.data()), bytes);
    servers.shapeMessage = message;
    for (PointerServer& server : servers.all)
        server.knowsShape = false;
}

void tellServers(PointerServers& servers)
{
    accept(servers);
    std::erase_if(servers.all, [&servers](PointerServer& server) {
        const bool isGone = hear(server, servers.secret);
        if (isGone)
            close(server.fd);
        return isGone;
    });
    const auto isFree = [&](const PointerServer& server) {
        return server.isGreeted && isSettled(server);
    };
    for (PointerServer& server : servers.all) {
        sendOn(server);
        const bool shows = isTouched(servers, server.tile);
        if (server.showsIt && isFree(server) &&
            ((shows && !server.knowsShape) || isAnotherPlace(servers.place, server.told)))
            tellPlace(servers, server, shows);
    }
    const bool isSeenElsewhere = std::ranges::any_of(servers.all, [&](const PointerServer& server) {
        return !isSettled(server) && Clock::now() - server.toldAt < servers.patience;
    });
    for (PointerServer& server : servers.all)
        if (!isSeenElsewhere && !server.showsIt && isFree(server) &&
            isTouched(servers, server.tile))
            tellPlace(servers, server, true);
}

void closeServers(PointerServers& servers)
{
    for (const PointerServer& server : servers.all)
        close(server.fd);
    for (const int listener : servers.listening)
        close(listener);
    servers.all.clear();
    servers.listening.clear();
}
