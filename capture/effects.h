// What each operation does. All that is not listed sets state of its context.
#pragma once

#include "capture/tape.h"

#include <algorithm>
#include <iterator>

/// Operations that draw into the window. Vertices do where they stand within glBegin and glEnd.
inline constexpr Op drawing[] = {
    Op::glBegin,        Op::glEnd,          Op::glVertex2d,     Op::glVertex2dv,
    Op::glVertex2f,     Op::glVertex2fv,    Op::glVertex2i,     Op::glVertex2iv,
    Op::glVertex2s,     Op::glVertex2sv,    Op::glVertex3d,     Op::glVertex3dv,
    Op::glVertex3f,     Op::glVertex3fv,    Op::glVertex3i,     Op::glVertex3iv,
    Op::glVertex3s,     Op::glVertex3sv,    Op::glVertex4d,     Op::glVertex4dv,
    Op::glVertex4f,     Op::glVertex4fv,    Op::glVertex4i,     Op::glVertex4iv,
    Op::glVertex4s,     Op::glVertex4sv,    Op::glRectd,        Op::glRectdv,
    Op::glRectf,        Op::glRectfv,       Op::glRecti,        Op::glRectiv,
    Op::glRects,        Op::glRectsv,       Op::glArrayElement, Op::glDrawArrays,
    Op::glDrawElements, Op::glDrawPixels,   Op::glBitmap,       Op::glCopyPixels,
    Op::glClear,        Op::glAccum,        Op::glCallList,     Op::glCallLists,
    Op::glEvalCoord1d,  Op::glEvalCoord1dv, Op::glEvalCoord1f,  Op::glEvalCoord1fv,
    Op::glEvalCoord2d,  Op::glEvalCoord2dv, Op::glEvalCoord2f,  Op::glEvalCoord2fv,
    Op::glEvalPoint1,   Op::glEvalPoint2,   Op::glEvalMesh1,    Op::glEvalMesh2,
    Op::glXSwapBuffers,
};

/// Operations on what contexts share, and the state that decides what those mean.
inline constexpr Op defining[] = {
    Op::glNewList,
    Op::glEndList,
    Op::glDeleteLists,
    Op::glBindTexture,
    Op::glBindTextureEXT,
    Op::glActiveTexture,
    Op::glActiveTextureARB,
    Op::glTexImage1D,
    Op::glTexImage2D,
    Op::glTexImage3D,
    Op::glTexImage3DEXT,
    Op::glTexSubImage1D,
    Op::glTexSubImage2D,
    Op::glTexSubImage3D,
    Op::glCopyTexImage1D,
    Op::glCopyTexImage2D,
    Op::glCopyTexSubImage1D,
    Op::glCopyTexSubImage2D,
    Op::glCopyTexSubImage3D,
    Op::glCompressedTexImage1D,
    Op::glCompressedTexImage2D,
    Op::glCompressedTexImage3D,
    Op::glCompressedTexSubImage1D,
    Op::glCompressedTexSubImage2D,
    Op::glCompressedTexSubImage3D,
    Op::glTexParameterf,
    Op::glTexParameterfv,
    Op::glTexParameteri,
    Op::glTexParameteriv,
    Op::glDeleteTextures,
    Op::glPrioritizeTextures,
    Op::glPixelTransferf,
    Op::glPixelTransferi,
    Op::glPixelMapfv,
    Op::glPixelMapuiv,
    Op::glPixelMapusv,
    Op::glBindProgramARB,
    Op::glProgramStringARB,
    Op::glDeleteProgramsARB,
};

/// Operations that are the program's own affair: questions, names, what the wall never shows.
inline constexpr Op local[] = {
    Op::glIsEnabled,      Op::glIsList,          Op::glIsTexture,    Op::glIsTextureEXT,
    Op::glGenLists,       Op::glGenTextures,     Op::glIsProgramARB, Op::glGenProgramsARB,
    Op::glFeedbackBuffer, Op::glSelectBuffer,    Op::glInitNames,    Op::glLoadName,
    Op::glPushName,       Op::glPopName,         Op::glPassThrough,  Op::glAreTexturesResident,
    Op::glLockArraysEXT,  Op::glUnlockArraysEXT,
};

template <std::size_t n>
constexpr bool isAmong(const Op (&list)[n], Op op)
{
    return std::find(std::begin(list), std::end(list), op) != std::end(list);
}

template <Op op>
inline constexpr Effect effectOf = isAmong(drawing, op)    ? Effect::draws
                                   : isAmong(defining, op) ? Effect::defines
                                                           : Effect::state;

/// True for what is never sent as it is called. GLX is what the servers do for themselves, and
/// contexts.cpp says what they need to know of it.
constexpr bool isLocal(Op op) { return isAmong(local, op) || op >= Op::glXChooseVisual; }
