// How play tells whoever has started it how it goes: records through a pipe that has a name, so
// that they reach past mpiexec.
#pragma once

#include <cstdint>
#include <string>

enum class PlayEvent : std::int32_t {
    ready,   // a program can connect
    drawing, // one has
    drawn,   // and its stream has ended
    shown,   // the last frame is on the wall
};

struct PlayReport {
    PlayEvent event;
    std::int32_t zero;
    std::int64_t frames; // of the program whose stream has ended
};

/// Makes the pipe. Returns its reading end, which never blocks and has no end of file. Throws
/// std::runtime_error.
int openReports(const std::string& path);

/// False when there is none.
bool receiveReport(int fd, PlayReport& report);

/// Play's side: opens the pipe, and tells. Without one nothing is told. A reader that is gone is no
/// fault.
void tellBy(const std::string& path);
bool isTelling();
void tell(PlayEvent event, std::int64_t frames = 0);
