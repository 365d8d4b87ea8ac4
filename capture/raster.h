// The raster position. OpenGL latches colour, depth and place when it is set, and whether it is
// valid at all; servers place it on whole pixels and draw with what is current. Where the two
// differ, other operations are sent that look the same.
#pragma once

#include "capture/contexts.h"
#include "capture/native.h"

inline bool isEnabled(GLenum what) { return callNative<Op::glIsEnabled>(what) != 0; }

/// What the raster position has latched, as far as the wall would draw otherwise.
struct Latched {
    bool valid = true, recolored = false, lit = false, depth = false;
    GLfloat color[4]{};  // the current one
    GLdouble range[2]{}; // of depths
};

/// Records what makes the wall draw with what is latched; nothing is to be drawn where that is not
/// valid. Outside of lists, where drawing is recorded.
Latched beginLatched(bool colored);
void endLatched(const Latched& latched);

/// Records what is drawn at the raster position.
template <class Draw>
void atRasterPosition(bool colored, Draw draw)
{
    if (!isRecorded<Effect::draws>() || !canAsk())
        return;
    if (currentContext().inList)
        return draw();
    const Latched latched = beginLatched(colored);
    if (!latched.valid)
        return;
    draw();
    endLatched(latched);
}
