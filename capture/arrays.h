// Client arrays and buffer objects: kept here and sent at the draws that use them.
#pragma once

#include "wire/prototypes.h"

#include <vector>

/// One array as the program has set it. Its elements stand `stride` bytes apart from `pointer` on,
/// or from that offset on in a buffer object.
struct ClientArrayState {
    bool enabled = false;
    bool normalized = false; // integers of a vertex attribute
    GLint size = 4;
    GLenum type = GL_FLOAT;
    GLsizei stride = 0;
    const void* pointer = nullptr;
    GLuint buffer = 0;
};

enum ArrayKind {
    vertexArray,
    normalArray,
    colorArray,
    indexArray,
    edgeFlagArray,
    fogCoordArray,
    secondaryColorArray,
    texCoordArray, // of the first unit; the others' follow
};
inline constexpr int textureUnits = 8;
inline constexpr int arrayKinds = texCoordArray + textureUnits;
inline constexpr int vertexAttributes = 16;

/// What glPushClientAttrib keeps of a context.
struct ClientVertexState {
    ClientArrayState arrays[arrayKinds];
    ClientArrayState attributes[vertexAttributes];
    int activeUnit = 0;
    GLuint arrayBuffer = 0, elementBuffer = 0;
};

/// The client's side of a context.
struct ClientState {
    ClientVertexState now;
    struct Pushed {
        GLbitfield mask;
        ClientVertexState state;
    };
    std::vector<Pushed> stack;
    // What is enabled on the wall, a bit for each kind up to the first unit's coordinates, and of
    // which kinds that is known: records of a list are performed at another time, if at all.
    unsigned enabledOnWall = 0, knownOnWall = 0;
};
