#include "capture/stream.h"
#include "client/captureProtocol.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <mutex>

#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

CaptureOptions captureOptions;
std::atomic<bool> capturing;
WallCurrent wallCurrent;
std::uint32_t firstHandle;

namespace {

int connection = -1;
std::mutex answersLock;       // one waits for the wall at a time
std::atomic<int> outstanding; // frames that the wall has not shown yet
std::atomic<long> sent;       // frames
CaptureRing* ring;
std::uint64_t ringUsed; // bytes, in all
std::size_t reserved;   // the last of them that are still being written

void stop(const char* why)
{
    if (why && capturing.exchange(false))
        std::fprintf(stderr, "MOSA: capture: %s; the program goes on without the wall\n", why);
    capturing = false;
    if (connection >= 0) // it stays open: another thread may be about to use its number
        shutdown(connection, SHUT_RDWR);
}

// The child must not write into its parent's stream.
void stopInChild()
{
    if (connection >= 0)
        close(connection);
    connection = -1;
    capturing = false;
}

// Waits until the connection is ready. False when patience is at an end.
bool await(short events)
{
    pollfd waited{connection, events, 0};
    const int longest = captureOptions.patience > 0 ? 1000 * captureOptions.patience : -1;
    int ready = 0;
    do
        ready = poll(&waited, 1, longest);
    while (ready < 0 && errno == EINTR);
    return ready != 0;
}

constexpr char standsStill[] = "the wall stands still";

bool sendAll(msghdr message)
{
    while (message.msg_iovlen > 0) {
        const ssize_t done = sendmsg(connection, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (await(POLLOUT))
                continue;
            stop(standsStill);
        }
        if (done < 0)
            return false;
        auto left = static_cast<std::size_t>(done);
        while (message.msg_iovlen > 0 && left >= message.msg_iov->iov_len) {
            left -= message.msg_iov->iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen > 0) {
            message.msg_iov->iov_base = static_cast<char*>(message.msg_iov->iov_base) + left;
            message.msg_iov->iov_len -= left;
        }
    }
    return true;
}

// One answer: 0 after the handshake, a number of frames later. Negative: the other side is gone.
std::int32_t receiveAnswer(int flags)
{
    std::int32_t answer = -1;
    ssize_t got = 0;
    do
        got = recv(connection, &answer, sizeof answer, flags | (flags ? 0 : MSG_WAITALL));
    while (got < 0 && errno == EINTR);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return 0;
    return got == sizeof answer ? answer : -1;
}

// The handshake, and with it the memory that is shared.
bool sendHandshake()
{
    const int memory = memfd_create("mosa-capture", MFD_CLOEXEC);
    if (memory < 0 || ftruncate(memory, sizeof(CaptureRing)) != 0)
        return false;
    void* const shared =
        mmap(nullptr, sizeof(CaptureRing), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
    if (shared == MAP_FAILED)
        return false;
    ring = static_cast<CaptureRing*>(shared);
    _handshake handshake = ownHandshake;
    iovec piece{&handshake, sizeof handshake};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof memory)] = {};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof memory);
    std::memcpy(CMSG_DATA(header), &memory, sizeof memory);
    const bool handed = sendmsg(connection, &message, MSG_NOSIGNAL) == ssize_t{sizeof handshake};
    close(memory);
    return handed;
}

// Room for so many bytes in one piece of the ring; negative when the reader still needs it.
std::int32_t reserveInRing(std::size_t bytes)
{
    if (reserved > 0)
        return -1;
    const std::uint64_t released = ring->released.load(std::memory_order_acquire);
    const auto room = static_cast<std::uint64_t>(ringBytes);
    std::uint64_t at = ringUsed % room;
    std::uint64_t used = ringUsed;
    // From the beginning where it does not fit, and where all is free: that memory is in the cache.
    if (at > 0 && (at + bytes > room || released == ringUsed)) {
        used += room - at;
        at = 0;
    }
    if (used + bytes - released > room && !(released == ringUsed && bytes <= room))
        return -1;
    ringUsed = used + bytes;
    return static_cast<std::int32_t>(at);
}

} // namespace

bool connectToWall()
{
    if (connection >= 0)
        return capturing;
    sockaddr_un address;
    if (!localAddress(captureOptions.socket, address)) {
        stop("the socket's path is too long");
        return false;
    }
    connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        stop("the wall's socket does not answer");
        return false;
    }
    constexpr int room = 4 << 20;
    setsockopt(connection, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const bool said = sendHandshake();
    if (said && !await(POLLIN)) {
        stop(standsStill);
        return false;
    }
    const std::int32_t accepted = said ? receiveAnswer(0) : captureTaken;
    if (accepted < captureAccepted) {
        stop("another process of the program is on the wall already");
        return false;
    }
    firstHandle = static_cast<std::uint32_t>(accepted);
    pthread_atfork(nullptr, nullptr, stopInChild);
    return true;
}

void readCaptureOptions()
{
    CaptureOptions& options = captureOptions;
    options.socket = std::getenv("MOSA_CAPTURE");
    options.window = std::getenv("MOSA_CAPTURE_WINDOW");
    options.fit = std::getenv("MOSA_CAPTURE_FIT");
    const char* const as = std::getenv("MOSA_CAPTURE_AS");
    options.showing = !as                            ? Showing::automatic
                      : !std::strcmp(as, "calls")    ? Showing::calls
                      : !std::strcmp(as, "pictures") ? Showing::pictures
                                                     : Showing::automatic;
    if (const char* enlarge = std::getenv("MOSA_CAPTURE_ENLARGE"))
        options.enlarging = !std::strcmp(enlarge, "smooth")  ? Enlarging::smooth
                            : !std::strcmp(enlarge, "sharp") ? Enlarging::sharp
                                                             : Enlarging::automatic;
    if (const char* ahead = std::getenv("MOSA_CAPTURE_AHEAD"))
        options.ahead = std::atoi(ahead) > 0 ? std::atoi(ahead) : 1;
    if (const char* frames = std::getenv("MOSA_CAPTURE_FRAMES"))
        options.frames = std::atol(frames);
    if (const char* samples = std::getenv("MOSA_CAPTURE_SAMPLES"))
        options.samples = std::atoi(samples);
    if (const char* patience = std::getenv("MOSA_CAPTURE_PATIENCE"))
        options.patience = std::atoi(patience);
    if (const char* wall = std::getenv("MOSA_CAPTURE_WALL"))
        std::sscanf(wall, "%dx%d", &options.wallWidth, &options.wallHeight);
    capturing = options.socket && *options.socket;
}

namespace {

constexpr std::size_t mostPieces = 8;

// The first of the pieces is the message's.
void sendMessage(CaptureMessage what, std::span<iovec> pieces)
{
    pieces[0] = {&what, sizeof what};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    if (!sendAll(message))
        return capturing ? stop("the wall is gone") : void();
    if (what.hdr.sync > 0) {
        ++outstanding;
        ++sent;
    }
}

} // namespace

std::span<unsigned char> reserveRoom(std::size_t bytes)
{
    if (!capturing || !ring || bytes < leastInRing || bytes > ringBytes)
        return {};
    const std::int32_t at = reserveInRing(bytes);
    if (at < 0)
        return {};
    reserved = bytes;
    return {ring->bytes + at, bytes};
}

void sendReserved(std::span<const unsigned char> written, bool endsFrame)
{
    const auto at = static_cast<std::int32_t>(written.data() - ring->bytes);
    ringUsed -= reserved - written.size();
    reserved = 0;
    if (!capturing || written.empty())
        return;
    iovec piece{};
    sendMessage(
        {{static_cast<std::int32_t>(written.size()), endsFrame}, at, wallCurrent.window, ringUsed},
        {&piece, 1});
}

void sendBuffer(std::span<const std::span<const unsigned char>> pieces, bool endsFrame)
{
    if (!capturing || !connectToWall())
        return;
    std::array<iovec, mostPieces + 1> vector;
    std::size_t size = 0;
    std::size_t n = 1;
    for (const std::span<const unsigned char> piece : pieces) {
        vector[n++] = {const_cast<unsigned char*>(piece.data()), piece.size()};
        size += piece.size();
    }
    if (size == 0)
        return;
    CaptureMessage what{{static_cast<std::int32_t>(size), endsFrame}, -1, wallCurrent.window, 0};
    if (size >= leastInRing && size <= ringBytes)
        what.ringAt = reserveInRing(size);
    if (what.ringAt >= 0) {
        unsigned char* at = ring->bytes + what.ringAt;
        for (const std::span<const unsigned char> piece : pieces)
            at = std::copy(piece.begin(), piece.end(), at);
        what.ringEnd = ringUsed;
        n = 1;
    }
    sendMessage(what, std::span(vector).first(n));
}

void sendShown(std::uint32_t window, std::uint32_t wallWindow, bool doubleBuffered,
               const char* displayName)
{
    if (!capturing || connection < 0)
        return;
    CaptureShown shown{.window = window,
                       .wallWindow = wallWindow,
                       .doubleBuffered = doubleBuffered,
                       .display = {},
                       .authority = {}};
    const char* const authority = std::getenv("XAUTHORITY");
    std::strncpy(shown.display, displayName ? displayName : "", sizeof shown.display - 1);
    std::strncpy(shown.authority, authority ? authority : "", sizeof shown.authority - 1);
    iovec pieces[] = {{}, {&shown, sizeof shown}};
    sendMessage({{sizeof shown, showsAnother}, -1, wallCurrent.window, 0}, pieces);
}

bool allFramesSent() { return captureOptions.frames > 0 && sent >= captureOptions.frames; }

void waitForFrames()
{
    const std::lock_guard lock(answersLock);
    while (capturing && outstanding > 0) {
        const bool wait = outstanding > captureOptions.ahead || allFramesSent();
        if (wait && !await(POLLIN))
            return stop(standsStill);
        const std::int32_t shown = receiveAnswer(wait ? 0 : MSG_DONTWAIT);
        if (shown < 0)
            return stop("the wall is gone");
        if (shown == 0)
            return; // none has come
        outstanding -= shown;
    }
    if (capturing && allFramesSent())
        stop(nullptr);
}
