// The kinds of client arrays: by which names OpenGL knows them, and what every library takes for
// them.
#pragma once

#include "wire/layouts.h"

#include <initializer_list>

struct ArrayNames {
    GLenum array, pointer, size, type, stride; // names of queries; 0: there is none
    GLint leastSize, mostSize;                 // that every library takes
    unsigned types;                            // likewise, a bit each from GL_BYTE on
};

constexpr unsigned arrayTypes(std::initializer_list<GLenum> types)
{
    unsigned bits = 0;
    for (const GLenum type : types)
        bits |= 1U << (type - GL_BYTE);
    return bits;
}
inline constexpr unsigned wideArrayTypes = arrayTypes({GL_SHORT, GL_INT, GL_FLOAT, GL_DOUBLE});
inline constexpr unsigned countingArrayTypes =
    arrayTypes({GL_UNSIGNED_BYTE, GL_UNSIGNED_SHORT, GL_UNSIGNED_INT});
inline constexpr unsigned allArrayTypes =
    wideArrayTypes | countingArrayTypes | arrayTypes({GL_BYTE});

/// In the order of the kinds. Kinds without a size have 3 here, those without a type any. Vertex
/// attributes are asked for one by one.
inline constexpr ArrayNames arrayNames[] = {
    {GL_VERTEX_ARRAY, GL_VERTEX_ARRAY_POINTER, GL_VERTEX_ARRAY_SIZE, GL_VERTEX_ARRAY_TYPE,
     GL_VERTEX_ARRAY_STRIDE, 2, 4, wideArrayTypes},
    {GL_NORMAL_ARRAY, GL_NORMAL_ARRAY_POINTER, 0, GL_NORMAL_ARRAY_TYPE, GL_NORMAL_ARRAY_STRIDE, 3,
     3, wideArrayTypes | arrayTypes({GL_BYTE})},
    {GL_COLOR_ARRAY, GL_COLOR_ARRAY_POINTER, GL_COLOR_ARRAY_SIZE, GL_COLOR_ARRAY_TYPE,
     GL_COLOR_ARRAY_STRIDE, 3, 4, allArrayTypes},
    {GL_INDEX_ARRAY, GL_INDEX_ARRAY_POINTER, 0, GL_INDEX_ARRAY_TYPE, GL_INDEX_ARRAY_STRIDE, 3, 3,
     wideArrayTypes | arrayTypes({GL_UNSIGNED_BYTE})},
    {GL_TEXTURE_COORD_ARRAY, GL_TEXTURE_COORD_ARRAY_POINTER, GL_TEXTURE_COORD_ARRAY_SIZE,
     GL_TEXTURE_COORD_ARRAY_TYPE, GL_TEXTURE_COORD_ARRAY_STRIDE, 1, 4, wideArrayTypes},
    {GL_EDGE_FLAG_ARRAY, GL_EDGE_FLAG_ARRAY_POINTER, 0, 0, GL_EDGE_FLAG_ARRAY_STRIDE, 3, 3,
     allArrayTypes},
    {GL_FOG_COORD_ARRAY, GL_FOG_COORD_ARRAY_POINTER, 0, GL_FOG_COORD_ARRAY_TYPE,
     GL_FOG_COORD_ARRAY_STRIDE, 3, 3, arrayTypes({GL_FLOAT, GL_DOUBLE})},
    {GL_SECONDARY_COLOR_ARRAY, GL_SECONDARY_COLOR_ARRAY_POINTER, GL_SECONDARY_COLOR_ARRAY_SIZE,
     GL_SECONDARY_COLOR_ARRAY_TYPE, GL_SECONDARY_COLOR_ARRAY_STRIDE, 3, 3, allArrayTypes},
    {GL_WEIGHT_ARRAY_ARB, GL_WEIGHT_ARRAY_POINTER_ARB, GL_WEIGHT_ARRAY_SIZE_ARB,
     GL_WEIGHT_ARRAY_TYPE_ARB, GL_WEIGHT_ARRAY_STRIDE_ARB, 1, 4, allArrayTypes},
    {GL_MATRIX_INDEX_ARRAY_ARB, GL_MATRIX_INDEX_ARRAY_POINTER_ARB, GL_MATRIX_INDEX_ARRAY_SIZE_ARB,
     GL_MATRIX_INDEX_ARRAY_TYPE_ARB, GL_MATRIX_INDEX_ARRAY_STRIDE_ARB, 1, 4, countingArrayTypes},
    {0, 0, 0, 0, 0, 1, 4, allArrayTypes},
};

inline const ArrayNames& namesOf(Memory kind)
{
    return arrayNames[static_cast<int>(kind) - static_cast<int>(Memory::vertex)];
}

/// Whether every library takes a pointer of such a size and type.
inline bool isUsualArray(Memory kind, GLint size, GLenum type)
{
    const ArrayNames& names = namesOf(kind);
    return names.leastSize <= size && size <= names.mostSize && type >= GL_BYTE &&
           type <= GL_DOUBLE && (names.types >> (type - GL_BYTE) & 1) != 0;
}

/// The kind of an array that an enable names; Memory::none for other names.
inline Memory kindOfArray(GLenum array)
{
    static_assert(arrayNames[5].array == GL_VERTEX_ARRAY + 5, "the first six are in order");
    if (array - GL_VERTEX_ARRAY < 6)
        return static_cast<Memory>(static_cast<GLenum>(Memory::vertex) + array - GL_VERTEX_ARRAY);
    for (int i = 6; i < std::ssize(arrayNames); ++i)
        if (array != 0 && arrayNames[i].array == array)
            return static_cast<Memory>(static_cast<int>(Memory::vertex) + i);
    return Memory::none;
}
