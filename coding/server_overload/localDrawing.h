// What drawing an image in the local window's own pixels needs of the system library, and gives
// back.
#pragma once

#include "coding/server_overload/overloads.h"

/// What selectLocalPixels replaced.
struct ReplacedState {
    GLint viewport[4];
    GLint matrixMode;
};

/// Makes one unit one pixel of the local window, from its lower-left corner.
inline ReplacedState selectLocalPixels(const MWRect& lrect)
{
    ReplacedState replaced{};
    callSystem<Op::glGetIntegerv>(GL_VIEWPORT, replaced.viewport);
    replaced.matrixMode = systemInteger(GL_MATRIX_MODE);
    callSystem<Op::glViewport>(0, 0, truncate(lrect.w), truncate(lrect.h));
    for (const GLenum mode : {GL_MODELVIEW, GL_PROJECTION}) {
        callSystem<Op::glMatrixMode>(mode);
        callSystem<Op::glPushMatrix>();
        callSystem<Op::glLoadIdentity>();
    }
    callSystem<Op::glOrtho>(0.0, static_cast<double>(lrect.w), 0.0, static_cast<double>(lrect.h),
                            -1.0, 1.0);
    return replaced;
}

inline void restoreApplicationPixels(const ReplacedState& replaced)
{
    const GLint(&vp)[4] = replaced.viewport;
    callSystem<Op::glViewport>(vp[0], vp[1], vp[2], vp[3]);
    callSystem<Op::glPopMatrix>();
    callSystem<Op::glMatrixMode>(GLenum{GL_MODELVIEW});
    callSystem<Op::glPopMatrix>();
    callSystem<Op::glMatrixMode>(static_cast<GLenum>(replaced.matrixMode));
}
