// The node's own OpenGL, GLX and EGL libraries, opened by path: what the program would have called.
#pragma once

#include "wire/operations.h"

using NativeEntry = void (*)();

/// Entries of the operations by opcode. Those of OpenGL 1.4 and GLX 1.4 are there from the start,
/// others from the time when the program asks for them. Null where the libraries lack them.
extern NativeEntry nativeTable[operationCount];

/// Opens the libraries. Once, before all else.
void openNative();

/// An entry by name: from the library that exports it, else what the libraries' own look-up says.
/// Null when there is none.
NativeEntry nativeByName(const char* name);

// Operations that are not performed by servers but called here.
#define CALLED_HERE(name)                                                                          \
    template <>                                                                                    \
    struct PrototypeOf<Op::name> {                                                                 \
        using Type = decltype(::name);                                                             \
    };
CALLED_HERE(glGetIntegerv)
CALLED_HERE(glGetFloatv)
CALLED_HERE(glGetString)
CALLED_HERE(glGetDoublev)
CALLED_HERE(glReadPixels)
CALLED_HERE(glInterleavedArrays)
CALLED_HERE(glMultiDrawArrays)
CALLED_HERE(glMultiDrawElements)
CALLED_HERE(glMultiDrawArraysEXT)
CALLED_HERE(glMultiDrawElementsEXT)
CALLED_HERE(glDrawRangeElementsEXT)
CALLED_HERE(glVertexPointerEXT)
CALLED_HERE(glNormalPointerEXT)
CALLED_HERE(glColorPointerEXT)
CALLED_HERE(glIndexPointerEXT)
CALLED_HERE(glTexCoordPointerEXT)
CALLED_HERE(glEdgeFlagPointerEXT)
CALLED_HERE(glSecondaryColorPointerEXT)
CALLED_HERE(glFogCoordPointerEXT)
CALLED_HERE(glLoadTransposeMatrixfARB)
CALLED_HERE(glLoadTransposeMatrixdARB)
CALLED_HERE(glMultTransposeMatrixfARB)
CALLED_HERE(glMultTransposeMatrixdARB)
CALLED_HERE(glTexSubImage1DEXT)
CALLED_HERE(glTexSubImage2DEXT)
CALLED_HERE(glTexSubImage3DEXT)
CALLED_HERE(glCompressedTexImage1DARB)
CALLED_HERE(glCompressedTexImage2DARB)
CALLED_HERE(glCompressedTexImage3DARB)
CALLED_HERE(glCompressedTexSubImage1DARB)
CALLED_HERE(glCompressedTexSubImage2DARB)
CALLED_HERE(glCompressedTexSubImage3DARB)
CALLED_HERE(glDeleteTexturesEXT)
CALLED_HERE(glPrioritizeTexturesEXT)
CALLED_HERE(glWindowPos2dvMESA)
CALLED_HERE(glWindowPos2fvMESA)
CALLED_HERE(glWindowPos2ivMESA)
CALLED_HERE(glWindowPos2svMESA)
CALLED_HERE(glWindowPos3dvMESA)
CALLED_HERE(glWindowPos3fvMESA)
CALLED_HERE(glWindowPos3ivMESA)
CALLED_HERE(glWindowPos3svMESA)
CALLED_HERE(glXGetConfig)
CALLED_HERE(glXGetFBConfigAttrib)
CALLED_HERE(glXGetVisualFromFBConfig)
CALLED_HERE(glXGetClientString)
CALLED_HERE(glXQueryServerString)
CALLED_HERE(glXQueryExtensionsString)
CALLED_HERE(glXMakeCurrentReadSGI)
CALLED_HERE(glXCreateContextWithConfigSGIX)
CALLED_HERE(glXQueryDrawable)
CALLED_HERE(glXCreatePixmap)
CALLED_HERE(glXDestroyPixmap)
CALLED_HERE(glXCreateGLXPixmap)
CALLED_HERE(glXDestroyGLXPixmap)
CALLED_HERE(glXCreateGLXPbufferSGIX)
CALLED_HERE(glXDestroyGLXPbufferSGIX)
CALLED_HERE(glXGetProcAddressARB)
#undef CALLED_HERE

/// What the node's library answers; `otherwise` where it does not.
GLint stateOf(GLenum name, GLint otherwise = 0);

/// Calls the node's own function.
template <Op op, class... A>
auto callNative(A... a)
{
    return reinterpret_cast<Prototype<op>*>(nativeTable[indexOf(op)])(a...);
}
