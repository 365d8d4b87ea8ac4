// A running program's stream as a file.
#include "client/receivePrograms.h"
#include "client/wholeFile.h"
#include "tools/cleanUp.h"
#include "tools/usersProgram.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace {

constexpr Timeout endTime = std::chrono::seconds(10); // for what does not end with the program

// Whole frames count: what follows the last one is cut off at the end.
struct Recording {
    WholeFile file;
    long whole = 0, frames = 0; // bytes, and how many frames they are
    Drawing drawing = {};
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

// Takes the streams of the program, and of what it starts, in until they end.
void record(Recording& recording, CaptureSocket& socket, UsersProgram& program,
            const LiveOptions& options)
{
    constexpr long tick = 200'000; // microseconds
    int shown = 0;
    const auto isOver = [&] {
        followStops();
        if (!recording.trouble.empty() || isHeld(program, options, recording.drawing))
            return true;
        if (!isTimeOver(program))
            return !mayStillDraw(program, recording.drawing);
        if (!program.stopped)
            stopUsersProgram(program); // its stream then ends
        return !recording.drawing.now || JobClock::now() > program.end + endTime;
    };
    receivePrograms(socket, {.take =
                                 [&](const _hdr& hdr, std::span<const unsigned char> bytes) {
                                     writeBuffer(recording, hdr, bytes);
                                     shown += hdr.sync != 0;
                                 },
                             .begins = [&] { beginsToDraw(recording.drawing); },
                             .ends = [&](long frames) { hasDrawn(recording.drawing, frames); },
                             .shown = [&] { return std::exchange(shown, 0); },
                             .wait =
                                 [&](bool) {
                                     const bool runs = program.process.pid > 0;
                                     return ReceiverWait{tick, runs ? program.process.pidFd : -1};
                                 },
                             .isOver = isOver});
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
    record(recording, socket, program, once);
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
    if (isHeld(program, options, recording.drawing))
        stopUsersProgram(program);
    while (!program.stopped && !hasEnded(program, std::chrono::seconds(1))) {
    }
    programIsDone();
    if (program.ended)
        return statusOf(program, options, drew);
    if (!drew)
        sayDrewNothing(options);
    return drew ? 0 : 1;
}
