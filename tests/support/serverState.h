// The server's state in one process: its tables over the recording ones, and its global records as
// at start-up or as after a first make-current.
#pragma once

#include <gtest/gtest.h> // first: Xlib makes None and other common names macros

#include "coding/serverOverload.h"
#include "support/bytes.h"
#include "support/recorder.h"

#include <ostream>
#include <string>

/// Everything as at start-up, with the server's overloads over the recording table.
void startServer();

/// Everything as at start-up, with the recording entries alone.
void startWithoutOverloads();

/// What a run of the decoder did.
struct Outcome {
    int result;
    std::string calls;    // a line each
    std::string messages; // on standard error
    bool operator==(const Outcome&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Outcome& outcome);

/// Walks a buffer that lies at an odd address and ends where its memory ends.
int walk(const Bytes& buffer);
inline int walk(const std::string& text) { return walk(bytes(text)); }

/// The same, with the calls that it made and what it printed.
Outcome run(const Bytes& buffer);
inline Outcome run(const std::string& text) { return run(bytes(text)); }

/// What a buffer that is performed without a message does.
inline Outcome performed(const std::string& calls) { return {1, calls, ""}; }

/// The end of a walk at a record that reaches past the buffer.
inline constexpr char pastEnd[] = "something bad happened at line 133 in routine coding/decoder\n";

/// Makes a drawable and a context current, without X: the application's window of W x H, the local
/// display showing `tile` of the wall, which has `scale` wall pixels for an application pixel.
/// Returns the context's record, its stack at the application's viewport (0, 0, W, H), with no call
/// recorded.
LocalContextInfo& makeTileCurrent(MWRect tile, int W, int H, float scale);
