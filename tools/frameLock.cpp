#include "tools/frameLock.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>

#include <netinet/in.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

std::string newSecret()
{
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != ssize_t{sizeof bytes})
        throw std::runtime_error(std::string("no random numbers: ") + std::strerror(errno));
    std::string secret;
    for (const unsigned char byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            secret += "0123456789abcdef"[digit];
    return secret;
}

void lockFrames(Job& job, const std::string& host, int port)
{
    job.secrets.push_back("MOSA_FRAMELOCK_SECRET=" + newSecret());
    job.environment.emplace_back("MOSA_SWAP_ON_RETRACE=1");
    job.environment.push_back("MOSA_FRAMELOCK=" + (host.empty() ? "127.0.0.1" : host) + ":" +
                              std::to_string(port));
}

bool mayLockFrames()
{
    const char* asked = std::getenv("MOSA_SWAP_ON_RETRACE");
    return !asked || std::atoi(asked) != 0;
}

int freePort()
{
    // Below the ports that systems give to connections: one of those may be taken again before the
    // hub listens, and a server that asks for the hub too early could reach itself.
    constexpr unsigned first = 16'384, end = 32'768, attempts = 200;
    std::random_device random;
    int error = 0;
    for (unsigned i = 0; i < attempts; ++i) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(first + random() % (end - first)));
        const bool found =
            fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        error = errno;
        if (fd >= 0)
            close(fd);
        if (found)
            return ntohs(address.sin_port);
    }
    throw std::runtime_error(std::string("no port is free: ") + std::strerror(error));
}
