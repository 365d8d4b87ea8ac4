// The commands of mosa-wall. Each stands in a file of its own, with its options and what it does
// with them, and in the list of mosaWall.cpp; nothing else knows of it.
#pragma once

#include <CLI/CLI.hpp> // before the X headers, whose macros would replace names in it

#include <functional>
#include <string>
#include <vector>

/// A program behind "--", with its arguments; empty: none was given.
using Program = std::vector<std::string>;

enum class TakesProgram { never, perhaps, always };

/// Does what a command is for, with the options that were given. Returns an exit status, or
/// negative the signal that a program has died of. Throws std::runtime_error with what keeps it
/// from its work, CLI::ValidationError for options that do not go together.
using Action = std::function<int(const Program&)>;

struct WallCommand {
    const char* name;
    const char* about; // empty: it is not for people
    TakesProgram takesProgram;
    Action (*add)(CLI::App& command); // its options, and no other's
};

extern const WallCommand layoutCommand, checkCommand, runCommand, recordCommand, snapshotCommand,
    patternCommand, demoCommand, virtualCommand, listCommand, statusCommand, moveCommand,
    raiseCommand, stopCommand, probeCommand;
