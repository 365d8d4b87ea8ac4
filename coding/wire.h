// Opcodes of the command stream and the tables indexed by them.
#pragma once

#include <cstdint>

/// The operations by name; the value is the opcode on the wire.
enum class Op : std::uint16_t {
#define OPERATION(number, name, ...) name = number,
#define BY_HAND(number, name, ...) name = number,
#define UNPERFORMED(number, name, ...) name = number,
#include "coding/operations.def"
};

inline constexpr int operationCount = 1238;

/// An opcode as the stream declares it. It is read unsigned: values above 1237 are bad.
using OpCode = short;

/// Entry point of an operation. Each entry is cast to the operation's own prototype for the call.
using glOp = void (*)();

/// Argument decoder: takes the first byte behind the opcode, performs the operation and returns the
/// first byte behind the arguments; null when it cannot know where the next record begins.
using glBufOp = char* (*)(char*);

// Filled once on the main thread by LoadOps, then read by the decode thread only.
extern glOp glOpTable[operationCount];   // what the decoders call
extern glOp baseOpTable[operationCount]; // the system library alone, for overload libraries
extern glBufOp glWrappers[operationCount];
extern const char* opNames[operationCount];

/// Index of an operation in the tables above.
constexpr int indexOf(Op op) { return static_cast<int>(op); }
