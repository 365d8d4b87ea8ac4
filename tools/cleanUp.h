// At the end of this process, by itself or by SIGHUP, SIGINT, SIGQUIT or SIGTERM, which it says on
// standard error, nothing is left of what it has started and written. Nothing else is touched:
// whatever is started carries a mark in its environment, which its children inherit; what has none
// belongs to somebody else, unless there is nobody else (orphans.cpp). Main thread only.
#pragma once

#include "tools/process.h"

/// Makes this process the one that adopts what others leave behind, and has it clean up at its end.
void installCleanUp();

/// A shell command that runs when all of that is done, with so much more in its environment; it has
/// half a minute. Once.
void runAtEnd(const std::string& command, const std::string& environment);

/// Lists a file or folder to be removed. False when there are too many, or the name is too long.
bool listFile(const std::string& name);
void unlistFile(const std::string& name);
