// Running programs' streams, as they come.
#pragma once

#include "client/connection.h"
#include "client/pointerWall.h"
#include "client/steering.h"

#include <string>

/// Takes in the streams of the programs that connect at `socketPath`, one after the other, sends
/// them to the servers and tells each program of every frame that they have shown, until endWaiting
/// is said there; and what is said by the way. Nothing is polled while neither moves. On a wall
/// that has a size the program's mouse pointer is shown. Throws std::runtime_error when it cannot
/// listen there. Main thread.
void playLive(Connection& connection, const std::string& socketPath, Steering& steering,
              const PointerWall& wall);

/// Passes on to the servers what has been said.
void steerServers(Connection& connection, Steering& steering);
