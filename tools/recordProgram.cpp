// A running program's stream as a file.
#include "client/captureSocket.h"
#include "client/wholeFile.h"
#include "tools/cleanUp.h"
#include "tools/usersProgram.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include <unistd.h>

namespace {

constexpr Timeout orphanGrace = std::chrono::seconds(10);

// Whole frames count: what follows the last one is cut off at the end.
struct Recording {
    WholeFile file;
    long whole = 0, frames = 0; // bytes, and how many frames they are
    std::string trouble;
};

std::string sizeText(long bytes)
{
    char text[32];
    const bool isLarge = bytes >= 1'000'000;
    std::snprintf(text, sizeof text, "%.1f %s", static_cast<double>(bytes) / (isLarge ? 1e6 : 1e3),
                  isLarge ? "MB" : "KB");
    return text;
}

void write(Recording& recording, const void* data, std::size_t bytes)
{
    if (recording.trouble.empty() && std::fwrite(data, 1, bytes, recording.file.stream) != bytes)
        recording.trouble = recording.file.name + ": " + std::strerror(errno);
}

void writeBuffer(Recording& recording, const _hdr& hdr, std::span<const unsigned char> bytes)
{
    write(recording, &hdr, sizeof hdr);
    write(recording, bytes.data(), bytes.size());
    if (!hdr.sync || !recording.trouble.empty())
        return;
    if (std::fflush(recording.file.stream) != 0) {
        recording.trouble = recording.file.name + ": " + std::strerror(errno);
        return;
    }
    recording.whole = std::ftell(recording.file.stream);
    ++recording.frames;
}

// Takes the program's stream in until it ends.
void record(Recording& recording, CaptureSocket& socket, UsersProgram& program)
{
    constexpr long tick = 200'000; // microseconds
    JobClock::time_point latest = JobClock::time_point::max();
    for (bool connected = false;;) {
        _hdr hdr{};
        std::span<const unsigned char> bytes;
        const int other = connected || program.process.pid < 0 ? -1 : program.process.pidFd;
        const Arrival arrival = waitForBuffer(socket, tick, other, hdr, bytes);
        if (arrival == Arrival::end)
            return;
        connected |= arrival == Arrival::program;
        if (arrival == Arrival::buffer) {
            writeBuffer(recording, hdr, bytes);
            answerFrames(socket, hdr.sync != 0);
            if (!recording.trouble.empty())
                return;
        }
        followStops();
        if (isTimeOver(program) && !program.stopped) {
            stopUsersProgram(program); // its stream then ends
            if (!connected)
                return;
        }
        if (hasEnded(program) && !connected) { // one that it has left behind may be about to draw
            latest = std::min(latest, JobClock::now() + orphanGrace);
            if (!programLeftSomething() || JobClock::now() > latest)
                return;
        }
    }
}

void finish(Recording& recording)
{
    std::FILE* const stream = recording.file.stream;
    std::fflush(stream);
    if (ftruncate(fileno(stream), recording.whole) == 0)
        std::fseek(stream, recording.whole, SEEK_SET);
    std::clearerr(stream);
    write(recording, &endOfStream, sizeof endOfStream);
    if (recording.trouble.empty() && recording.frames > 0)
        finishFile(recording.file);
    else
        abandonFile(recording.file);
    unlistFile(recording.file.beside);
}

} // namespace

int recordProgram(const LiveOptions& options, const std::string& file)
{
    requireProgram(options);
    Desk desk;
    openDesk(desk, false);
    const std::string path = temporaryName("program");
    CaptureSocket socket;
    listenForProgram(socket, path);
    Recording recording{.file = beginFile(file), .trouble = {}};
    listFile(recording.file.beside);
    write(recording, &ownHandshake, sizeof ownHandshake);
    recording.whole = std::ftell(recording.file.stream);

    LiveOptions once = options;
    once.fit = "corner";
    once.samples = 0;         // whoever plays it may have none
    constexpr int ahead = 64; // a file is quick: what bounds a program's lead is the memory between
    UsersProgram program;
    startUsersProgram(program, once, path, ahead, desk.environment);
    record(recording, socket, program);
    if (hasEnded(program))
        programIsDone();
    const std::string trouble = recording.trouble;
    finish(recording);
    if (!trouble.empty())
        throw std::runtime_error(trouble + "; " + std::to_string(recording.frames) +
                                 " frames were recorded");
    if (recording.frames > 0)
        std::fprintf(stderr, "mosa-wall: %s: %ld frames, %s\n", file.c_str(), recording.frames,
                     sizeText(recording.whole).c_str());
    const bool drew = recording.frames > 0;
    const bool timeWasOver = program.stopped;
    if (!timeWasOver && options.frames > 0 && recording.frames >= options.frames &&
        !hasEnded(program)) {
        stopUsersProgram(program);
        return 0;
    }
    while (!timeWasOver && !hasEnded(program, std::chrono::seconds(1))) {
    }
    programIsDone();
    if (!timeWasOver)
        return statusOf(program, options, drew);
    if (!drew)
        sayDrewNothing(options);
    return drew ? 0 : 1;
}
