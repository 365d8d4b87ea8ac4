#include "client/captureSocket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
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
    // Sealed: memory that became smaller would end this process.
    if (memory >= 0 && (message.msg_flags & MSG_CTRUNC) == 0 && fstat(memory, &status) == 0 &&
        status.st_size >= static_cast<off_t>(sizeof(CaptureRing)) &&
        (fcntl(memory, F_GET_SEALS) & F_SEAL_SHRINK) != 0)
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
        socket.ring = {ring};
        socket.hungUp = false;
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
    socket.figures = figuresOf(socket.ring);
    munmap(socket.ring.ring, sizeof(CaptureRing));
    close(socket.program);
    socket.ring = {};
    socket.hungUp = false;
    socket.bytes = {};
    socket.bytesTaken = false;
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

// The end of a message that another window is shown, or none.
bool hearOfWindow(CaptureSocket& socket, std::span<const unsigned char> bytes)
{
    CaptureShown shown{};
    if (bytes.size() != sizeof shown)
        return false; // no capture library says so
    std::memcpy(&shown, bytes.data(), sizeof shown);
    shown.display[sizeof shown.display - 1] = shown.authority[sizeof shown.authority - 1] = '\0';
    showsWindow(socket.watch, shown);
    return true;
}

// Takes messages until one is a whole command buffer, or there are no more (`bytes` is empty then).
// False when what is there is no capture library's.
bool takeMessages(CaptureSocket& socket, _hdr& hdr, std::span<const unsigned char>& bytes)
{
    constexpr std::size_t most = INT32_MAX;
    CaptureMessage message{};
    std::span<const unsigned char> part;
    Taken taken = Taken::nothing;
    while ((taken = take(socket.ring, message, part)) == Taken::message) {
        socket.wallCurrent = message.wallCurrent;
        if (message.hdr.sync == showsAnother) {
            if (!hearOfWindow(socket, part))
                return false;
            continue;
        }
        if (message.isPart || !socket.bytes.empty()) {
            if (part.size() > most - socket.bytes.size())
                return false;
            socket.bytes.insert(socket.bytes.end(), part.begin(), part.end());
            release(socket.ring);
            if (message.isPart)
                continue;
            part = socket.bytes;
            socket.bytesTaken = true;
        }
        hdr = {static_cast<std::int32_t>(part.size()), message.hdr.sync};
        socket.betweenFrames = hdr.sync != 0;
        bytes = part;
        return true;
    }
    return taken == Taken::nothing;
}

// The bytes by which the program wakes this process, or the end of them.
void hearProgram(CaptureSocket& socket)
{
    char bytes[64];
    const ssize_t got = recv(socket.program, bytes, sizeof bytes, MSG_DONTWAIT);
    socket.hungUp |= got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR);
}

} // namespace

Arrival waitForBuffer(CaptureSocket& socket, long microseconds, int otherFd, _hdr& hdr,
                      std::span<const unsigned char>& bytes)
{
    if (socket.program >= 0)
        release(socket.ring);
    if (std::exchange(socket.bytesTaken, false))
        socket.bytes = {};
    std::vector<pollfd> events{{socket.listening, POLLIN, 0},
                               {socket.hungUp ? -1 : socket.program, POLLIN, 0},
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
    const auto hasSomething = [&socket] {
        return socket.program >= 0 && (socket.hungUp || !mayWait(socket.ring));
    };
    if (hasSomething())
        microseconds = 0;
    const timespec time{microseconds / 1'000'000, microseconds % 1'000'000 * 1000};
    const int ready =
        ppoll(events.data(), events.size(), microseconds < 0 ? nullptr : &time, nullptr);
    const bool speaks = hasSomething() || (ready > 0 && events[1].revents);
    if (socket.program >= 0)
        endReaderWait(socket.ring);
    if (canTakeAway && !speaks && stillShown(socket.watch) == 0)
        return takeAway(socket, hdr, bytes);
    if (ready <= 0 && !speaks)
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
    if (events[1].revents)
        hearProgram(socket);
    bytes = {};
    const bool isSound = takeMessages(socket, hdr, bytes);
    if (isSound && bytes.data())
        return Arrival::buffer;
    if (isSound && !socket.hungUp)
        return Arrival::nothing;
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
