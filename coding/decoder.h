// The walk through a command buffer.
#pragma once

#include "wire/prototypes.h"

/// Decodes and performs the records of one buffer in order. Returns 1 when the walk ended exactly
/// at the end; 0, after a message, when the last record reaches past it, an opcode is bad or the
/// next record cannot be found: the rest of the buffer is then lost. Decode thread only.
int decoder(unsigned char* bufStart, int length);

/// Bytes of one element of an OpenGL data type; 4, with a message, for a type that is none.
int typeSize(GLenum type);

/// Prints the latest operations by name, oldest first, and where in the buffer the walk stands.
/// Prints nothing when no buffer is being decoded.
void printRecentOperations();

extern int xx; // trace switch: while it is not 0 each operation's name is printed

// The walk's position. Decode thread only.
extern unsigned char* bs; // first byte of the buffer
extern unsigned char* be; // one past its last byte
extern int knt; // index of the current operation in its buffer, and between buffers of the last one
                // of the latest; -1 before the first
extern int lastOps[100]; // opcode of operation knt at knt modulo 100; never cleared
extern int bucketID;     // buffers whose walk ended exactly at their end
