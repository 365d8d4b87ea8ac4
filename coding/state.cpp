#include "coding/state.h"
#include "coding/invariant.h"

static Display* currentDisplay;
static GLXDrawable currentDrawable;
static int set;

void _mwglSetCurrentState(Display* dpy, GLXDrawable win)
{
    currentDisplay = dpy;
    currentDrawable = win;
    set = 1;
}

int _mwglGetCurrentState(Display** dpy, GLXDrawable* win)
{
    if (!set)
        return 0;
    require(dpy, "dpy");
    require(win, "win");
    *dpy = currentDisplay;
    *win = currentDrawable;
    return 1;
}
