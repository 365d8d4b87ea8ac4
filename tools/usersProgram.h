// The user's program, with the capture library in the place of its OpenGL.
#pragma once

#include "tools/drawing.h"
#include "tools/liveProgram.h"
#include "tools/terminal.h"
#include "tools/virtualDisplays.h"

/// A desk for a program where there is none. Its display ends with it.
struct Desk {
    std::vector<VirtualDisplay> displays;
    std::vector<std::string> environment;
    ~Desk();
};

/// Opens one where it is wanted or DISPLAY is not set.
void openDesk(Desk& desk, bool wanted);

/// A program, while it runs and after. What still runs with the end of this is stopped.
struct UsersProgram {
    Process process;
    Terminal terminal;        // as it was before
    Ending ending;            // once it has ended
    JobClock::time_point end; // when its time is over
    JobClock::time_point endedAt = {};
    bool ended = false;   // by itself,
    bool stopped = false; // or as the options say
    ~UsersProgram();
};

/// Throws std::runtime_error when there is no such program.
void requireProgram(const LiveOptions& options);

/// Starts it; its stream goes to `socket`. `more` is added to its environment.
void startUsersProgram(UsersProgram& program, const LiveOptions& options, const std::string& socket,
                       int ahead, const std::vector<std::string>& more);

/// True when it has ended, within that time.
bool hasEnded(UsersProgram& program, Timeout timeout = {});

/// True while something may draw: the program, or what it has left behind and that draws, or may be
/// about to begin.
bool mayStillDraw(UsersProgram& program, const Drawing& drawing);

/// True when the program stands at the last of the frames that the options ask for.
bool isHeld(UsersProgram& program, const LiveOptions& options, const Drawing& drawing);

bool isTimeOver(const UsersProgram& program);

/// Ends it, as the options say; when its time is over also what it has left behind.
void stopUsersProgram(UsersProgram& program);

/// Says why the wall or a recording has shown nothing.
void sayDrewNothing(const LiveOptions& options);

/// The exit status for a program that has ended by itself: its own, or 1 when all that was amiss is
/// that it drew nothing. Negative: the signal that it has died of.
int statusOf(const UsersProgram& program, const LiveOptions& options, bool drew);
