// A running program's stream, as it comes.
#pragma once

#include "client/connection.h"

#include <string>

/// Takes in the stream of the program that connects at `socketPath`, sends it to the servers and
/// tells the program of every frame that they have shown, until its stream ends. Nothing is polled
/// while neither moves. Throws std::runtime_error when it cannot listen there. Main thread.
void playLive(Connection& connection, const std::string& socketPath);
