// Client arrays and buffer objects: kept here and sent at the draws that use them.
#pragma once

#include "wire/prototypes.h"

#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <vector>

/// A buffer object, and its contents as far as they are known here. What holds it (a binding, an
/// array) keeps it, as OpenGL does, also when its name has been deleted.
struct BufferObject {
    GLuint name = 0; // 0: deleted
    std::vector<unsigned char> bytes{};
    std::atomic<std::uint64_t> version = 0; // another one with each change, and than any other's
    std::atomic<bool> isKept = false;       // by a list at the servers
    std::atomic<std::uint64_t> readAt =
        0;                        // the group's count of changes that are not seen, as it was then
    bool alwaysChanging = false;  // mapped for good
    const void* mapped = nullptr; // the library's own mapping, written to
    std::size_t mappedAt = 0, mappedBytes = 0;
};
using BufferPointer = std::shared_ptr<BufferObject>;

/// One array as the program has set it. Its elements stand `stride` bytes apart from `pointer` on,
/// or from that offset on in a buffer object.
struct ClientArrayState {
    bool normalized = false; // integers of a vertex attribute
    bool bgra = false;       // blue first
    bool readable = true;    // of a type and size that are known here
    GLint size = 4;
    GLenum type = GL_FLOAT;
    GLsizei stride = 0;
    const void* pointer = nullptr;
    BufferPointer buffer{};
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
inline constexpr int attributeArray = texCoordArray + textureUnits; // likewise
inline constexpr int vertexAttributes = 16;
inline constexpr int arrayKinds = attributeArray + vertexAttributes;
static_assert(arrayKinds <= 32);

/// What glPushClientAttrib keeps of a context.
struct ClientVertexState {
    ClientArrayState arrays[arrayKinds];
    std::uint32_t enabled = 0; // a bit for each kind
    int activeUnit = 0;
    BufferPointer arrayBuffer{}, elementBuffer{};
};

inline bool isEnabled(const ClientVertexState& state, int kind)
{
    return (state.enabled >> kind & 1) != 0;
}

inline void enable(ClientVertexState& state, int kind, bool on)
{
    const std::uint32_t bit = std::uint32_t{1} << kind;
    state.enabled = on ? state.enabled | bit : state.enabled & ~bit;
}

/// Calls visit(array, kind) for each array that is enabled.
template <class Visit>
void eachEnabled(const ClientVertexState& state, Visit visit)
{
    for (std::uint32_t left = state.enabled; left != 0; left &= left - 1) {
        const int kind = std::countr_zero(left);
        visit(state.arrays[kind], kind);
    }
}

/// The client's side of a context.
struct ClientState {
    ClientVertexState now;
    BufferPointer unpackBuffer{}; // images are read from it
    struct Pushed {
        GLbitfield mask;
        ClientVertexState state;
        BufferPointer unpackBuffer;
    };
    std::vector<Pushed> stack;
    // What is enabled on the wall, a bit for each kind up to the first unit's coordinates, and of
    // which kinds that is known: records of a list are performed at another time, if at all.
    unsigned enabledOnWall = 0, knownOnWall = 0;
};
