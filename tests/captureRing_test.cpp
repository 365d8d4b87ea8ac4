// The memory that a captured program shares with the taker of its stream, both sides in one
// process; and what the taker sees of the program's window.
#include <gtest/gtest.h> // before X and its macros

#include "capture/stream.h"
#include "client/captureSocket.h"
#include "tools/process.h"
#include "tools/virtualDisplays.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Buffers of a kilobyte to more than a ring's: in pieces or written in place, not always as long as
// there was room for. Every byte is of the buffer's number.
std::size_t sizeOf(unsigned number)
{
    std::minstd_rand random(number + 1);
    return number % 16 == 7 ? number * ringBytes / 64 : 1024 * (1 + random() % 1500);
}

void sendOne(unsigned number)
{
    const StreamLock lock;
    const std::size_t size = sizeOf(number);
    const auto value = static_cast<unsigned char>(number);
    if (const auto room = number % 3 ? reserveRoom(size) : std::span<unsigned char>();
        !room.empty()) {
        std::ranges::fill(room.first(size), value);
        sendReserved(room, number % 2 ? size : size / 2, false);
        return;
    }
    const std::vector<unsigned char> bytes(number % 3 && number % 2 == 0 ? size / 2 : size, value);
    const std::span<const unsigned char> all = bytes;
    const std::span<const unsigned char> pieces[] = {all.first(10), all.subspan(10)};
    sendBuffer(pieces, false);
}

// While another thread holds a lock, as good as always; a tape lies in the ring. The child waits
// for nobody and changes nothing.
void forkOne()
{
    std::span<unsigned char> tape;
    {
        const StreamLock lock;
        tape = reserveRoom(1 << 16);
    }
    std::ranges::fill(tape, 1);
    const pid_t child = fork();
    if (child == 0) {
        alarm(5);
        std::ranges::fill(tape, 2);
        sendOne(77);
        for (std::mutex* const one : {&buffersLock, &toldLock})
            one->lock();
        connectToWall();
        const std::lock_guard serial(serialLock);
        _exit(capturing ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(std::ranges::count(tape, 2), 0);
    const StreamLock lock;
    if (!tape.empty())
        sendReserved(tape, 0, false);
}

// The writer is as fast as it can be, and forks between two buffers; the reader looks late.
TEST(CaptureRing, BytesStayUntilTheyHaveBeenRead)
{
    constexpr unsigned buffers = 200;
    const std::string path = temporaryName("socket");
    CaptureSocket socket;
    listenForProgram(socket, path);
    setenv("MOSA_CAPTURE", path.c_str(), 1);
    setenv("MOSA_CAPTURE_SERIAL", "1", 1);
    readCaptureOptions();
    std::thread program([] {
        EXPECT_TRUE(connectToWall());
        std::jthread other([](const std::stop_token& end) {
            for (std::mutex* one = &toldLock; !end.stop_requested();
                 one = one == &toldLock ? &streamLock : &toldLock) {
                const std::lock_guard lock(*one);
                std::this_thread::yield();
            }
        });
        for (unsigned number = 0; number < buffers; ++number) {
            if (number % 20 == 1)
                forkOne();
            sendOne(number);
        }
    });
    _hdr hdr{};
    std::span<const unsigned char> bytes;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (unsigned number = 0; number < buffers;) {
        const Arrival arrival = waitForBuffer(socket, 5'000'000, -1, hdr, bytes);
        ASSERT_LT(std::chrono::steady_clock::now(), end) << number;
        if (arrival == Arrival::program || arrival == Arrival::nothing)
            continue; // it connects, or was woken for what has been taken already
        ASSERT_EQ(arrival, Arrival::buffer) << number;
        for (int i = 0; i < 50; ++i)
            std::this_thread::yield();
        const std::size_t size = sizeOf(number);
        EXPECT_EQ(bytes.size(), number % 3 && number % 2 == 0 ? size / 2 : size) << number;
        EXPECT_EQ(bytes.front(), static_cast<unsigned char>(number));
        EXPECT_EQ(std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1), 0) << number;
        ++number;
    }
    program.join();
}

// What a program says is not believed: memory that might become smaller, what lies beyond it.
TEST(CaptureRing, IsSealedAndLiesWithinItself)
{
    const std::string path = temporaryName("socket");
    const struct {
        bool isSealed, isWhole;
        std::int32_t size;
        Arrival last;
    } cases[] = {{true, true, 100, Arrival::buffer},
                 {true, true, -1, Arrival::programEnd},
                 {true, false, 100, Arrival::nothing},
                 {false, true, 100, Arrival::nothing}};
    for (const auto& [isSealed, isWhole, size, last] : cases) {
        CaptureSocket socket;
        listenForProgram(socket, path);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        int memory = memfd_create("ring", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        ASSERT_EQ(ftruncate(memory, static_cast<off_t>(sizeof(CaptureRing)) - !isWhole), 0);
        const CaptureMessage said{.hdr = {size, 0}};
        ASSERT_EQ(pwrite(memory, &said, sizeof said, offsetof(CaptureRing, messages)),
                  ssize_t{sizeof said});
        constexpr std::uint64_t committed = 1;
        ASSERT_EQ(pwrite(memory, &committed, sizeof committed, offsetof(CaptureRing, committed)),
                  ssize_t{sizeof committed});
        ASSERT_EQ(fcntl(memory, F_ADD_SEALS, isSealed ? F_SEAL_SHRINK : F_SEAL_GROW), 0);
        _handshake handshake = ownHandshake;
        iovec piece{&handshake, sizeof handshake};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof memory)] = {};
        msghdr message{};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        *header = {
            .cmsg_len = CMSG_LEN(sizeof memory), .cmsg_level = SOL_SOCKET, .cmsg_type = SCM_RIGHTS};
        std::memcpy(CMSG_DATA(header), &memory, sizeof memory);
        ASSERT_EQ(sendmsg(fd, &message, 0), ssize_t{sizeof handshake});
        close(memory);
        _hdr hdr{};
        std::span<const unsigned char> bytes;
        constexpr long step = 100'000; // microseconds: all has been sent
        Arrival arrival = Arrival::nothing;
        for (int i = 0; i < 3 && arrival == Arrival::nothing; ++i)
            arrival = waitForBuffer(socket, step, -1, hdr, bytes);
        EXPECT_EQ(arrival, isSealed && isWhole ? Arrival::program : Arrival::nothing);
        EXPECT_EQ(waitForBuffer(socket, step, -1, hdr, bytes), last) << size;
        close(fd);
    }
}

// A window that is hidden while it is asked for: that is noticed now, or there is something to
// read.
TEST(WindowWatch, MissesNoChange)
{
    std::vector<VirtualDisplay> displays = startDisplays(1, 64, 64);
    Display* const dpy = XOpenDisplay(displays[0].name.c_str());
    WindowWatch watch;
    for (int round = 0; round < 1000; ++round) {
        const Window window = XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), 0, 0, 9, 9, 0, 0, 0);
        XMapWindow(dpy, window);
        XSync(dpy, False);
        CaptureShown shown{static_cast<std::uint32_t>(window), 1, 1, {}, {}};
        displays[0].name.copy(shown.display, sizeof shown.display - 1);
        std::thread program([=] {
            for (int i = 0; i < round % 40; ++i)
                std::this_thread::yield();
            XUnmapWindow(dpy, window);
            XSync(dpy, False);
        });
        showsWindow(watch, shown);
        program.join();
        pollfd readable{watchFd(watch), POLLIN, 0};
        while (!watch.gone && poll(&readable, 1, 5000) > 0)
            lookAtWindow(watch);
        ASSERT_TRUE(watch.gone) << round;
        XDestroyWindow(dpy, window);
    }
    XCloseDisplay(dpy);
    stopDisplays(displays);
}

} // namespace
