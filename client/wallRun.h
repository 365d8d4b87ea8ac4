// Jobs on a real wall.
#pragma once

#include "client/mpiJob.h"
#include "client/wallCheck.h"
#include "client/wallLayout.h"

/// The job that plays stream files on a wall, each server on its own node when there are hosts. The
/// client runs on this machine.
Job wallJob(const Wall& wall, const std::vector<Host>& hosts,
            const std::vector<std::string>& clientArguments);

/// Throw std::runtime_error when a file is no stream, or cannot be written.
void requireStream(const std::string& file);
void requireWritable(const std::string& file);

/// Asks every node, the way the job will reach it, whether its wall file, display, GLX and OpenGL
/// library are there, and whether its screen is as large as its tile. Returns what is wrong.
std::vector<Finding> probeWall(const Wall& wall, const Job& job, const std::vector<Place>& places);

/// The node's side of it: looks as the server of this MPI task would, and answers in one line.
int probeNode(const std::string& wallFile);
