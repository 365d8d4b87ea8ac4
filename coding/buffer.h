// Memory that outlives a command buffer.
#pragma once

#include "wire/layouts.h"

#include <vector>

/// Memory that OpenGL or a decoder keeps using after its command buffer has gone back to the pool.
/// It grows to what the largest record needed and is never released. Memory that OpenGL may still
/// write to when its buffer has grown is kept beside it. Memory of client arrays stays where it is:
/// any context may still draw from it.
struct ScratchBuffer {
    const char* name; // for the message when it cannot grow
    char* data = nullptr;
    int size = 0;
    int arrived = 0;       // bytes that the latest record brought
    std::int64_t room = 0; // bytes of addresses that are set aside for a kind of client array
    std::vector<char*> outgrown{};
};

/// One for each kind. Decode thread only.
extern ScratchBuffer scratchBuffers[memoryKinds];

inline ScratchBuffer& scratchOf(Memory kind) { return scratchBuffers[static_cast<int>(kind)]; }

/// Makes a buffer hold at least `bytes` bytes and returns its data; its contents are lost when it
/// grows. Ends the process, naming the buffer and the decoder of `operation`, without memory.
char* reserve(Memory kind, int bytes, const char* operation);
