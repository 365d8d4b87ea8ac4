#include "client/playReports.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int telling = -1;

} // namespace

int openReports(const std::string& path)
{
    const int fd = mkfifo(path.c_str(), 0600) == 0
                       ? open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW)
                       : -1;
    if (fd < 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    return fd;
}

bool receiveReport(int fd, PlayReport& report)
{
    // Records come whole: they are far shorter than PIPE_BUF.
    return read(fd, &report, sizeof report) == ssize_t{sizeof report};
}

void tellBy(const std::string& path)
{
    // Open both ways: without a reader it would be the end of this process.
    telling = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    struct stat status {};
    if (telling >= 0 && fstat(telling, &status) == 0 && S_ISFIFO(status.st_mode))
        return;
    throw std::runtime_error(path + ": no pipe to tell by");
}

void tell(const PlayReport& report)
{
    if (telling >= 0) {
        [[maybe_unused]] const ssize_t written = write(telling, &report, sizeof report);
        return;
    }
    if (report.event == PlayEvent::played)
        std::fputs(summaryOf(report).c_str(), stdout);
    else if (report.event == PlayEvent::shown)
        std::puts("play: the last frame is shown");
    std::fflush(stdout);
}

void tell(PlayEvent event, std::int64_t frames)
{
    tell({.event = event,
          .isLive = 0,
          .frames = frames,
          .buffers = 0,
          .bytes = 0,
          .seconds = 0,
          .perSecond = 0});
}

std::string summaryOf(const PlayReport& played)
{
    char text[256];
    if (played.isLive)
        std::snprintf(text, sizeof text, "play: %lld bytes, %lld frames, %.1f seconds\n",
                      static_cast<long long>(played.bytes), static_cast<long long>(played.frames),
                      played.seconds);
    else
        std::snprintf(text, sizeof text,
                      "play: %lld buffers, %lld bytes, %lld frames, %.3f seconds, %s\n",
                      static_cast<long long>(played.buffers), static_cast<long long>(played.bytes),
                      static_cast<long long>(played.frames), played.seconds,
                      played.perSecond > 0 ? (std::to_string(std::lround(played.perSecond)) +
                                              " frames per second after the first")
                                                 .c_str()
                                           : "a single frame");
    return text;
}
