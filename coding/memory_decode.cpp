// Operations that hand out or take memory: vertex-array-range memory is known to the application by
// its own pointers, and a selection buffer is not carried at all.
#include "coding/fromWire.h"
#include "coding/serverOverload.h"

#include <cstdio>

char* _glXAllocateMemoryNV(char* args)
{
    void* local =
        perform<Op::glXAllocateMemoryNV>(load<GLsizei>(args), load<GLfloat>(args + 4),
                                         load<GLfloat>(args + 8), load<GLfloat>(args + 12));
    if (!_setLocalVertexArrayRangePointer(fromWire<GLvoid*>(args + 16), local)) {
        std::fputs("GLXALLOCATEMEMORYNV DECODE: memory has already been allocated at this "
                   "location.\n",
                   stderr);
        std::fflush(stderr);
    }
    return args + 20;
}

char* _glXFreeMemoryNV(char* args)
{
    perform<Op::glXFreeMemoryNV>(_checkLocalVertexArrayRangePointer(fromWire<GLvoid*>(args)));
    return args + 4;
}

char* _glSelectBuffer(char* args)
{
    perform<Op::glSelectBuffer>(0, nullptr);
    return args;
}
