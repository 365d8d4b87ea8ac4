// The system library as the overloads reach it: past the operation table, so that nothing comes
// between them and OpenGL. Decode thread only.
#pragma once

#include "coding/fromWire.h"

// Operations that the stream cannot ask for but the overloads call.
#define SYSTEM_FUNCTION(name)                                                                      \
    template <>                                                                                    \
    struct PrototypeOf<Op::name> {                                                                 \
        using Type = decltype(::name);                                                             \
    };
SYSTEM_FUNCTION(glGetDoublev)
SYSTEM_FUNCTION(glGetFloatv)
SYSTEM_FUNCTION(glGetIntegerv)
SYSTEM_FUNCTION(glXJoinSwapGroupNV)
SYSTEM_FUNCTION(glXBindSwapBarrierNV)
SYSTEM_FUNCTION(glXQueryMaxSwapGroupsNV)
SYSTEM_FUNCTION(glXQueryExtensionsString)
#undef SYSTEM_FUNCTION

extern glOp pTbl[operationCount]; // the system library's entries

/// Copies `tbl` into pTbl and installs the overloads into `tbl`. Main thread, before the others.
void Overload(glOp* tbl);

/// Calls the system library's function.
template <Op op, class... Arguments>
auto callSystem(Arguments... arguments)
{
    return entryOf<op>(pTbl)(arguments...);
}

inline GLint systemInteger(GLenum name)
{
    GLint value = 0;
    callSystem<Op::glGetIntegerv>(name, &value);
    return value;
}

inline GLfloat systemFloat(GLenum name)
{
    GLfloat value = 0;
    callSystem<Op::glGetFloatv>(name, &value);
    return value;
}
