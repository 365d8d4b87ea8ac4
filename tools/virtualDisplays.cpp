#include "tools/virtualDisplays.h"
#include "tools/xAuthority.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr Timeout startTime = std::chrono::seconds(60);

// The line that the X server writes once it takes connections: its display number. An empty string
// when it ends or says nothing in time.
std::string readNumber(int fd)
{
    std::string line;
    for (;;) {
        pollfd more{fd, POLLIN, 0};
        const int ready = poll(&more, 1, static_cast<int>(startTime.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        char c = 0;
        if (ready <= 0 || read(fd, &c, 1) != 1)
            return {};
        if (c == '\n')
            return line;
        line += c;
    }
}

} // namespace

VirtualDisplay startDisplay(int width, int height, const std::vector<std::string>& xServer)
{
    const DisplayCookie cookie = newCookie();
    int number[2];
    if (pipe2(number, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    Command command{
        .argv = xServer, .environment = {}, .output = Output::capture, .inheritedFd = number[1]};
    std::vector<std::string>& argv = command.argv;
    argv.insert(argv.end(), {"-displayfd", std::to_string(number[1]), "-auth", cookie.file,
                             "-nolisten", "tcp", "-noreset", "-screen"});
    if (argv[0] == "Xvfb")
        argv.emplace_back("0"); // Xephyr counts its screens itself
    argv.push_back(std::to_string(width) + "x" + std::to_string(height) + "x24");
    VirtualDisplay display;
    try {
        display.server = startProcess(command);
    } catch (...) {
        close(number[0]);
        close(number[1]);
        throw;
    }
    close(number[1]);
    const std::string line = readNumber(number[0]);
    close(number[0]);
    if (line.empty())
        throw std::runtime_error(xServer[0] +
                                 " does not start: " + stopProcess(display.server).err);
    display.name = ":" + line;
    useCookie(cookie, display.name);
    return display;
}

std::vector<VirtualDisplay> startDisplays(int n, int width, int height)
{
    std::vector<VirtualDisplay> displays;
    for (int i = 0; i < n; ++i)
        displays.push_back(startDisplay(width, height));
    return displays;
}

void stopDisplays(std::vector<VirtualDisplay>& displays)
{
    for (VirtualDisplay& display : displays)
        stopProcess(display.server);
    displays.clear();
}
