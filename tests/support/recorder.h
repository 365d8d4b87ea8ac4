// An operation table that records its calls: one entry for each operation, made from the
// operation's prototype. A call becomes a line of its name and arguments, such as
// "glVertex3f 1 2 3": unsigned numbers above 255 and handles in hexadecimal, characters quoted as
// numbers, null pointers as "null" and other arrays as "ptr" or, when `shownElements` is set, as
// their first elements in brackets (untyped memory as bytes).
#pragma once

#include "coding/wire.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct Recorder {
    std::vector<std::string> calls;
    int shownElements = 0;

    /// What the glGet operations answer, by parameter name; nothing is written for others.
    std::map<unsigned, std::vector<double>> values;

    /// What operations return, by name, instead of what recordingTable's comment states.
    std::map<Op, std::uint64_t> results;

    /// Called with each line. The default keeps it in `calls`.
    void (*log)(const std::string& line) = nullptr;
};

extern Recorder recorder;

/// Forgets calls, answers and results; names are given out from 1001 on again.
void resetRecorder();

/// The recorded calls, a line each, and forgets them.
std::string takeCalls();

/// The recording entries by opcode. What they return is 0, but: creating operations return
/// increasing handles or addresses (glGenTextures and glGenProgramsARB fill in names from 1001 on),
/// glXMakeCurrent and glXMakeContextCurrent return 1, glXChooseVisual the default visual of its
/// display, and glXChooseFBConfig a list of one configuration.
extern glOp recordingTable[operationCount];
