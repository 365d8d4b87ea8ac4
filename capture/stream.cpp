#include "capture/stream.h"
#include "capture/descriptors.h"
#include "capture/reasons.h"
#include "client/captureProtocol.h"
#include "client/captureVariables.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

CaptureOptions captureOptions;
std::atomic<bool> capturing;
WallCurrent wallCurrent;
std::uint32_t firstHandle;
std::recursive_mutex serialLock;
std::mutex streamLock, buffersLock, listsLock, keptDrawsLock, drawablesLock, surfacesLock,
    textsLock, toldLock;

namespace {

OwnDescriptor connection;
std::mutex answersLock; // one waits for the wall at a time
long shown;             // frames, as the wall has answered; under answersLock
std::mutex connectLock;
std::atomic<long> sent; // frames
CaptureRing* ring;
std::uint64_t ringUsed; // bytes, in all
std::size_t reserved;   // the last of them that are still being written

// What the socket has not taken yet, and whether this thread is to wait until it has.
std::vector<unsigned char> backlog;
std::size_t backlogSent;
thread_local bool owesBacklog;

void stop(Reason why)
{
    if (capturing.exchange(false))
        tell(isStillOwn(connection) || connection.fd < 0 ? why : Reason::closed);
    if (isStillOwn(connection)) // it stays open: another thread may be about to use its number
        shutdown(connection.fd, SHUT_RDWR);
}

// Waits until a connection is ready. False when patience is at an end.
bool await(int fd, short events)
{
    pollfd waited{fd, events, 0};
    const int longest = captureOptions.patience > 0 ? 1000 * captureOptions.patience : -1;
    int ready = 0;
    do
        ready = poll(&waited, 1, longest);
    while (ready < 0 && errno == EINTR);
    return ready != 0;
}

// Sends what can be sent without waiting. False when the other side is gone.
bool sendSome(msghdr& message)
{
    while (message.msg_iovlen > 0) {
        if (!isStillOwn(connection))
            return false;
        const ssize_t done = sendmsg(connection.fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0)
            return errno == EAGAIN || errno == EWOULDBLOCK;
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

bool sendBacklog()
{
    iovec piece{backlog.data() + backlogSent, backlog.size() - backlogSent};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = piece.iov_len > 0;
    const bool there = sendSome(message);
    backlogSent = message.msg_iovlen > 0 ? backlog.size() - piece.iov_len : backlog.size();
    if (backlogSent == backlog.size() || !there) {
        backlog = {};
        backlogSent = 0;
    }
    return there;
}

// Sends a message behind all others. What the socket does not take is kept.
bool sendBehind(msghdr& message)
{
    if (!sendBacklog() || (backlog.empty() && !sendSome(message)))
        return false;
    for (std::size_t i = 0; i < message.msg_iovlen; ++i) {
        const auto* from = static_cast<const unsigned char*>(message.msg_iov[i].iov_base);
        backlog.insert(backlog.end(), from, from + message.msg_iov[i].iov_len);
    }
    owesBacklog |= !backlog.empty();
    return true;
}

void waitForBacklog()
{
    for (bool waits = true; waits && capturing;) {
        if (!await(connection.fd, POLLOUT))
            stop(Reason::standsStill);
        const std::lock_guard lock(streamLock);
        if (capturing && !sendBacklog())
            stop(Reason::gone);
        if (!capturing)
            backlog = {};
        waits = !backlog.empty();
    }
}

// One answer: 0 after the handshake, a number of frames later. Negative: the other side is gone.
std::int32_t receiveAnswer(int fd, int flags)
{
    std::int32_t answer = -1;
    ssize_t got = 0;
    do
        got = recv(fd, &answer, sizeof answer, flags | (flags ? 0 : MSG_WAITALL));
    while (got < 0 && errno == EINTR);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return 0;
    return got == sizeof answer ? answer : -1;
}

// The handshake, and with it the memory that is shared: null when that does not work.
CaptureRing* sendHandshake(int fd)
{
    const int memory = memfd_create("mosa-capture", MFD_CLOEXEC);
    if (memory < 0 || ftruncate(memory, sizeof(CaptureRing)) != 0)
        return nullptr;
    void* const shared =
        mmap(nullptr, sizeof(CaptureRing), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
    if (shared == MAP_FAILED)
        return nullptr;
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
    const bool handed = sendmsg(fd, &message, MSG_NOSIGNAL) == ssize_t{sizeof handshake};
    close(memory);
    return handed ? static_cast<CaptureRing*>(shared) : nullptr;
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

StreamLock::~StreamLock()
{
    const bool waits = std::exchange(owesBacklog, false);
    streamLock.unlock();
    if (waits)
        waitForBacklog();
}

namespace {

// A connection to the wall that is accepted, or the reason why there is none.
struct Connected {
    OwnDescriptor descriptor{};
    CaptureRing* ring = nullptr;
    std::int32_t firstHandle = 0;
    Reason reason = Reason::noAnswer;
};

Connected connectSocket()
{
    sockaddr_un address;
    if (!localAddress(captureOptions.socket, address))
        return {.reason = Reason::pathTooLong};
    const OwnDescriptor own = ownDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(own.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(own.fd);
        return {};
    }
    constexpr int room = 4 << 20;
    setsockopt(own.fd, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    CaptureRing* const shared = sendHandshake(own.fd);
    const bool waited = !shared || await(own.fd, POLLIN);
    const std::int32_t answer = shared && waited ? receiveAnswer(own.fd, 0) : captureTaken;
    if (answer >= captureAccepted)
        return {own, shared, answer};
    close(own.fd);
    return {.reason = waited ? Reason::taken : Reason::standsStill};
}

} // namespace

bool isConnected() { return connection.fd >= 0; }

bool connectToWall()
{
    static bool tried;
    const std::lock_guard lock(connectLock);
    if (std::exchange(tried, true) || !capturing)
        return capturing;
    const Connected made = connectSocket();
    if (!made.ring) {
        stop(made.reason);
        return false;
    }
    const std::lock_guard streams(streamLock);
    connection = made.descriptor;
    ring = made.ring;
    firstHandle = static_cast<std::uint32_t>(made.firstHandle);
    return true;
}

// ---- A process that forks ----------------------------------------------------------------------

namespace {

std::mutex* const heldByFork[] = {&streamLock,    &buffersLock,  &listsLock, &keptDrawsLock,
                                  &drawablesLock, &surfacesLock, &textsLock, &toldLock};
bool isConnecting; // a thread, while this one forks

void beforeFork()
{
    if (captureOptions.serial)
        serialLock.lock();
    isConnecting = !connectLock.try_lock();
    for (std::mutex* const one : heldByFork)
        one->lock();
}

void releaseForked()
{
    for (std::mutex* const one : heldByFork)
        one->unlock();
    if (!isConnecting)
        connectLock.unlock();
}

void inParent()
{
    releaseForked();
    if (captureOptions.serial)
        serialLock.unlock();
}

// The child must not write into its parent's stream. One that was forked before there is any may
// have its own.
void inChild()
{
    releaseForked();
    std::construct_at(&serialLock); // its owner's number is not this thread's
    if (connection.fd < 0 && !isConnecting)
        return;
    if (isStillOwn(connection))
        close(connection.fd);
    connection = {};
    capturing = false;
    if (ring) // a tape may lie in it
        mmap(ring, sizeof *ring, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED,
             -1, 0);
}

} // namespace

void readCaptureOptions()
{
    pthread_atfork(beforeFork, inParent, inChild);
    namespace names = captureVariables;
    CaptureOptions& options = captureOptions;
    const auto number = [](const char* name, int otherwise) {
        const char* const text = std::getenv(name);
        return text ? std::atoi(text) : otherwise;
    };
    options.socket = std::getenv(names::socket);
    options.window = std::getenv(names::window);
    options.fit = std::getenv(names::fit);
    const char* const as = std::getenv(names::showing);
    options.showing = !as                            ? Showing::automatic
                      : !std::strcmp(as, "calls")    ? Showing::calls
                      : !std::strcmp(as, "pictures") ? Showing::pictures
                                                     : Showing::automatic;
    if (const char* enlarge = std::getenv(names::enlarge))
        options.enlarging = !std::strcmp(enlarge, "smooth")  ? Enlarging::smooth
                            : !std::strcmp(enlarge, "sharp") ? Enlarging::sharp
                                                             : Enlarging::automatic;
    options.ahead = std::max(number(names::ahead, options.ahead), 1);
    options.frames = number(names::frames, 0);
    options.samples = number(names::samples, 0);
    options.patience = number(names::patience, options.patience);
    options.keep = number(names::keep, options.keep);
    options.serial = number(names::serial, 0) != 0;
    options.verbose = number(names::verbose, 0) != 0;
    if (const char* wall = std::getenv(names::wall))
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
    if (!sendBehind(message))
        stop(Reason::gone);
    else if (what.hdr.sync > 0)
        ++sent;
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
    if (!capturing || !isConnected())
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
    if (!capturing || !isConnected())
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
    while (capturing && sent > shown) {
        const bool wait = sent - shown > captureOptions.ahead || allFramesSent();
        if (wait && !await(connection.fd, POLLIN))
            return stop(Reason::standsStill);
        const std::int32_t answer =
            isStillOwn(connection) ? receiveAnswer(connection.fd, wait ? 0 : MSG_DONTWAIT) : -1;
        if (answer < 0)
            return stop(Reason::gone);
        if (answer == 0)
            return; // none has come
        shown += answer;
    }
    if (capturing && allFramesSent()) { // it is held from here on
        capturing = false;
        if (isStillOwn(connection))
            shutdown(connection.fd, SHUT_RDWR);
    }
}
