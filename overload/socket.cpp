#include "overload/socket.h"

#include <string_view>
#include <system_error>

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

// -1, with errno, when there is none.
template <class Address>
int listenAt(const Address& address, int family)
{
    const int fd = socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const int on = 1;
    const int off = 0;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (family == AF_INET6)
        setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    constexpr int backlog = 128;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(fd, backlog) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

} // namespace

int listenOn(int port)
{
    const in_port_t wanted = htons(static_cast<in_port_t>(port));
    int fd = listenAt(sockaddr_in6{.sin6_family = AF_INET6,
                                   .sin6_port = wanted,
                                   .sin6_flowinfo = 0,
                                   .sin6_addr = in6addr_any,
                                   .sin6_scope_id = 0},
                      AF_INET6);
    if (fd < 0 && errno == EAFNOSUPPORT)
        fd = listenAt(sockaddr_in{.sin_family = AF_INET,
                                  .sin_port = wanted,
                                  .sin_addr = {INADDR_ANY},
                                  .sin_zero = {}},
                      AF_INET);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category());
    return fd;
}

bool resolve(const std::string& text, Address& address)
{
    const std::size_t colon = text.rfind(':');
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (colon == std::string::npos ||
        getaddrinfo(text.substr(0, colon).c_str(), text.substr(colon + 1).c_str(), &wanted,
                    &found) != 0)
        return false;
    std::memcpy(&address.bytes, found->ai_addr, found->ai_addrlen);
    address.size = found->ai_addrlen;
    freeaddrinfo(found);
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
