#include "capture/stream.h"
#include "capture/descriptors.h"
#include "capture/reasons.h"
#include "client/captureProtocol.h"
#include "client/captureRing.h"
#include "client/captureVariables.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
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
std::mutex streamLock, buffersLock, listsLock, keptDrawsLock, keptImagesLock, drawablesLock,
    surfacesLock, textsLock, toldLock;

namespace {

OwnDescriptor connection;
std::mutex answersLock; // one waits for the wall at a time
long shown;             // frames, as the wall has answered; under answersLock
std::mutex connectLock;
std::atomic<long> sent; // frames
RingWriter writer;

// What there was no room for yet, in order, and whether this thread is to wait until there is.
struct Waiting {
    CaptureMessage what;
    std::vector<unsigned char> bytes{};
    std::size_t sent = 0;
};
auto& backlog = *new std::deque<Waiting>; // never destroyed
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

// True when the other side is gone.
bool hasHungUp()
{
    pollfd state{connection.fd, 0, 0};
    return !isStillOwn(connection) || poll(&state, 1, 0) > 0;
}

// Counts the time of a block.
struct Timed {
    using Clock = std::chrono::steady_clock;
    Figure figure;
    Clock::time_point start = Clock::now();
    ~Timed()
    {
        const auto time =
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
        count(writer, figure, static_cast<std::uint64_t>(time.count()));
    }
};

// A byte, whose value says nothing. One that the socket does not take is not needed: others are
// there.
void wakeReader()
{
    constexpr char nothing = 0;
    count(writer, Figure::wakeUps, 1);
    if (!isStillOwn(connection) ||
        (send(connection.fd, &nothing, 1, MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EAGAIN &&
         errno != EWOULDBLOCK && errno != EINTR))
        stop(Reason::gone);
}

// What is larger than may be reserved goes in parts.
bool sendFirst()
{
    Waiting& first = backlog.front();
    constexpr std::size_t most = mostReserved / 4;
    const auto left = std::span<const unsigned char>(first.bytes).subspan(first.sent);
    const auto part = left.first(std::min(left.size(), most));
    CaptureMessage what = first.what;
    what.isPart = part.size() < left.size();
    if (!append(writer, {&part, 1}, what))
        return false;
    first.sent += part.size();
    return true;
}

void sendBacklog()
{
    while (!backlog.empty() && sendFirst())
        if (backlog.front().sent == backlog.front().bytes.size())
            backlog.pop_front();
}

void waitForBacklog()
{
    const Timed timed{Figure::waitedForRoom};
    constexpr int step = 100; // milliseconds, for one who is gone tells nobody
    int waited = 0;
    for (;;) {
        const std::uint32_t begun = beginWaiting(writer);
        {
            const std::lock_guard lock(streamLock);
            const std::size_t before = backlog.size();
            if (capturing && hasHungUp())
                stop(Reason::gone);
            if (capturing)
                sendBacklog();
            else
                backlog.clear();
            waited = backlog.size() < before ? 0 : waited;
            if (backlog.empty())
                return;
            wakeReader();
        }
        awaitRelease(writer, begun, step);
        waited = writer.ring->releases.load() != begun ? 0 : waited + step;
        if (captureOptions.patience > 0 && waited >= 1000 * captureOptions.patience)
            stop(Reason::standsStill);
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
    const int memory = memfd_create("mosa-capture", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (memory < 0 || ftruncate(memory, sizeof(CaptureRing)) != 0 ||
        fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
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
    writer.ring = made.ring;
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
    if (writer.ring) // a tape may lie in it
        mmap(writer.ring, sizeof *writer.ring, PROT_READ | PROT_WRITE,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
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

// Behind all others. The reader is woken when a frame ends, or when there is little room left.
void noteSent(const CaptureMessage& what)
{
    if (what.hdr.sync > 0)
        ++sent;
    if ((what.hdr.sync != 0 || isFilling(writer)) && mustWakeReader(writer))
        wakeReader();
}

void keepForLater(std::span<const std::span<const unsigned char>> pieces, CaptureMessage what)
{
    Waiting& waiting = backlog.emplace_back(Waiting{.what = what});
    for (const std::span<const unsigned char> piece : pieces)
        waiting.bytes.insert(waiting.bytes.end(), piece.begin(), piece.end());
    owesBacklog = true;
}

void sendMessage(std::span<const std::span<const unsigned char>> pieces, CaptureMessage what)
{
    if (std::ranges::all_of(pieces, &std::span<const unsigned char>::empty))
        return;
    if (!backlog.empty() || !append(writer, pieces, what))
        keepForLater(pieces, what);
    noteSent(what);
}

} // namespace

std::span<unsigned char> reserveRoom(std::size_t bytes)
{
    if (!capturing || !writer.ring || !backlog.empty())
        return {};
    return reserve(writer, bytes);
}

void giveRoomBack(std::span<unsigned char> room) { giveBack(writer, room); }

void sendReserved(std::span<unsigned char> room, std::size_t written, bool endsFrame)
{
    const CaptureMessage what{.hdr = {0, endsFrame}, .wallCurrent = wallCurrent.window};
    const std::span<const unsigned char> piece = room.first(written);
    if (!capturing || written == 0)
        return giveBack(writer, room);
    if (!backlog.empty() || !commit(writer, room, written, what)) {
        keepForLater({&piece, 1}, what);
        giveBack(writer, room);
    }
    noteSent(what);
}

void sendBuffer(std::span<const std::span<const unsigned char>> pieces, bool endsFrame)
{
    if (capturing && isConnected())
        sendMessage(pieces, {.hdr = {0, endsFrame}, .wallCurrent = wallCurrent.window});
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
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&shown);
    const std::span<const unsigned char> piece{bytes, sizeof shown};
    sendMessage({&piece, 1}, {.hdr = {0, showsAnother}, .wallCurrent = wallCurrent.window});
}

void note(Figure figure, std::uint64_t more) { count(writer, figure, more); }

bool allFramesSent() { return captureOptions.frames > 0 && sent >= captureOptions.frames; }

void waitForFrames()
{
    const std::lock_guard lock(answersLock);
    const Timed timed{Figure::waited};
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
