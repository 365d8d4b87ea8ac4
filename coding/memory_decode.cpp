// Operations that hand out or take memory: vertex-array-range memory is known to the application by
// its own pointers, and a selection buffer is not carried at all.
#include "coding/fromWire.h"
#include "coding/server_overload/lookups.h"

#include <cstdio>

char* _glXAllocateMemoryNV(char* args)
{
    AllocateMemoryBlock block;
    char* const end = loadBlock(args, block);
    void* local = perform<Op::glXAllocateMemoryNV>(block.size, block.readFrequency,
                                                   block.writeFrequency, block.priority);
    if (!_setLocalVertexArrayRangePointer(block.pointer, local)) {
        std::fputs("GLXALLOCATEMEMORYNV DECODE: memory has already been allocated at this "
                   "location.\n",
                   stderr);
        std::fflush(stderr);
    }
    return end;
}

char* _glXFreeMemoryNV(char* args)
{
    FreeMemoryBlock block;
    char* const end = loadBlock(args, block);
    perform<Op::glXFreeMemoryNV>(_checkLocalVertexArrayRangePointer(block.pointer));
    return end;
}

char* _glSelectBuffer(char* args)
{
    perform<Op::glSelectBuffer>(0, nullptr);
    return args;
}
