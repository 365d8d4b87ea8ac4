// The argument decoders: for operation NAME the function char* _NAME(char* args). Each takes the
// first byte of the argument block, performs the operation through glOpTable and returns the first
// byte behind the block. They trust the block to be complete: the walk has checked its extent.
#pragma once

#include "coding/wire.h"
#include "wire/operations.h"

#define OPERATION(number, name, ...) char* _##name(char* args);
#define BY_HAND(number, name, ...) char* _##name(char* args);
#define UNPERFORMED(number, name, ...) char* _##name(char* args);
#include "wire/operations.def"

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
