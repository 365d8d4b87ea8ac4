// The walk through a command buffer.
#pragma once

#include "coding/prototypes.h"

/// Decodes and performs the records of one buffer in order. Returns 1 when the walk ended exactly
/// at the end; 0, after a message, when the last record reaches past it, an opcode is bad or the
/// next record cannot be found: the rest of the buffer is then lost. Decode thread only.
int decoder(unsigned char* bufStart, int length);

/// Bytes of one element of an OpenGL data type; 4, with a message, for a type that is none.
int typeSize(GLenum type);

/// The same without the message.
int elementBytes(GLenum type);

/// Prints the latest operations by name, oldest first, and where in the buffer the walk stands.
/// Prints nothing when no buffer is being decoded.
void printRecentOperations();

extern int xx; // trace switch: while it is not 0 each operation's name is printed
