// What the program is told of its OpenGL: no more than the wall carries.
#pragma once

#include "wire/prototypes.h"

#include <algorithm>
#include <iterator>

/// What glGetString answers, from what the node's own says: OpenGL 1.5 and those of its extensions
/// that the stream or this library carries.
const GLubyte* carriedString(GLenum name, const GLubyte* native);

/// The same for a list of GLX or EGL extensions.
const char* carriedGlxExtensions(const char* native);

/// The version of OpenGL up to which contexts are made.
inline constexpr int carriedMajor = 1;
inline constexpr int carriedMinor = 5;

/// Whether an attribute of a context is one of those that libraries know: they refuse a list at the
/// first that is none, and read it no further.
template <class Attribute, std::size_t n>
bool isKnownAttribute(Attribute attribute, const Attribute (&known)[n])
{
    return std::find(std::begin(known), std::end(known), attribute) != std::end(known);
}

/// A version of OpenGL that a context is asked for.
struct AskedVersion {
    const char* api;
    int major, minor;
    bool core = false;
};

/// How a context of a version is shown; says so where that is by pictures for its version. False
/// when it is to be refused, which is said.
bool isCarried(const AskedVersion& asked, bool& asPicture);
