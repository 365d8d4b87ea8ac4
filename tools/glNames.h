// OpenGL's and GLX's names of values, from tables that glTables.cpp makes of the system's headers
// when this is built.
#pragma once

#include "wire/opcodes.h"

#include <cstdint>
#include <span>
#include <string>

/// Which names the values of a parameter have.
enum class Vocabulary : std::uint8_t {
    numbers,     // none
    nothing,     // there is no value: an attribute of GLX that stands alone
    enumerants,  // all of OpenGL's but bits and those below 256
    behindPname, // what stands behind the pname before it: enumerants or numbers
    formats,     // enumerants; 1 to 4 are numbers of components

    // Some names of their own, else enumerants.
    primitives,
    factors,

    booleans,
    glxNames,

    // From here on: names joined by |. Plain bits have none.
    bits,
    clearBits,
    attributeBits,
    clientAttributeBits,
    renderTypeBits,
    drawableTypeBits,
};

/// The name of a value, and the vocabulary of the value that stands behind it where it is a pname
/// or an attribute.
struct Name {
    Vocabulary vocabulary;
    std::uint32_t value;
    const char* name;
    Vocabulary behind;
};

/// A parameter whose values have names.
struct NamedParameter {
    Op operation;
    int index; // in the prototype
    const char* name;
    Vocabulary vocabulary;
};

void appendHex(std::string& out, std::uint32_t value);

/// The name of a value, or null.
const Name* findName(Vocabulary vocabulary, std::uint32_t value);

/// Appends a value by name, in hexadecimal where it has none.
void appendName(std::string& out, Vocabulary vocabulary, std::uint32_t value);

std::span<const NamedParameter> namedParameters(Op operation);
