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
constexpr int elementBytes(GLenum type)
{
    switch (type) {
    case GL_BYTE:
    case GL_UNSIGNED_BYTE:
        return 1;
    case GL_SHORT:
    case GL_UNSIGNED_SHORT:
        return 2;
    case GL_DOUBLE:
        return 8;
    default:
        return 4;
    }
}

/// Prints the latest operations by name, oldest first, and where in the buffer the walk stands.
/// Prints nothing when no buffer is being decoded.
void printRecentOperations();

extern int xx; // trace switch: while it is not 0 each operation's name is printed

/// Index of the current operation in its buffer, and between buffers of the last one of the latest;
/// -1 before the first. Decode thread only.
extern int knt;
