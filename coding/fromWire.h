// The argument decoders: for operation NAME the function char* _NAME(char* args). Each takes the
// first byte of the argument block, performs the operation through glOpTable and returns the first
// byte behind the block. They trust the block to be complete: the walk has checked its extent.
#pragma once

#include "coding/layouts.h"

#define OPERATION(number, name, ...) char* _##name(char* args);
#define BY_HAND(number, name, ...) char* _##name(char* args);
#define UNPERFORMED(number, name, ...) char* _##name(char* args);
#include "coding/operations.def"

/// Extents of the argument blocks by opcode.
extern const Extent recordExtents[operationCount];

/// The prototype and the layout of an operation.
template <Op op>
struct PrototypeOf;
template <Op op>
struct LayoutOf;
#define OPERATION(number, name, ...)                                                               \
    template <>                                                                                    \
    struct PrototypeOf<Op::name> {                                                                 \
        using Type = decltype(::name);                                                             \
    };                                                                                             \
    UNPERFORMED(number, name, __VA_ARGS__)
#define BY_HAND OPERATION
#define UNPERFORMED(number, name, ...)                                                             \
    template <>                                                                                    \
    struct LayoutOf<Op::name> {                                                                    \
        using Type = __VA_ARGS__;                                                                  \
    };
#include "coding/operations.def"

template <Op op>
using Prototype = typename PrototypeOf<op>::Type;
template <Op op>
using Layout = typename LayoutOf<op>::Type;

/// The entry of an operation in a table, as a function that can be called.
template <Op op>
Prototype<op>* entryOf(const glOp (&table)[operationCount])
{
    return reinterpret_cast<Prototype<op>*>(table[indexOf(op)]);
}

/// Performs an operation as the stream asks for it.
template <Op op, class... Arguments>
auto perform(Arguments... arguments)
{
    return entryOf<op>(glOpTable)(arguments...);
}
