// What is known of each operation: its prototype, its layout and the extent of its records.
#pragma once

#include "wire/layouts.h"
#include "wire/opcodes.h"

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
#include "wire/operations.def"

template <Op op>
using Prototype = typename PrototypeOf<op>::Type;
template <Op op>
using Layout = typename LayoutOf<op>::Type;

/// The block of an operation that is read by hand.
template <class>
struct BlockIn;
template <class Block>
struct BlockIn<HandWritten<Block>> {
    using Type = Block;
};
template <Op op>
using BlockOf = typename BlockIn<Layout<op>>::Type;
