// Prototypes of operations that the stream cannot ask for but overloads call.
#pragma once

#include "wire/operations.h"

#define QUERY(name)                                                                                \
    template <>                                                                                    \
    struct PrototypeOf<Op::name> {                                                                 \
        using Type = decltype(::name);                                                             \
    };
QUERY(glGetDoublev)
QUERY(glGetFloatv)
QUERY(glGetIntegerv)
QUERY(glGetPointerv)
QUERY(glGetVertexAttribivARB)
QUERY(glGetVertexAttribPointervARB)
QUERY(glXJoinSwapGroupNV)
QUERY(glXBindSwapBarrierNV)
QUERY(glXQueryMaxSwapGroupsNV)
QUERY(glXQueryExtensionsString)
#undef QUERY
