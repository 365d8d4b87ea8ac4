#include "client/captureSocket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address;
    if (!localAddress(path.c_str(), address))
        throw std::runtime_error(path + ": too long for a socket");
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

// Takes over the memory that came with a handshake. Closes every descriptor that did.
CaptureRing* mapRing(msghdr& message)
{
    int memory = -1;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
            continue;
        for (std::size_t at = 0; CMSG_LEN(at + sizeof memory) <= header->cmsg_len;
             at += sizeof memory) {
            if (memory >= 0)
                close(memory);
            std::memcpy(&memory, CMSG_DATA(header) + at, sizeof memory);
        }
    }
    struct stat status {};
    void* ring = MAP_FAILED;
    if (memory >= 0 && (message.msg_flags & MSG_CTRUNC) == 0 && fstat(memory, &status) == 0 &&
        status.st_size >= static_cast<off_t>(sizeof(CaptureRing)))
        ring = mmap(nullptr, sizeof(CaptureRing), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
    if (memory >= 0)
        close(memory);
    return ring == MAP_FAILED ? nullptr : static_cast<CaptureRing*>(ring);
}

void answer(int fd, std::int32_t value) { send(fd, &value, sizeof value, MSG_NOSIGNAL); }

// Looks whether a newcomer has said who it is. It is the program then, or is sent away; `fd` is -1
// once it is no newcomer any more.
Arrival hearNewcomer(CaptureSocket& socket, int& fd)
{
    _handshake handshake{};
    iovec piece{&handshake, sizeof handshake};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t got = 0;
    do
        got = recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    while (got < 0 && errno == EINTR);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return Arrival::nothing;
    CaptureRing* const ring = got > 0 ? mapRing(message) : nullptr;
    const bool isWhole = got == static_cast<ssize_t>(sizeof handshake); // it is sent at once
    if (isWhole && ring && socket.program < 0 && !socket.endsAfter) {
        socket.handshake = handshake;
        socket.ring = ring;
        socket.program = fd;
        fd = -1;
        answer(socket.program, socket.firstHandle);
        return Arrival::program;
    }
    if (ring)
        munmap(ring, sizeof(CaptureRing));
    if (isWhole && ring)
        answer(fd, captureTaken);
    close(fd);
    fd = -1;
    socket.endsAfter |=
        isWhole && !ring && std::memcmp(&handshake, &endOfWaitingSign, sizeof handshake) == 0;
    return Arrival::nothing;
}

// True when the program has closed its side: what it sent before may still be there.
bool hasHungUp(const CaptureSocket& socket)
{
    pollfd state{socket.program, POLLRDHUP, 0};
    return socket.program >= 0 && poll(&state, 1, 0) > 0;
}

Arrival hearNewcomers(CaptureSocket& socket)
{
    Arrival arrival = Arrival::nothing;
    for (int& fd : socket.newcomers)
        if (arrival == Arrival::nothing)
            arrival = hearNewcomer(socket, fd);
    std::erase(socket.newcomers, -1);
    return arrival;
}

// Those that say nothing make room for others.
void acceptNewcomer(CaptureSocket& socket)
{
    constexpr std::size_t most = 16;
    const int fd = accept4(socket.listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    if (socket.newcomers.size() == most) {
        close(socket.newcomers.front());
        socket.newcomers.erase(socket.newcomers.begin());
    }
    socket.newcomers.push_back(fd);
}

Arrival takeAway(CaptureSocket& socket, _hdr& hdr, std::span<const unsigned char>& bytes)
{
    socket.own = takeWindowAway(socket.watch, socket.wallCurrent);
    if (socket.own.empty())
        return Arrival::nothing;
    hdr = {static_cast<std::int32_t>(socket.own.size()), 1};
    ++socket.ownFrames;
    bytes = socket.own;
    return Arrival::buffer;
}

void leaveProgram(CaptureSocket& socket)
{
    if (socket.program < 0)
        return;
    munmap(socket.ring, sizeof(CaptureRing));
    close(socket.program);
    socket.ring = nullptr;
    socket.ringEnd = 0;
    socket.program = -1;
    socket.watch.isShown = socket.watch.gone = false; // its last picture stays
    socket.watch.windows.clear();                     // their numbers may be the next one's
    socket.ownFrames = 0;                             // the next one is owed none of them
    socket.betweenFrames = false;                     // as at the beginning
}

// Removes what is no longer listened at. Nothing but a socket is removed.
void removeSocket(const std::string& path)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return;
    if (!S_ISSOCK(status.st_mode))
        throw std::runtime_error(path + " is there already, and is no socket");
    unlink(path.c_str());
}

} // namespace

CaptureSocket::~CaptureSocket()
{
    for (const int fd : newcomers)
        close(fd);
    leaveProgram(*this);
    if (listening >= 0) {
        close(listening);
        unlink(path.c_str());
    }
}

void listenForProgram(CaptureSocket& socket, const std::string& path)
{
    const sockaddr_un address = addressOf(path);
    removeSocket(path);
    const mode_t before = umask(077); // nobody else's
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    constexpr int waiting = 64;
    const bool bound =
        fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    const bool listens = bound && listen(fd, waiting) == 0;
    const int error = errno;
    umask(before);
    if (!listens) {
        if (bound)
            unlink(path.c_str());
        if (fd >= 0)
            close(fd);
        throw std::runtime_error(path + ": " + std::strerror(error));
    }
    socket.path = path;
    socket.listening = fd;
}

namespace {

// What follows a message that another window is shown, or none. False when nothing does.
bool hearOfWindow(CaptureSocket& socket, const CaptureMessage& message)
{
    CaptureShown shown{};
    if (message.hdr.size != sizeof shown || !receiveAll(socket.program, &shown, sizeof shown))
        return false; // no capture library says so
    shown.display[sizeof shown.display - 1] = shown.authority[sizeof shown.authority - 1] = '\0';
    showsWindow(socket.watch, shown);
    return true;
}

// Takes in a message of the program, of a command buffer or not: `bytes` is empty then. False when
// its stream has ended.
bool takeMessage(CaptureSocket& socket, _hdr& hdr, std::span<const unsigned char>& bytes)
{
    CaptureMessage message{};
    if (!receiveAll(socket.program, &message, sizeof message) || message.hdr.size < 0)
        return false;
    socket.wallCurrent = message.wallCurrent;
    if (message.hdr.sync == showsAnother)
        return hearOfWindow(socket, message);
    hdr = message.hdr;
    socket.betweenFrames = hdr.sync != 0;
    const auto size = static_cast<std::size_t>(hdr.size);
    if (message.ringAt >= 0) {
        if (message.ringAt > ringBytes || hdr.size > ringBytes - message.ringAt)
            return false; // no capture library says so
        bytes = {socket.ring->bytes + message.ringAt, size};
        socket.ringEnd = message.ringEnd;
        return true;
    }
    socket.bytes.resize(size);
    bytes = socket.bytes;
    return receiveAll(socket.program, socket.bytes.data(), size);
}

} // namespace

Arrival waitForBuffer(CaptureSocket& socket, long microseconds, int otherFd, _hdr& hdr,
                      std::span<const unsigned char>& bytes)
{
    if (socket.ringEnd > 0)
        socket.ring->released.store(socket.ringEnd, std::memory_order_release);
    socket.ringEnd = 0;
    std::vector<pollfd> events{{socket.listening, POLLIN, 0},
                               {socket.program, POLLIN, 0},
                               {watchFd(socket.watch), POLLIN, 0},
                               {otherFd, POLLIN, 0}};
    const bool isFree = socket.newcomers.empty() || !hasHungUp(socket);
    for (const int fd : socket.newcomers)
        events.push_back({isFree ? fd : -1, POLLIN, 0});
    const bool canTakeAway =
        socket.watch.gone && (socket.betweenFrames || socket.watch.programSaysSo);
    const long untilThen = canTakeAway ? stillShown(socket.watch) : microseconds;
    if (canTakeAway && (microseconds < 0 || untilThen < microseconds))
        microseconds = untilThen; // unless the program has something to say
    const timespec time{microseconds / 1'000'000, microseconds % 1'000'000 * 1000};
    const int ready =
        ppoll(events.data(), events.size(), microseconds < 0 ? nullptr : &time, nullptr);
    if (canTakeAway && (ready <= 0 || !events[1].revents) && stillShown(socket.watch) == 0)
        return takeAway(socket, hdr, bytes);
    if (ready <= 0)
        return Arrival::nothing;
    if (events[2].revents)
        lookAtWindow(socket.watch);
    if (events[0].revents)
        acceptNewcomer(socket);
    if (!hasHungUp(socket))
        if (const Arrival arrival = hearNewcomers(socket); arrival != Arrival::nothing)
            return arrival;
    if (socket.program < 0)
        return socket.endsAfter ? Arrival::end : Arrival::nothing;
    if (!events[1].revents)
        return Arrival::nothing;
    bytes = {};
    if (takeMessage(socket, hdr, bytes))
        return bytes.data() ? Arrival::buffer : Arrival::nothing;
    leaveProgram(socket);
    return Arrival::programEnd;
}

void answerFrames(CaptureSocket& socket, int frames)
{
    const int own = std::min(frames, socket.ownFrames);
    socket.ownFrames -= own;
    if (frames > own && socket.program >= 0)
        answer(socket.program, frames - own);
}

void endWaiting(const std::string& path)
{
    const sockaddr_un address = addressOf(path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        send(fd, &endOfWaitingSign, sizeof endOfWaitingSign, MSG_NOSIGNAL);
    close(fd);
}
