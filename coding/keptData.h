// Data that are kept beyond their record, and what operations need of those that arrived last.
#pragma once

#include "coding/buffer.h"
#include "wire/operations.h"
#include "wire/sizes.h"

/// Copies what a record brought into the buffer of its kind and returns where it is.
char* keepData(Memory kind, const char* data, int bytes, const char* operation);

/// True when `needed` bytes are no more than those that `arrived`. Otherwise says so.
bool enoughArrived(const char* operation, std::int64_t needed, std::int64_t arrived);

/// Bytes that the operation of a block reads of the data that arrived last.
template <Op op>
std::int64_t elementsNeeded(const char* args)
{
    using F = Prototype<op>;
    if constexpr (op == Op::glCallLists)
        return listNameBytes(parameter<F, 0>(args), parameter<F, 1>(args));
    else if constexpr (op == Op::glMap1d || op == Op::glMap1f)
        return elementSize<F, Signature<F>::scalars>() *
               mapValues(parameter<F, 0>(args), parameter<F, 3>(args), parameter<F, 4>(args));
    else {
        static_assert(op == Op::glMap2d || op == Op::glMap2f);
        return elementSize<F, Signature<F>::scalars>() *
               mapValues(parameter<F, 0>(args), parameter<F, 3>(args), parameter<F, 4>(args),
                         parameter<F, 7>(args), parameter<F, 8>(args));
    }
}
