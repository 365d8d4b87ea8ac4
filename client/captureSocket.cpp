#include "client/captureSocket.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error(path + ": too long for a socket");
    std::strcpy(address.sun_path, path.c_str());
    return address;
}

bool receiveAll(int fd, void* to, std::size_t bytes)
{
    auto* at = static_cast<char*>(to);
    while (bytes > 0) {
        const ssize_t got = recv(fd, at, bytes, MSG_WAITALL);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        at += got;
        bytes -= static_cast<std::size_t>(got);
    }
    return true;
}

// The handshake, and with it the memory that is shared.
bool receiveHandshake(CaptureSocket& socket, int fd)
{
    iovec piece{&socket.handshake, sizeof socket.handshake};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(fd, &message, MSG_WAITALL | MSG_CMSG_CLOEXEC) !=
        static_cast<ssize_t>(sizeof socket.handshake))
        return false;
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_type != SCM_RIGHTS)
        return false;
    int memory = -1;
    std::memcpy(&memory, CMSG_DATA(header), sizeof memory);
    void* const ring =
        mmap(nullptr, sizeof(CaptureRing), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
    struct stat status {};
    const bool whole =
        fstat(memory, &status) == 0 && status.st_size >= static_cast<off_t>(sizeof(CaptureRing));
    close(memory);
    if (ring == MAP_FAILED || !whole)
        return false;
    socket.ring = static_cast<CaptureRing*>(ring);
    return true;
}

void answer(int fd, std::int32_t value) { send(fd, &value, sizeof value, MSG_NOSIGNAL); }

// Takes a program, or sends it away. An end before the handshake ends the waiting.
Arrival acceptProgram(CaptureSocket& socket)
{
    const int fd = accept4(socket.listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return Arrival::nothing;
    if (socket.program >= 0) {
        answer(fd, captureTaken);
        close(fd);
        return Arrival::nothing;
    }
    if (!receiveHandshake(socket, fd)) {
        close(fd);
        return Arrival::end;
    }
    socket.program = fd;
    answer(fd, captureAccepted);
    return Arrival::program;
}

} // namespace

void listenForProgram(CaptureSocket& socket, const std::string& path)
{
    const sockaddr_un address = addressOf(path);
    unlink(path.c_str());
    const mode_t before = umask(077); // nobody else's
    socket.listening = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    constexpr int waiting = 8;
    if (socket.listening < 0 ||
        bind(socket.listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(socket.listening, waiting) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    umask(before);
}

Arrival waitForBuffer(CaptureSocket& socket, long microseconds, int otherFd, _hdr& hdr,
                      std::span<const unsigned char>& bytes)
{
    if (socket.ringEnd > 0)
        socket.ring->released.store(socket.ringEnd, std::memory_order_release);
    socket.ringEnd = 0;
    pollfd events[] = {
        {socket.listening, POLLIN, 0}, {socket.program, POLLIN, 0}, {otherFd, POLLIN, 0}};
    const timespec time{microseconds / 1'000'000, microseconds % 1'000'000 * 1000};
    if (ppoll(events, std::size(events), microseconds < 0 ? nullptr : &time, nullptr) <= 0)
        return Arrival::nothing;
    if (events[0].revents) {
        const Arrival arrival = acceptProgram(socket);
        if (arrival != Arrival::nothing)
            return arrival;
    }
    if (!events[1].revents)
        return Arrival::nothing;
    CaptureMessage message{};
    if (!receiveAll(socket.program, &message, sizeof message) || message.hdr.size < 0)
        return Arrival::end;
    hdr = message.hdr;
    const auto size = static_cast<std::size_t>(hdr.size);
    if (message.ringAt >= 0) {
        if (message.ringAt > ringBytes || hdr.size > ringBytes - message.ringAt)
            return Arrival::end; // no capture library says so
        bytes = {socket.ring->bytes + message.ringAt, size};
        socket.ringEnd = message.ringEnd;
        return Arrival::buffer;
    }
    socket.bytes.resize(size);
    bytes = socket.bytes;
    return receiveAll(socket.program, socket.bytes.data(), size) ? Arrival::buffer : Arrival::end;
}

void answerFrames(CaptureSocket& socket, int frames)
{
    if (frames > 0)
        answer(socket.program, frames);
}

void endWaiting(const std::string& path)
{
    const sockaddr_un address = addressOf(path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(fd);
}
