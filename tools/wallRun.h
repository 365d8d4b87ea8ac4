// Jobs that play on a wall.
#pragma once

#include "client/playOptions.h"
#include "client/streamFile.h"
#include "tools/frameLock.h"
#include "tools/hostOrder.h"
#include "tools/jobOutput.h"
#include "tools/wallCheck.h"
#include "tools/wallLayout.h"

/// What the options ask for with the last frame on a wall, and a picture where it has a file name.
LastFrame lastFrameOn(const Wall& wall, const std::vector<Place>& places,
                      const PlayOptions& options, const std::string& picture);

/// A job that plays stream files, on no wall yet. It waits with the last frame when there is
/// something to be done with it.
Job playJob(const std::vector<std::string>& files, const PlayOptions& options,
            const LastFrame& last);

/// A job that shows a running program, on no wall yet.
Job liveJob(const PlayOptions& options);

/// Has the servers load the project's own overload libraries, the plain list or all of them. False
/// when the environment names a list, which is left alone.
bool loadOverloads(Job& job, bool plain);

/// Puts a job on a wall, each server on its own node when there are hosts. The client runs on this
/// machine.
void putOnWall(Job& job, const Wall& wall, const std::vector<Host>& hosts);

/// Reads a stream that is to be played. Throws std::runtime_error when it is damaged or not there.
StreamFile requireStream(const std::string& file);

/// Throws std::runtime_error when a file cannot be written.
void requireWritable(const std::string& file);

/// How many samples of a pixel a screen has at most, by an OpenGL library.
int mostSamples(const std::string& display, int screen, const std::string& library);

/// Asks every node, the way the job will reach it, whether its wall file, display, GLX and OpenGL
/// library are there, and whether its screen is as large as its tile.
struct WallAnswers {
    std::vector<Finding> findings; // what is wrong
    int samples; // of a pixel, that every server has; 0: there is no multisampling, or one is
                 // silent
    int hubPort; // free on the first server's node; 0: it is silent
    std::map<std::size_t, NodeAnswer> nodes; // by their servers, of those that are not silent
};
WallAnswers probeWall(const Wall& wall, const Job& job, const std::vector<Place>& places);

/// Sums of the wall file and the server's program on the machine that asks.
struct SumsThere {
    std::string wall, server;
    std::string hosts; // of the job, with commas between; empty when there is only one
};

/// The node's side of it: looks as the server of this MPI task would, and answers in one line.
int probeNode(const std::string& wallFile, const SumsThere& sums);
