// For the project's own overload libraries: the table's entries by operation, with their types.
#pragma once

#include "coding/fromWire.h"
#include "coding/queries.h"

/// What stood in the table before `replace`.
template <Op op>
inline Prototype<op>* below = nullptr;

template <Op op>
void replace(glOp* table, Prototype<op>* entry)
{
    below<op> = reinterpret_cast<Prototype<op>*>(table[indexOf(op)]);
    table[indexOf(op)] = reinterpret_cast<glOp>(entry);
}

/// Calls the system's OpenGL, past all overloads.
template <Op op, class... Arguments>
auto callSystem(Arguments... arguments)
{
    return entryOf<op>(baseOpTable)(arguments...);
}
