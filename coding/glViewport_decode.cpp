// glViewport carries the application's window size behind its own parameters: the tile transform
// needs it, and the overload must still see the one before.
#include "coding/glViewport_decode.h"
#include "coding/fromWire.h"
#include "coding/invariant.h"
#include "coding/serverWindows.h"

int currAppWidth, currAppHeight;
int glV_currAppWidth, glV_currAppHeight;
int updateScalingNeeded;

char* _glViewport(char* args)
{
    ViewportBlock block;
    char* const end = loadBlock(args, block);
    glV_currAppWidth = block.appWidth;
    glV_currAppHeight = block.appHeight;
    perform<Op::glViewport>(block.x, block.y, block.width, block.height);
    // Only now: the overload still worked with the size before.
    updateScalingNeeded =
        glV_currAppWidth != currAppWidth || glV_currAppHeight != currAppHeight ? 1 : 0;
    currAppWidth = glV_currAppWidth;
    currAppHeight = glV_currAppHeight;
    return end;
}

// These two checks are known by their lines, 30 and 31.
void getCurrentAppWindowSize(int* w, int* h)
{
    require(w, "w");
    require(h, "h");
    *w = glV_currAppWidth;
    *h = glV_currAppHeight;
}
