// Jobs whose servers swap together, by the overload library frameLock.
#pragma once

#include "tools/mpiJob.h"

/// Has several servers swap together, by the library for that; its hub is on the first one's host.
void lockFrames(Job& job, const std::string& host, int port);

/// 128 random bits in hexadecimal digits. Throws std::runtime_error.
std::string newSecret();

/// True when the environment does not forbid it.
bool mayLockFrames();

/// A port of this machine at which nobody listens.
int freePort();
