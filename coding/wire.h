// The tables indexed by opcode.
#pragma once

#include "wire/opcodes.h"

/// An opcode as the stream declares it. It is read unsigned: values above 1237 are bad. For
/// overload libraries.
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
