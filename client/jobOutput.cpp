#include "client/jobOutput.h"

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

// The standard output or error of a job.
struct Stream {
    int fd;           // the reading end of its pipe; -1 once it has ended
    std::FILE* to;    // where lines go; nullptr: to `kept`
    std::string line; // without its end so far
    std::string kept, remarks;
    int blanks = 0;   // empty lines not yet passed on: one begins mpiexec's remarks
    bool any = false; // it had lines of the tasks
};

void passLine(Stream& stream, const std::string& line)
{
    if (line == "\n") {
        ++stream.blanks;
        return;
    }
    if (isRemark(line)) {
        stream.blanks = 0;
        stream.remarks += line;
        return;
    }
    const std::string text = std::string(static_cast<std::size_t>(stream.blanks), '\n') + line;
    stream.blanks = 0;
    stream.any = true;
    if (stream.to)
        std::fwrite(text.data(), 1, text.size(), stream.to);
    else
        stream.kept += text;
}

// Takes a chunk of what is there and passes whole lines on. False when nothing was there.
bool drain(Stream& stream)
{
    std::array<char, 65536> chunk;
    const ssize_t got = stream.fd < 0 ? -1 : read(stream.fd, chunk.data(), chunk.size());
    if (got == 0)
        stream.fd = -1;
    if (got <= 0)
        return false;
    for (std::string_view rest(chunk.data(), static_cast<std::size_t>(got)); !rest.empty();) {
        const std::size_t length = std::min(rest.find('\n'), rest.size() - 1) + 1;
        stream.line += rest.substr(0, length);
        rest.remove_prefix(length);
        if (stream.line.back() == '\n') {
            passLine(stream, stream.line);
            stream.line.clear();
        }
    }
    if (stream.to)
        std::fflush(stream.to);
    return true;
}

void finish(Stream& stream)
{
    for (int i = 0; i < 16 && drain(stream); ++i) { // mpiexec has ended: what the pipe still holds
    }
    if (!stream.line.empty())
        passLine(stream, stream.line + "\n");
    if (stream.to)
        std::fflush(stream.to);
}

// Makes the signals that end a job come through a file. Those that are ignored stay so.
int openSignals(sigset_t& before)
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN)
            sigaddset(&taken, signal);
    }
    pthread_sigmask(SIG_BLOCK, &taken, &before);
    return signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK);
}

} // namespace

bool isRemark(std::string_view line)
{
    constexpr std::string_view beginnings[] = {
        "=====",
        "=   ",
        "YOUR APPLICATION TERMINATED WITH THE EXIT",
        "This typically refers to a problem with your application",
        "Please see the FAQ page for debugging",
        "[mpiexec@",
        "[proxy:",
    };
    return std::ranges::any_of(
        beginnings, [line](std::string_view beginning) { return line.starts_with(beginning); });
}

JobEnding watchJob(const Job& job, Timeout timeout, std::FILE* to)
{
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + timeout;
    sigset_t before;
    const int signals = openSignals(before);
    Job piped = job;
    piped.output = Output::pipe;
    Process process = startJob(piped);
    Stream out{.fd = process.out, .to = to, .line{}, .kept{}, .remarks{}};
    Stream err{.fd = process.err, .to = to ? stderr : nullptr, .line{}, .kept{}, .remarks{}};

    JobEnding ending;
    for (bool running = true; running;) {
        const auto left = std::chrono::duration_cast<Timeout>(until - Clock::now()).count();
        pollfd events[] = {{process.pidFd, POLLIN, 0},
                           {signals, POLLIN, 0},
                           {out.fd, POLLIN, 0},
                           {err.fd, POLLIN, 0}};
        poll(events, std::size(events), static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
        signalfd_siginfo signal{};
        if (read(signals, &signal, sizeof signal) == sizeof signal)
            ending.interruptedBy = static_cast<int>(signal.ssi_signo);
        ending.timedOut = left <= 0;
        running = !events[0].revents && !ending.interruptedBy && !ending.timedOut;
        drain(out);
        drain(err);
    }
    if (ending.interruptedBy || ending.timedOut) {
        // Nobody reads what follows: without the pipes mpiexec cannot wait for a reader.
        close(process.out);
        close(process.err);
        process.out = process.err = out.fd = err.fd = -1;
        ending.status = stopProcess(process).status;
    } else {
        finish(out);
        finish(err);
        ending.status = finishProcess(process, timeout).status;
    }
    // A signal may have come twice: from a terminal and from who ends its programs.
    for (signalfd_siginfo again{}; read(signals, &again, sizeof again) > 0;) {
    }
    close(signals);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ending.complained = err.any;
    ending.out = out.kept;
    ending.err = err.kept;
    ending.remarks = out.remarks + err.remarks;
    return ending;
}

int reportEnding(const JobEnding& ending)
{
    if (ending.interruptedBy) {
        std::fputs("mosa-wall: interrupted\n", stderr);
        return 128 + ending.interruptedBy;
    }
    if (ending.timedOut)
        std::fputs("mosa-wall: the job took too long\n", stderr);
    else if (ending.status != 0 && ending.complained)
        std::fputs("mosa-wall: the job failed; the first message above is the cause\n", stderr);
    else if (ending.status != 0)
        std::fprintf(stderr, "%smosa-wall: the job failed\n", ending.remarks.c_str());
    return ending.timedOut || ending.status != 0 ? 1 : 0;
}
