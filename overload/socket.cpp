#include "overload/socket.h"

#include <system_error>
#include <utility>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <unistd.h>

namespace net {

void sendAtOnce(int fd)
{
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

namespace {

struct Found {
    addrinfo* first = nullptr;
    ~Found()
    {
        if (first)
            freeaddrinfo(first);
    }
};

// Looks up addresses; those to listen at, where there is no host all. False when there are none.
bool find(Found& found, const std::string& host, const std::string& port)
{
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = host.empty() ? AI_PASSIVE : 0;
    return getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &wanted,
                       &found.first) == 0;
}

bool isLoopback(const sockaddr* address)
{
    if (address->sa_family == AF_INET)
        return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24 == 127;
    return address->sa_family == AF_INET6 &&
           IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
}

void setPort(sockaddr* address, int port)
{
    const in_port_t wanted = htons(static_cast<in_port_t>(port));
    if (address->sa_family == AF_INET)
        reinterpret_cast<sockaddr_in*>(address)->sin_port = wanted;
    else if (address->sa_family == AF_INET6)
        reinterpret_cast<sockaddr_in6*>(address)->sin6_port = wanted;
}

// -1, with errno, when there is none. Each family has its own.
int listenAt(const addrinfo& at)
{
    const int fd = socket(at.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (at.ai_family == AF_INET6)
        setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    constexpr int backlog = 1024;
    if (bind(fd, at.ai_addr, at.ai_addrlen) == 0 && listen(fd, backlog) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

// A host's name or number without the brackets of an IPv6 address.
std::string bareHost(const std::string& host)
{
    return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}

} // namespace

std::vector<int> listenOn(const std::string& host, int port)
{
    const std::string name = bareHost(host);
    Found found;
    find(found, name, "0");
    bool forOthers = name != "localhost" && !name.starts_with("127.") && name != "::1";
    for (const addrinfo* at = found.first; at; at = at->ai_next)
        if (forOthers && isLoopback(at->ai_addr)) {
            Found all;
            if (find(all, "", "0"))
                std::swap(found.first, all.first);
            forOthers = false;
            break;
        }
    std::vector<int> sockets;
    errno = EADDRNOTAVAIL;
    for (const addrinfo* at = found.first; at; at = at->ai_next) {
        setPort(at->ai_addr, port);
        const int fd = listenAt(*at);
        if (fd < 0)
            continue;
        sockets.push_back(fd);
        port = portOf(fd);
    }
    if (sockets.empty())
        throw std::system_error(errno, std::generic_category());
    return sockets;
}

bool isLoopback(const std::string& host)
{
    Found found;
    if (!find(found, host, "0"))
        return false;
    for (const addrinfo* at = found.first; at; at = at->ai_next)
        if (isLoopback(at->ai_addr))
            return true;
    return false;
}

int portOf(int fd)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.ss_family == AF_INET6
                     ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                     : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

bool resolve(const std::string& text, Address& address)
{
    const std::size_t colon = text.rfind(':');
    Found found;
    if (colon == std::string::npos || colon == 0 ||
        !find(found, bareHost(text.substr(0, colon)), text.substr(colon + 1)))
        return false;
    std::memcpy(&address.bytes, found.first->ai_addr, found.first->ai_addrlen);
    address.size = found.first->ai_addrlen;
    return true;
}

int beginConnection(const Address& address)
{
    const int fd = socket(address.bytes.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0 ||
        connect(fd, reinterpret_cast<const sockaddr*>(&address.bytes), address.size) == 0 ||
        errno == EINPROGRESS)
        return fd;
    close(fd);
    return -1;
}

bool isConnected(int fd, bool& failed)
{
    pollfd writable{fd, POLLOUT, 0};
    int error = 0;
    socklen_t size = sizeof error;
    failed = false;
    if (poll(&writable, 1, 0) <= 0)
        return false;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    failed = error != 0;
    return !failed;
}

int connectWithin(const char* name, int milliseconds)
{
    Address address;
    const int fd = resolve(name, address) ? beginConnection(address) : -1;
    pollfd writable{fd, POLLOUT, 0};
    bool failed = true;
    if (fd < 0 || (poll(&writable, 1, milliseconds) > 0 && isConnected(fd, failed)))
        return fd;
    close(fd);
    return -1;
}

bool isSecret(std::span<const char> said, std::string_view secret)
{
    int different = secret.size() > said.size(); // every byte is looked at
    for (std::size_t i = 0; i < said.size(); ++i)
        different |= said[i] ^ (i < secret.size() ? secret[i] : '\0');
    return different == 0;
}

std::string peerOf(int fd)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    char host[NI_MAXHOST] = "somebody";
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0)
        getnameinfo(reinterpret_cast<sockaddr*>(&address), size, host, sizeof host, nullptr, 0,
                    NI_NUMERICHOST);
    const std::string_view mapped = "::ffff:"; // an IPv4 address, as an IPv6 socket sees it
    return std::string_view(host).starts_with(mapped) ? host + mapped.size() : host;
}

} // namespace net
