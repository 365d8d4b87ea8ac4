// Draws from client arrays, made safe. All memory that an array's address can lead to is there
// (coding/buffer.h), so what a draw reaches need not be followed. Left to care for are arrays that
// are enabled while the library holds no address for them, and draws of absurdly many elements.
//
// For each context is noted which arrays may be enabled and which certainly have an address; before
// a draw with one that may lack it the library is asked. So it is for how pixels are unpacked,
// where the stream has ever changed that. Decode thread only.
#pragma once

#include "coding/buffer.h"
#include "coding/wire.h"
#include "wire/operations.h"

#include <limits>

namespace clientMemory {

/// A context is current now; null: none is, and OpenGL does nothing.
void use(GLXContext context);

/// A context has been created: nothing of another with its address counts.
void create(GLXContext context);

/// All contexts are forgotten.
void reset();

/// Up to so many elements a draw of the current context needs no further look: none while an array
/// may lack its address, any number while no array is enabled.
extern std::int64_t drawable;

/// Sees to it that every enabled array of the current context has an address.
void settle();

/// Whether a draw of so many elements, more than `drawable`, may be performed. Otherwise says why.
bool mayDraw(const char* operation, std::int64_t elements);

/// One past the largest of an index list, or the most that there can be where that is no more than
/// `enough`; 0 for a type that is none.
std::int64_t elementsIn(const char* indices, GLsizei count, GLenum type, std::int64_t enough);

/// Of the current context: it may be between glBegin and glEnd, where libraries refuse changes of
/// client state and answer nothing. Never null.
extern bool* inside;

/// Some list leaves that open.
extern bool openLists;

/// Whether the stream may have changed how pixels are unpacked in the current context.
bool unpackChanged();

// The changes.
void noteArray(Memory kind, GLuint attribute, GLint size, GLenum type);
void noteMoved(Memory kind); // what OpenGL holds of a kind is no longer where arrays arrive
void noteReach();            // elementsInReach has changed
void noteEnabled(GLenum array, bool enabled);
void noteAttributeEnabled(GLuint attribute, bool enabled);
void noteServerEnable(GLenum array);
void noteUnit(GLenum unit);
void noteUnpack(GLenum name);
void notePush(GLbitfield mask);
void notePop();
void noteListsCalled();

// After a glEnd the state is outside for certain, compiled or not: nothing compiles inside.
inline void noteEnd() { *inside = false; }
inline void noteEndList() { openLists |= *inside; }

} // namespace clientMemory

/// Whether an operation of a Guarded layout may be performed. Otherwise says why not.
template <Op op>
bool mayPerform(char* args)
{
    using F = Prototype<op>;
    using clientMemory::drawable;
    std::int64_t elements = 0;
    if constexpr (op == Op::glBegin) {
        if (drawable == 0) [[unlikely]] // for glArrayElement: between the two nothing can be asked
            clientMemory::settle();
        *clientMemory::inside = true;
    } else if constexpr (op == Op::glArrayElement || op == Op::glArrayElementEXT) {
        // An index below zero lies beyond all arrays.
        elements = std::int64_t{static_cast<GLuint>(parameter<F, 0>(args))} + 1;
    } else if constexpr (op == Op::glDrawElements || op == Op::glDrawRangeElements) {
        constexpr int last = Signature<F>::scalars - 1;
        elements =
            clientMemory::elementsIn(args + Signature<F>::scalarBytes, parameter<F, last - 1>(args),
                                     parameter<F, last>(args), drawable);
    } else {
        constexpr int first = op == Op::glLockArraysEXT ? 0 : 1;
        const std::int64_t count = parameter<F, first + 1>(args);
        elements = count > 0 ? static_cast<GLuint>(parameter<F, first>(args)) + count : 0;
    }
    if (elements > drawable && !clientMemory::mayDraw(opNames[indexOf(op)], elements)) [[unlikely]]
        return false;
    if constexpr (op == Op::glDrawRangeElements) {
        // The range is a promise, and a generous one must not cost the draw.
        if (elements > 0 && parameter<F, 2>(args) >= drawable) [[unlikely]] {
            const auto largest = static_cast<GLuint>(
                clientMemory::elementsIn(args + Signature<F>::scalarBytes, parameter<F, 3>(args),
                                         parameter<F, 4>(args), 0) -
                1);
            store(args + Signature<F>::offsets[2], largest);
            if (parameter<F, 1>(args) > largest)
                store(args + Signature<F>::offsets[1], largest);
        }
    }
    return true;
}

template <Op op, class Layout>
struct Noting;
template <Op op, Memory memory, Components components, int typeAt>
struct Noting<op, ClientArray<memory, components, typeAt>> {
    template <class F>
    static void note(const char* args)
    {
        using Places = ClientArrayPlaces<F, components, typeAt>;
        GLint size = 3; // every kind takes it
        GLenum type = GL_FLOAT;
        GLuint attribute = 0;
        if constexpr (components == Components::bySize)
            size = parameter<F, Places::type - 1>(args);
        if constexpr (components != Components::untyped)
            type = parameter<F, Places::type>(args);
        if constexpr (memory == Memory::vertexAttrib)
            attribute = parameter<F, 0>(args);
        clientMemory::noteArray(memory, attribute, size, type);
    }
};

/// Follows an operation of a Noted layout that has been performed.
template <Op op, class Layout>
void notePerformed([[maybe_unused]] const char* args)
{
    using F = Prototype<op>;
    using namespace clientMemory;
    if constexpr (op == Op::glEnableClientState || op == Op::glDisableClientState)
        noteEnabled(parameter<F, 0>(args), op == Op::glEnableClientState);
    else if constexpr (op == Op::glEnable) {
        // Some libraries take the arrays here, too. What programs enable often lies below.
        if (parameter<F, 0>(args) >= GL_VERTEX_ARRAY) [[unlikely]]
            noteServerEnable(parameter<F, 0>(args));
    } else if constexpr (op == Op::glEnableVertexAttribArrayARB ||
                         op == Op::glDisableVertexAttribArrayARB)
        noteAttributeEnabled(parameter<F, 0>(args), op == Op::glEnableVertexAttribArrayARB);
    else if constexpr (op == Op::glClientActiveTexture || op == Op::glClientActiveTextureARB)
        noteUnit(parameter<F, 0>(args));
    else if constexpr (op == Op::glPixelStoref || op == Op::glPixelStorei)
        noteUnpack(parameter<F, 0>(args));
    else if constexpr (op == Op::glPushClientAttrib)
        notePush(parameter<F, 0>(args));
    else if constexpr (op == Op::glPopClientAttrib)
        notePop();
    else if constexpr (op == Op::glEnd)
        noteEnd();
    else if constexpr (op == Op::glEndList)
        noteEndList();
    else if constexpr (op == Op::glCallList || op == Op::glCallLists)
        noteListsCalled();
    else
        Noting<op, Layout>::template note<F>(args);
}
