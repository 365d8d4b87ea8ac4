// Loading of the operation table: system library, overloads, overload libraries.
#include "support/serverState.h"

#include "coding/serverProcess.h"
#include "overload/loader.h"
#include "tools/process.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <numeric>
#include <sstream>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class Loader : public testing::Test {
protected:
    void SetUp() override
    {
        startWithoutOverloads();
        setenv("SYSTEM_OPENGL_LIB", RECORDER_LIBRARY, 1);
        setenv("MOSA_OVERLOAD_FILE", "", 1);
    }

    static void list(const std::string& words)
    {
        setenv("MOSA_OVERLOAD_FILE", temporaryFile(words).c_str(), 1);
    }
};

std::string messagesOf(void (*action)())
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

TEST_F(Loader, OverloadLibrariesAreInstalledInOrderAndChain)
{
    list(" " OVERLOAD_DIR "/overload_first.so\t\n\n" OVERLOAD_DIR "/overload_second.so");
    const std::string file = std::getenv("MOSA_OVERLOAD_FILE");
    EXPECT_EQ(messagesOf(LoadOps),
              "first: installed, live table 1, viewport overloaded 1, undefined 0\n"
              "second: installed, live table 1, viewport overloaded 1, undefined 0\n"
              "Overloads loaded from <" +
                  file + ">\n");
    EXPECT_TRUE(std::ranges::equal(baseOpTable, pTbl));
    EXPECT_EQ(std::ranges::mismatch(glOpTable, baseOpTable).in1 - glOpTable, 10) << "glPointSize";
    const auto [libraries, overloads] = std::pair(1, 68);
    EXPECT_EQ(std::transform_reduce(glOpTable, std::end(glOpTable), baseOpTable, 0, std::plus(),
                                    std::not_equal_to()),
              overloads + libraries);
    // A library that takes an overloaded entry does not come between the overloads and the system.
    makeTileCurrent({0, 0, 8, 6}, 8, 6, 1);
    glOpTable[indexOf(Op::glPushMatrix)] = reinterpret_cast<glOp>(std::abort);
    entryOf<Op::glViewport>(glOpTable)(0, 0, 8, 6);
    clearServerTables();
    nContexts = 3;
    currAppWidth = 30;
    EXPECT_EQ(run("glFlush").messages, "second: glFlush, 3 contexts, app 30 x 0\n"
                                       "first: glFlush, 3 contexts, app 30 x 0\n");
    FreeOps();
}

TEST_F(Loader, WhatCannotBeLoadedEndsTheProcess)
{
    const auto failed = testing::ExitedWithCode(1);
    std::string many;
    for (int i = 0; i < 257; ++i)
        many += OVERLOAD_DIR "/overload_first.so ";
    const std::pair<std::string, std::string> lists[] = {
        {"/nowhere/a.so", "unable to open overlay file /nowhere/a.so\n"},
        {RECORDER_LIBRARY, "unable to access Overlay function in file .*librecorder.so\n"},
        {std::string(256, 'x'), "list file \\(.* longer than 255 characters\n"},
        {std::string(255, 'x'), "unable to open overlay file xxx"},
        {many, "list file \\(.* more than 256 libraries\n"},
    };
    for (const auto& [libraries, message] : lists) {
        list(libraries);
        EXPECT_EXIT(LoadOps(), failed, message);
    }
    setenv("MOSA_OVERLOAD_FILE", "/nowhere", 1);
    EXPECT_EXIT(LoadOps(), failed, "unable to open overlay list file \\(/nowhere");

    setenv("SYSTEM_OPENGL_LIB", "/nowhere/libGL.so", 1);
    EXPECT_EXIT(LoadOps(), failed,
                "^could not open OpenGL shared lib indicated by\n"
                "SYSTEM_OPENGL_LIB environment variable \\(/nowhere/libGL.so\\)\n$");
    glOpTable[0] = reinterpret_cast<glOp>(undefinedOp);
    EXPECT_EQ(_LoadOpFile("/nowhere/libGL.so"), nullptr);
    EXPECT_EQ(glOpTable[0], reinterpret_cast<glOp>(undefinedOp)) << "the table is left alone";
    unsetenv("SYSTEM_OPENGL_LIB");
    if (access("/usr/lib/libGL.so", F_OK) && access("/usr/lib/tls/libGL.so", F_OK)) {
        EXPECT_EXIT(LoadOps(), failed,
                    "^could not open OpenGL shared lib in /usr/lib/libGL.so\n"
                    "or /usr/lib/tls/libGL.so\n$");
    }
}

TEST_F(Loader, AnOperationThatTheLibraryLacksReportsEachCall)
{
    // An overload library has no operations at all.
    void* handle = _LoadOpFile(OVERLOAD_DIR "/overload_first.so");
    ASSERT_TRUE(handle);
    const std::string message = "call made to unresolved OpenGL function\n";
    EXPECT_EQ(run("glVertex3f f:1 f:2 f:3 glIsEnabled i:0 glXGetCurrentContext"),
              (Outcome{1, "", message + message + message}));
    EXPECT_EQ(undefinedOp(), nullptr) << "callers that take a result get zero";
    EXPECT_EQ(run("glXAllocateMemoryNV z:16 i:5").messages, message);
    EXPECT_EQ(LocalVertexArrayRangeTable[0].localVertexArrayRangeID, nullptr);
}

// A display with DPMS, which virtual ones have not: answers one client, and notes what it is told.
class StandInDisplay {
public:
    StandInDisplay(bool isOn, bool powers) : isOn_(isOn), powers_(powers)
    {
        sockaddr_in address{.sin_family = AF_INET,
                            .sin_port = 0,
                            .sin_addr = {htonl(INADDR_LOOPBACK)},
                            .sin_zero = {}};
        bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(listener_, 1);
        socklen_t size = sizeof address;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        displayName = "127.0.0.1:" + std::to_string(ntohs(address.sin_port) - 6000);
        thread_ = std::thread([this] { serve(); });
    }
    // What it was told: the requests, by names, with their numbers. The client's connection is cut.
    std::string told()
    {
        for (const int fd : {listener_, client_.load()})
            shutdown(fd, SHUT_RDWR);
        thread_.join();
        close(listener_);
        return told_;
    }
    std::string displayName;

private:
    static constexpr int saver = 140, power = 141;

    bool take(void* to, std::size_t bytes)
    {
        return bytes == 0 || recv(client_, to, bytes, MSG_WAITALL) == static_cast<ssize_t>(bytes);
    }
    void answer(const std::function<void(std::uint8_t*)>& fill)
    {
        std::array<std::uint8_t, 32> reply{1};
        std::memcpy(&reply[2], &number_, sizeof number_);
        fill(reply.data());
        send(client_, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
    void serve()
    {
        client_ = accept(listener_, nullptr, nullptr);
        std::array<std::uint16_t, 6> hello{};
        take(hello.data(), sizeof hello);
        std::vector<std::uint8_t> body(
            static_cast<std::size_t>((hello[3] + 3) / 4 * 4 + (hello[4] + 3) / 4 * 4));
        take(body.data(), body.size());
        std::array<std::uint16_t, 20> accepted{1, 11, 0, 8};
        accepted[8] = accepted[13] = 0xffff; // the mask of numbers, the longest request
        send(client_, accepted.data(), sizeof accepted, MSG_NOSIGNAL);
        struct Head {
            std::uint8_t opcode, data;
            std::uint16_t words;
        } head{};
        for (; take(&head, sizeof head);) {
            ++number_;
            body.assign(std::size_t{4} * head.words - 4, 0);
            take(body.data(), body.size());
            hear(head.opcode, head.data, body);
        }
        close(client_);
    }
    void hear(int opcode, int data, const std::vector<std::uint8_t>& body)
    {
        std::ostringstream say;
        if (opcode == 98) { // QueryExtension
            const std::string name(reinterpret_cast<const char*>(&body[4]), body[0]);
            answer([&](std::uint8_t* reply) {
                reply[8] = name == "MIT-SCREEN-SAVER" || (powers_ && name == "DPMS");
                reply[9] = name == "DPMS" ? power : saver;
            });
        } else if (opcode == 43 || opcode == 108) // GetInputFocus, GetScreenSaver
            answer([](std::uint8_t*) {});
        else if (opcode == power && data == 7) // Info
            answer([this](std::uint8_t* reply) {
                reply[8] = isOn_ ? 0 : 3;
                reply[10] = 1;
            });
        else
            say << opcode << "/" << data;
        for (std::size_t i = 0; i + 1 < body.size() && !say.str().empty(); i += 2)
            say << " " << body[i] + 256 * body[i + 1];
        told_ += say.str() + (say.str().empty() ? "" : "\n");
    }

    const bool isOn_, powers_;
    const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::atomic<int> client_ = -1;
    std::uint16_t number_ = 0;
    std::string told_;
    std::thread thread_;
};

TEST(Awake, DisplaysAreSwitchedOnWhereTheyCanBe)
{
    const std::string suspended = "140/5 1 0\n", reset = "115/0\n", on = "141/6 0 0\n",
                      after2 = "107/0 120 0 1 0\n", times2 = "141/3 120 120 120 0\n141/4\n";
    const struct {
        bool isOn, powers;
        const char* blankAfter;
        std::string told;
    } cases[] = {
        {false, true, nullptr, suspended + reset + on},
        {true, true, "2", suspended + reset + after2 + times2},
        {false, false, "2", suspended + reset + after2},
    };
    for (const auto& c : cases) {
        StandInDisplay display(c.isOn, c.powers);
        setenv("MOSA_DISPLAY", temporaryFile(display.displayName + " 9 9 0 0 9 9\n").c_str(), 1);
        setenv("MOSA_AWAKE", "1", 1);
        c.blankAfter ? setenv("MOSA_BLANK_AFTER", c.blankAfter, 1) : unsetenv("MOSA_BLANK_AFTER");
        serverID = 0;
        void* const library = _LoadOverlayFile(AWAKE_LIBRARY, glOpTable);
        EXPECT_TRUE(library);
        EXPECT_EQ(display.told(), c.told);
    }
    for (const char* name : {"MOSA_DISPLAY", "MOSA_AWAKE", "MOSA_BLANK_AFTER"})
        unsetenv(name);
}

} // namespace
