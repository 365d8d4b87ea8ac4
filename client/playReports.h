// How play tells whoever has started it how it goes: records through a pipe that has a name, so
// that they reach past mpiexec.
#pragma once

#include <cstdint>
#include <string>

enum class PlayEvent : std::int32_t {
    ready,   // a program can connect
    drawing, // one has
    drawn,   // and its stream has ended, with so many frames
    played,  // every server has performed everything
    shown,   // the last frame is on the wall, and stays for now
};

struct PlayReport {
    PlayEvent event;
    std::int32_t isLive;  // of programs; else of files
    std::int64_t frames;  // of the program, or all,
    std::int64_t buffers; // and with `played`
    std::int64_t bytes;
    double seconds;
    double perSecond; // frames, after the first; 0: there is no other
};

/// What is said to people when all has been played.
std::string summaryOf(const PlayReport& played);

/// Makes the pipe. Returns its reading end, which never blocks and has no end of file. Throws
/// std::runtime_error.
int openReports(const std::string& path);

/// False when there is none.
bool receiveReport(int fd, PlayReport& report);

/// Play's side: opens the pipe, and tells. Without one what is for people is printed. A reader that
/// is gone is no fault.
void tellBy(const std::string& path);
void tell(const PlayReport& report);
void tell(PlayEvent event, std::int64_t frames = 0);
