// What others on the machine and the network can do to a wall: nothing.
#include <gtest/gtest.h> // before X and its macros

#include "client/captureSocket.h"
#include "overload/frameLock/hub.h"
#include "overload/frameLock/wire.h"
#include "shuffle/threads.h"
#include "tests/jobSupport.h"
#include "tools/nodeWatch.h"
#include "tools/virtualDisplays.h"

#include <X11/Xlib.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

// What the hub asks of its server.
std::atomic<int> done;

namespace {

// Another user, where this one may become one; else one without the cookie.
bool othersCanOpen(const std::string& display)
{
    const pid_t other = fork();
    if (other == 0) {
        alarm(20);
        setenv("XAUTHORITY", "/dev/null", 1);
        if (geteuid() == 0 && setuid(65534) != 0)
            _exit(2);
        _exit(XOpenDisplay(display.c_str()) ? 1 : 0);
    }
    int status = -1;
    waitpid(other, &status, 0);
    return status != 0;
}

// The user's own displays stay usable beside them.
TEST(Neighbours, CannotUseAVirtualDisplay)
{
    const std::string users = "what the user has for his own display";
    setenv("XAUTHORITY", temporaryFile(users).c_str(), 1);
    std::vector<VirtualDisplay> displays = startDisplays(2, 64, 64);
    for (const VirtualDisplay& display : displays) {
        Display* const own = XOpenDisplay(display.name.c_str());
        EXPECT_TRUE(own);
        if (own)
            XCloseDisplay(own);
        EXPECT_FALSE(othersCanOpen(display.name));
    }
    struct stat status {};
    ASSERT_EQ(stat(std::getenv("XAUTHORITY"), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    const std::string entries{
        std::istreambuf_iterator<char>(std::ifstream(std::getenv("XAUTHORITY")).rdbuf()), {}};
    EXPECT_EQ(occurrences(entries, "MIT-MAGIC-COOKIE-1"), 2);
    EXPECT_TRUE(entries.ends_with(users));
    stopDisplays(displays);
}

int connectTo(const net::Address& address)
{
    const int fd = socket(address.bytes.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address.bytes), address.size), 0);
    const timeval limit{20, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return fd;
}

net::Address addressOf(const std::string& text)
{
    net::Address address;
    EXPECT_TRUE(net::resolve(text, address)) << text;
    return address;
}

std::string valueIn(const Strings& environment, const std::string& name)
{
    for (const std::string& entry : environment)
        if (entry.starts_with(name + "="))
            return entry.substr(name.size() + 1);
    return {};
}

// Waits until the watch has so many lifelines, and looks what it says.
std::string troubleWith(NodeWatch& watch, std::size_t lifelines)
{
    const Clock::time_point limit = Clock::now() + std::chrono::seconds(20);
    std::string trouble;
    do
        trouble = nodeTrouble(watch, getpid());
    while (watch.lifelines.size() != lifelines && Clock::now() < limit);
    EXPECT_EQ(watch.lifelines.size(), lifelines);
    return trouble;
}

// A port scan, liars and the silent leave no trace; a server is known by the secret and its number.
TEST(Neighbours, AreNoServersAtTheLifeline)
{
    Job job;
    watchNodes(job);
    const net::Address address = addressOf(valueIn(job.environment, "MOSA_LIFELINE"));
    const std::string secret = valueIn(job.secrets, "MOSA_LIFELINE_SECRET");
    ASSERT_EQ(secret.size(), 32U);
    NodeWatch watch;
    std::vector<int> silent;
    for (int i = 0; i < 100; ++i) {
        close(connectTo(address));
        silent.push_back(connectTo(address));
    }
    LifelineHello hello{.mark = lifelineMark, .server = 7, .pid = 1, .secret = {}};
    const int liar = connectTo(address);
    secret.copy(hello.secret, sizeof hello.secret);
    hello.secret[secret.size() - 1] ^= 1; // it knows all but the last bit
    net::sendRecord(liar, hello);
    char nothing = 0;
    std::thread reader([&] { EXPECT_LE(recv(liar, &nothing, 1, 0), 0); });
    hello.secret[secret.size() - 1] ^= 1;
    const int servers[] = {connectTo(address), connectTo(address)};
    for (const int server : servers)
        net::sendRecord(server, hello);
    EXPECT_EQ(troubleWith(watch, 2), "");
    EXPECT_LE(watch.newcomers.size(), 64U);
    reader.join();
    EXPECT_EQ(watch.ended, "");
    close(servers[0]);
    troubleWith(watch, 1);
    EXPECT_EQ(watch.ended, "server 7");
    for (const int fd : silent)
        close(fd);
    close(liar);
    close(servers[1]);
}

// ---- The hub -----------------------------------------------------------------------------------

int sayHello(const net::Address& hub, int server, const char* secret)
{
    const int fd = connectTo(hub);
    frameLock::Hello hello{.mark = frameLock::helloMark,
                           .server = server,
                           .hasHardware = server, // not all
                           .zero = 0,
                           .secret = {},
                           .host = "here"};
    std::strcpy(hello.secret, secret);
    net::sendRecord(fd, hello);
    return fd;
}

// What the hub says next, and of which swap.
std::pair<frameLock::Kind, std::uint64_t> heardFrom(int hub)
{
    frameLock::Word word{};
    EXPECT_EQ(recv(hub, &word, sizeof word, MSG_WAITALL), ssize_t{sizeof word});
    return {word.kind, word.number};
}

// Strangers are sent away, whatever they know of the secret. Of two servers one is late again and
// again: the other waits for it for a while, and it is taken back once it is in step.
TEST(Hub, HoldsSwapsForThoseThatKnowTheSecretAndAreInTime)
{
    using frameLock::Kind;
    constexpr std::chrono::milliseconds hold{300};
    const std::vector<int> free = net::listenOn("127.0.0.1", 0);
    const int port = net::portOf(free.front());
    close(free.front());
    testing::internal::CaptureStderr();
    frameLock::startHub({.host = "127.0.0.1",
                         .port = port,
                         .servers = 2,
                         .secret = "secret",
                         .joinTime = std::chrono::seconds(20),
                         .holdTime = hold});
    const net::Address address = addressOf("127.0.0.1:" + std::to_string(port));
    std::vector<int> strangers;
    for (int i = 0; i < 200; ++i)
        strangers.push_back(connectTo(address));
    for (const char* secret : {"s", "secres", "secret "})
        strangers.push_back(sayHello(address, 1, secret));
    strangers.push_back(sayHello(address, 2, "secret")); // there is none of this number
    char nothing = 0;
    for (std::size_t i = 200; i < strangers.size(); ++i)
        EXPECT_EQ(recv(strangers[i], &nothing, 1, 0), 0) << i;
    const int first = sayHello(address, 0, "secret"), late = sayHello(address, 1, "secret");
    for (const int server : {first, late})
        EXPECT_EQ(heardFrom(server).first, Kind::byNetwork);
    std::uint64_t swap = 0;
    const auto comes = [&swap](int server) {
        net::sendRecord(server, frameLock::Word{Kind::swapReady, 0, swap});
    };
    const auto isLetGo = [&swap](int server) {
        return heardFrom(server) == std::pair{Kind::swapNow, swap};
    };
    for (int round = 0; round < 3; ++round) { // together, then without the other
        ++swap;
        comes(late); // before the other, which else is let go without one that is left out
        comes(first);
        EXPECT_TRUE(isLetGo(late) && isLetGo(first));
        ++swap;
        const Clock::time_point start = Clock::now();
        comes(first);
        EXPECT_TRUE(isLetGo(first));
        EXPECT_GE(Clock::now() - start, hold);
        comes(late); // it runs free until it has caught up
        EXPECT_TRUE(isLetGo(late));
        if (round == 1) // left out for a second by now, and for three the next time
            std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    }
    ++swap; // nobody is held up by one that is to stay out for a while
    comes(late);
    EXPECT_TRUE(isLetGo(late));
    comes(first);
    EXPECT_TRUE(isLetGo(first));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(occurrences(said, "server 1 on here has not come to swap "), 3) << said;
    EXPECT_EQ(occurrences(said, "server 1 on here is in step again from swap "), 2) << said;
    EXPECT_EQ(occurrences(said, "server 0"), 0) << said;
    for (const int fd : strangers)
        close(fd);
    close(first);
    close(late);
}

int connectLocally(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
}

// Those that say nothing, nonsense, or no more hold nobody up; files are not taken for sockets.
TEST(Neighbours, OfTheCaptureSocketAreNotWaitedFor)
{
    const std::string path = temporaryName("socket"), file = temporaryFile("mine");
    {
        CaptureSocket wrong;
        EXPECT_THROW(listenForProgram(wrong, file), std::runtime_error);
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(file));
    auto socket = std::make_unique<CaptureSocket>();
    listenForProgram(*socket, path);
    std::vector<int> strangers;
    for (int i = 0; i < 20; ++i)
        strangers.push_back(connectLocally(path));
    close(strangers.back());
    strangers.pop_back();
    const _handshake handshake = ownHandshake;
    send(strangers.front(), &handshake, sizeof handshake, MSG_NOSIGNAL); // without memory
    _hdr hdr{};
    std::span<const unsigned char> bytes;
    constexpr long step = 1000; // microseconds
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(waitForBuffer(*socket, step, -1, hdr, bytes), Arrival::nothing);
    endWaiting(path);
    Arrival arrival = Arrival::nothing;
    for (int i = 0; i < 100 && arrival == Arrival::nothing; ++i)
        arrival = waitForBuffer(*socket, step, -1, hdr, bytes);
    EXPECT_EQ(arrival, Arrival::end);
    socket.reset();
    EXPECT_FALSE(std::filesystem::exists(path));
    for (const int fd : strangers)
        close(fd);
}

} // namespace
