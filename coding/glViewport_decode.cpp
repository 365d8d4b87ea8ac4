// glViewport carries the application's window size behind its own parameters: x, y, width, height,
// then the window's width and height, 4 bytes each. The size travels with the viewport because an
// application sets its viewport when its window has changed.
#include "coding/glViewport_decode.h"
#include "coding/fromWire.h"
#include "coding/invariant.h"
#include "coding/serverWindows.h"

int currAppWidth, currAppHeight;
int glV_currAppWidth, glV_currAppHeight;
int updateScalingNeeded;

char* _glViewport(char* args)
{
    const auto word = [args](int i) { return load<std::int32_t>(args + 4 * i); };
    glV_currAppWidth = word(4);
    glV_currAppHeight = word(5);
    perform<Op::glViewport>(word(0), word(1), word(2), word(3));
    // Only now: the overload still worked with the size before.
    updateScalingNeeded =
        glV_currAppWidth != currAppWidth || glV_currAppHeight != currAppHeight ? 1 : 0;
    currAppWidth = glV_currAppWidth;
    currAppHeight = glV_currAppHeight;
    constexpr int blockBytes = 24;
    return args + blockBytes;
}

void getCurrentAppWindowSize(int* w, int* h)
{
    require(w, "w");
    require(h, "h");
    *w = glV_currAppWidth;
    *h = glV_currAppHeight;
}
