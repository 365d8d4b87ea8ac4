// The server's state in one process: its tables over the recording ones, and its global records as
// at start-up or as after a first make-current.
#pragma once

#include <gtest/gtest.h> // first: Xlib makes None and other common names macros

#include "support/bytes.h"
#include "support/recorder.h"
#include "support/serverTables.h"

#include <ostream>
#include <string>

/// Everything as at start-up, with the server's overloads over the recording table.
void startServer();

/// Everything as at start-up, with the recording entries alone.
void startWithoutOverloads();

/// A test that begins so.
template <void (*start)()>
class StartedBy : public testing::Test {
protected:
    void SetUp() override { start(); }
};

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

/// The calls by name alone, a line each.
std::string namesOf(const std::string& calls);

/// What a buffer that is performed without a message does.
inline Outcome performed(const std::string& calls) { return {1, calls, ""}; }

/// The end of a walk at a record that reaches past the buffer.
inline constexpr char pastEnd[] = "something bad happened at line 133 in routine coding/decoder\n";
