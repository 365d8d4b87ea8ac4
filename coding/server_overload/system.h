// The system library as the overloads reach it: past the operation table, so that nothing comes
// between them and OpenGL. Decode thread only.
#pragma once

#include "coding/fromWire.h"
#include "coding/queries.h"

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
