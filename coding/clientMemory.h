// What OpenGL will read of memory that the stream brought, beyond what a record's own layout says:
// the elements of client arrays that a draw reaches, the bytes of an image under the unpack state.
// Each context's client state is followed here, from the operations that change it, so that nothing
// has to be asked of the library. Where it cannot be known whether the library accepted a change
// (between glBegin and glEnd, with parameters that not every library takes) both are held possible,
// and what is needed is the larger. Decode thread only.
#pragma once

#include "coding/keptData.h"
#include "coding/wire.h"

namespace clientMemory {

/// A context is current now; null: none is, and OpenGL does nothing.
void use(GLXContext context);

/// A context has been created: nothing of another with its address counts.
void create(GLXContext context);

/// Where the current context stands among glBegin, glEnd and lists.
struct Nesting {
    bool inside = false; // between glBegin and glEnd, or perhaps
    bool compiling = false;
    bool executing = false, certain = false; // what is compiled, or perhaps; as far as is known
    int depth = 0, lowest = 0;               // of glBegin over glEnd in the list
};
extern Nesting* nesting; // never null

inline void noteBegin()
{
    ++nesting->depth;
    if (!nesting->compiling || nesting->executing)
        nesting->inside = true;
}

inline void noteEnd()
{
    if (--nesting->depth < nesting->lowest)
        nesting->lowest = nesting->depth;
    if (!nesting->compiling || (nesting->executing && nesting->certain))
        nesting->inside = false;
}

/// All contexts are forgotten.
void reset();

/// An image in memory, as an operation describes it.
struct ImageSize {
    std::int64_t width, height, depth;
    GLenum format, type;
    bool volume = false; // counts images
};

/// Bytes that the library may read of an image, from the pointer on, under the unpack state.
std::int64_t bytesOf(const ImageSize& image);

/// How many elements of the enabled arrays there are: of the shortest; very many without any.
std::int64_t elementsThere();

/// True when so many elements are there. Otherwise says so.
bool elementsArrived(const char* operation, std::int64_t needed);

/// One past the largest of an index list; 0 for a type that is none.
std::int64_t elementsIn(const char* indices, GLsizei count, GLenum type);

// The changes.
void noteArray(Memory kind, GLuint attribute, GLint size, GLenum type, std::int64_t elements);
/// What contexts hold of a kind's memory is no longer where it grows.
void forgetArrays(Memory kind);

void noteEnabled(GLenum array, bool enabled);
void noteAttributeEnabled(GLuint attribute, bool enabled);
void noteUnit(GLenum unit);
void noteUnpack(GLenum name, double value);
void notePush(GLbitfield mask);
void notePop();
void noteNewList(GLuint list, GLenum mode);
void noteEndList();
void noteListsCalled();

} // namespace clientMemory

// ---- By operation ------------------------------------------------------------------------------

/// The image of an operation's block. Parameters come as target, ..., width[, height[, depth]],
/// [border,] format, type; what differs is told by the operation.
template <Op op>
clientMemory::ImageSize imageIn(const char* args)
{
    using F = Prototype<op>;
    constexpr int last = Signature<F>::scalars - 1;
    const auto format = parameter<F, last - 1>(args);
    const auto type = parameter<F, last>(args);
    const auto sized = [&](std::int64_t width, std::int64_t height, std::int64_t depth,
                           bool volume) {
        return clientMemory::ImageSize{width, height, depth, format, type, volume};
    };
    if constexpr (op == Op::glTexImage1D)
        return sized(parameter<F, 3>(args), 1, 1, false);
    else if constexpr (op == Op::glTexImage2D)
        return sized(parameter<F, 3>(args), parameter<F, 4>(args), 1, false);
    else if constexpr (op == Op::glTexImage3D || op == Op::glTexImage3DEXT)
        return sized(parameter<F, 3>(args), parameter<F, 4>(args), parameter<F, 5>(args), true);
    else if constexpr (op == Op::glTexSubImage1D)
        return sized(parameter<F, 3>(args), 1, 1, false);
    else if constexpr (op == Op::glTexSubImage2D)
        return sized(parameter<F, 4>(args), parameter<F, 5>(args), 1, false);
    else if constexpr (op == Op::glTexSubImage3D)
        return sized(parameter<F, 5>(args), parameter<F, 6>(args), parameter<F, 7>(args), true);
    else if constexpr (op == Op::glDrawPixels)
        return sized(parameter<F, 0>(args), parameter<F, 1>(args), 1, false);
    else if constexpr (op == Op::glConvolutionFilter2D)
        return sized(parameter<F, 2>(args), parameter<F, 3>(args), 1, false);
    else {
        static_assert(op == Op::glColorTable || op == Op::glColorTableEXT ||
                      op == Op::glColorSubTable || op == Op::glConvolutionFilter1D);
        return sized(parameter<F, 2>(args), 1, 1, false);
    }
}

constexpr bool isCompressed(Op op)
{
    return op >= Op::glCompressedTexImage1D && op <= Op::glCompressedTexSubImage3D;
}

/// Bytes of the compressed image of an operation's block; 0 where the format is not known.
template <Op op>
std::int64_t compressedBytesIn(const char* args)
{
    using F = Prototype<op>;
    // Target, level, [format,] or the corner and behind the size the format; the size; [border.]
    constexpr bool part = op >= Op::glCompressedTexSubImage1D;
    constexpr int dimensions =
        indexOf(op) - indexOf(part ? Op::glCompressedTexSubImage1D : Op::glCompressedTexImage1D) +
        1;
    constexpr int size = part ? 2 + dimensions : 3;
    constexpr int format = part ? size + dimensions : 2;
    std::int64_t height = 1;
    std::int64_t depth = 1;
    if constexpr (dimensions > 1)
        height = parameter<F, size + 1>(args);
    if constexpr (dimensions > 2)
        depth = parameter<F, size + 2>(args);
    return compressedBytes(parameter<F, format>(args), parameter<F, size>(args), height, depth);
}

/// Whether an operation of a Guarded layout may be performed: all that the library will read is
/// there. Otherwise says what is missing.
template <Op op>
bool mayPerform(char* args)
{
    using F = Prototype<op>;
    const char* const name = opNames[indexOf(op)];
    if constexpr (op == Op::glArrayElement || op == Op::glArrayElementEXT) {
        // An index below zero is beyond all arrays.
        return clientMemory::elementsArrived(
            name, std::int64_t{static_cast<GLuint>(parameter<F, 0>(args))} + 1);
    } else if constexpr (op == Op::glDrawArrays || op == Op::glDrawArraysEXT) {
        const GLint first = parameter<F, 1>(args);
        const GLsizei count = parameter<F, 2>(args);
        return count <= 0 || clientMemory::elementsArrived(
                                 name, std::int64_t{static_cast<GLuint>(first)} + count);
    } else if constexpr (op == Op::glDrawElements || op == Op::glDrawRangeElements) {
        constexpr int last = Signature<F>::scalars - 1;
        const std::int64_t needed =
            clientMemory::elementsIn(args + Signature<F>::scalarBytes, parameter<F, last - 1>(args),
                                     parameter<F, last>(args));
        if (!clientMemory::elementsArrived(name, needed))
            return false;
        if constexpr (op == Op::glDrawRangeElements) {
            // The range is a promise that the library may take for what it is to read.
            const std::int64_t there = clientMemory::elementsThere();
            if (needed > 0 && std::int64_t{parameter<F, 2>(args)} >= there) {
                store(args + Signature<F>::offsets[2], static_cast<GLuint>(there - 1));
                if (std::int64_t{parameter<F, 1>(args)} >= there)
                    store(args + Signature<F>::offsets[1], GLuint{0});
            }
        }
        return true;
    } else if constexpr (op == Op::glPolygonStipple) {
        constexpr int arrived = fixedArrayBytes<F, 1024>();
        return enoughArrived(name, clientMemory::bytesOf({32, 32, 1, GL_COLOR_INDEX, GL_BITMAP}),
                             arrived);
    } else if constexpr (isCompressed(op)) {
        // Libraries look for just these bytes, where they know the format.
        if (load<std::int32_t>(args + Signature<F>::scalarBytes) != 0)
            return true;
        constexpr int last = Signature<F>::scalars - 1;
        return enoughArrived(name, compressedBytesIn<op>(args), parameter<F, last>(args));
    } else {
        constexpr bool flagged = op != Op::glDrawPixels;
        constexpr int countAt = Signature<F>::scalarBytes;
        const std::int32_t arrived = load<std::int32_t>(args + countAt);
        if (flagged ? load<std::int32_t>(args + countAt + 4) != 0 : arrived == 0)
            return true;
        return enoughArrived(name, clientMemory::bytesOf(imageIn<op>(args)), arrived);
    }
}

template <class>
struct ArrayOf;
template <Memory memory, Components components, int typeAt>
struct ArrayOf<ClientArray<memory, components, typeAt>> {
    template <class F>
    static void note(const char* args)
    {
        using Places = ClientArrayPlaces<F, components, typeAt>;
        GLint size = 0;
        GLenum type = 0;
        if constexpr (components == Components::bySize)
            size = parameter<F, Places::type - 1>(args);
        if constexpr (components != Components::untyped)
            type = parameter<F, Places::type>(args);
        GLuint attribute = 0;
        if constexpr (memory == Memory::vertexAttrib)
            attribute = parameter<F, 0>(args);
        clientMemory::noteArray(memory, attribute, size, type, parameter<F, Places::stride>(args));
    }
};

/// Follows an operation of a Noted layout that has been performed.
template <Op op, class Layout>
void notePerformed(const char* args)
{
    using F = Prototype<op>;
    using namespace clientMemory;
    if constexpr (op == Op::glEnableClientState || op == Op::glDisableClientState)
        noteEnabled(parameter<F, 0>(args), op == Op::glEnableClientState);
    else if constexpr (op == Op::glEnable) {
        // Some libraries take the arrays here, too. What programs enable often lies below.
        if (parameter<F, 0>(args) >= GL_VERTEX_ARRAY) [[unlikely]]
            noteEnabled(parameter<F, 0>(args), true);
    } else if constexpr (op == Op::glEnableVertexAttribArrayARB ||
                         op == Op::glDisableVertexAttribArrayARB)
        noteAttributeEnabled(parameter<F, 0>(args), op == Op::glEnableVertexAttribArrayARB);
    else if constexpr (op == Op::glClientActiveTexture || op == Op::glClientActiveTextureARB)
        noteUnit(parameter<F, 0>(args));
    else if constexpr (op == Op::glPixelStoref || op == Op::glPixelStorei)
        noteUnpack(parameter<F, 0>(args), static_cast<double>(parameter<F, 1>(args)));
    else if constexpr (op == Op::glPushClientAttrib)
        notePush(parameter<F, 0>(args));
    else if constexpr (op == Op::glPopClientAttrib)
        notePop();
    else if constexpr (op == Op::glBegin)
        noteBegin();
    else if constexpr (op == Op::glEnd)
        noteEnd();
    else if constexpr (op == Op::glNewList)
        noteNewList(parameter<F, 0>(args), parameter<F, 1>(args));
    else if constexpr (op == Op::glEndList)
        noteEndList();
    else if constexpr (op == Op::glCallList || op == Op::glCallLists)
        noteListsCalled();
    else
        ArrayOf<Layout>::template note<F>(args);
}
