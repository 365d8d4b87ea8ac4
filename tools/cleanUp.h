// What has been started and written, so that none of it is left when this process ends: by itself,
// or by SIGHUP, SIGINT, SIGQUIT or SIGTERM, which it says on standard error. Nothing else is
// touched: whatever is started carries a mark in its environment, which its children inherit, and
// what has none is somebody else's. Main thread only.
#pragma once

#include "tools/process.h"

/// Who started something: helpers are this process's own, a program is the user's.
enum class Origin : char { helper = 'h', program = 'p' };

/// Makes this process the one that adopts what others leave behind, and has it clean up at its end.
void installCleanUp();

/// The mark, NAME=value.
std::string markOf(Origin origin);

/// Lists what has been started. `pipes` are the reading ends of its output, or -1. False when there
/// are too many. Async-signal-safe.
bool listStarted(pid_t pid, int pidFd, const int (&pipes)[2], Origin origin);
void unlistStarted(pid_t pid);

/// Closes the reading ends of its output. False when it has none. Async-signal-safe.
bool closePipesOf(pid_t pid);

/// Ends what those of one origin have left behind: SIGTERM, and SIGKILL after `grace`. A program's
/// daemons, in sessions of their own, are left alone.
void endOrphans(Origin origin, Timeout grace);

/// Lists a file or folder to be removed. False when there are too many, or the name is too long.
bool listFile(const std::string& name);
void unlistFile(const std::string& name);
