// Make-current and buffer swap.
#include "coding/clientMemory.h"
#include "coding/displayConfig.h"
#include "coding/invariant.h"
#include "coding/serverProcess.h"
#include "coding/server_overload/overloads.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

// Joins swap group 1 and barrier 1, so that all servers swap together. These four operations come
// from the live table: an overload library may stand in for them.
void joinSwapGroup(Window window)
{
    constexpr unsigned group = 1;
    constexpr unsigned barrier = 1;
    Display* dpy = currLocalDisplay->dpy;
    char host[256] = "";
    gethostname(host, sizeof host - 1);

    const char* extensions = perform<Op::glXQueryExtensionsString>(dpy, 0);
    if (!extensions || !std::strstr(extensions, "GLX_NV_swap_group")) {
        std::fprintf(stderr,
                     "MOSA: NVIDIA framelock is not supported on the graphics hardware on %s\n",
                     host);
        return;
    }
    GLuint swap_groups = ~0U;
    GLuint swap_barriers = ~0U;
    if (!perform<Op::glXQueryMaxSwapGroupsNV>(dpy, 0, &swap_groups, &swap_barriers)) {
        std::fprintf(stderr, "MOSA: Error querying MaxSwapGroupsNV on %s\n", host);
        return;
    }
    const int groups = static_cast<int>(swap_groups);
    const int barriers = static_cast<int>(swap_barriers);
    if (groups <= 0 || barriers <= 0) {
        std::fprintf(stderr,
                     "MOSA: Insufficient number of swap groups (%d) and/or swap barriers (%d)\n",
                     groups, barriers);
        return;
    }
    perform<Op::glXJoinSwapGroupNV>(dpy, window, group);
    perform<Op::glXBindSwapBarrierNV>(dpy, group, barrier);
}

// Makes the current drawable's local window, or moves it after the application's window.
void placeWindow(Display* appDisplay)
{
    LocalDrawableInfo& ldi = *currDrawableInfo;
    if (!ldi.localDrawable) {
        _createLocalDrawable(AppDisplay(appDisplay), &ldi);
        return;
    }
    _setTileTransform(&ldi);
    const MWRect rect = localWindowRect(ldi, ldi.psx, ldi.psy);
    const MWRect& old = ldi.lrect;
    if (rect.x == old.x && rect.y == old.y && rect.w == old.w && rect.h == old.h)
        return;
    ldi.lrect = rect;
    XMoveResizeWindow(currLocalDisplay->dpy, ldi.localDrawable, truncate(rect.x), windowTop(rect),
                      static_cast<unsigned>(truncate(rect.w)),
                      static_cast<unsigned>(truncate(rect.h)));
}

// Gives a context its tile level and first viewport when it is bound for the first time. The mode
// changes go to the system library alone: the application has not selected a mode.
void setUpNewContext()
{
    if (!currDrawableInfo || !currDrawableInfo->lctx || !currDrawableInfo->lctx->firsttime)
        return;
    currDrawableInfo->lctx->firsttime = 0;
    callSystem<Op::glMatrixMode>(GL_PROJECTION);
    _pushTileTransformation();
    _glViewport(0, 0, currAppWidth, currAppHeight);
    callSystem<Op::glMatrixMode>(GL_MODELVIEW);
}

// A make-current without a drawable releases the context, whatever context it names: the
// application's handle means nothing to the system library.
template <class Release>
int releaseCurrent(GLXContext ctx, Release release)
{
    const int result = release();
    if (result)
        clientMemory::use(nullptr);
    if (ctx)
        std::fputs("MOSA: Drawable is FALSE\n", stderr);
    setUpNewContext();
    return result;
}

} // namespace

int _glXMakeCurrent(Display* appDisplay, GLXDrawable drawable, GLXContext ctx)
{
    static int setupSwapGroupNeeded = 1;

    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    require(currLocalDisplay, "currLocalDisplay");
    if (firsttime) {
        firsttime = 0;
        determineUsersWindowPreferences();
    }
    Display* dpy = currLocalDisplay->dpy;
    if (!drawable)
        return releaseCurrent(ctx, [dpy] {
            return callSystem<Op::glXMakeCurrent>(dpy, GLXDrawable{None}, GLXContext{});
        });

    currDrawableInfo = _getLocalDrawable(AppDrawable(drawable));
    require(currDrawableInfo, "currDrawableInfo");
    currDrawableInfo->lctx = _getLocalContext(AppContext(ctx));
    require(currDrawableInfo->lctx, "currDrawableInfo->lctx");
    placeWindow(appDisplay);
    XFlush(dpy);
    const int result = callSystem<Op::glXMakeCurrent>(dpy, currDrawableInfo->localDrawable,
                                                      currDrawableInfo->lctx->localCtx);
    if (result)
        clientMemory::use(currDrawableInfo->lctx->localCtx);
    if (swapOnRetrace && setupSwapGroupNeeded) {
        setupSwapGroupNeeded = 0;
        joinSwapGroup(currDrawableInfo->localDrawable);
    }
    setUpNewContext();
    return result;
}

int _glXMakeContextCurrent(Display* appDisplay, GLXDrawable draw, GLXDrawable read, GLXContext ctx)
{
    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    require(currLocalDisplay, "currLocalDisplay");
    Display* dpy = currLocalDisplay->dpy;
    if (!draw)
        return releaseCurrent(ctx, [dpy] {
            return callSystem<Op::glXMakeContextCurrent>(dpy, GLXDrawable{None}, GLXDrawable{None},
                                                         GLXContext{});
        });

    currDrawableInfo = _getLocalDrawable(AppDrawable(draw));
    require(currDrawableInfo, "currDrawableInfo");
    LocalDrawableInfo* const ldi = currDrawableInfo;
    LocalDrawableInfo* const rldi = _getLocalDrawable(AppDrawable(read));
    require(rldi, "rldi");
    rldi->lctx = ldi->lctx = _getLocalContext(AppContext(ctx));
    require(rldi->lctx, "rldi->lctx");
    placeWindow(appDisplay);
    if (!rldi->localDrawable) {
        _createLocalDrawable(AppDisplay(appDisplay), rldi);
        currDrawableInfo = ldi; // drawing goes to the draw drawable
    }
    XFlush(dpy);
    const int result = callSystem<Op::glXMakeContextCurrent>(
        dpy, ldi->localDrawable, rldi->localDrawable, ldi->lctx->localCtx);
    if (result)
        clientMemory::use(ldi->lctx->localCtx);
    setUpNewContext();
    return result;
}

void _glXSwapBuffers(Display* appDisplay, GLXDrawable drawable)
{
    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    require(currLocalDisplay, "currLocalDisplay");
    const LocalDrawableInfo* ldraw = _getLocalDrawable(AppDrawable(drawable));
    require(ldraw, "ldraw");
    if (ldraw->localDrawable)
        callSystem<Op::glXSwapBuffers>(currLocalDisplay->dpy, ldraw->localDrawable);
    // Without waiting, hears what X has to say: frames that only draw make no request of Xlib, and
    // would neither report their errors nor notice that the display is gone.
    XPending(currLocalDisplay->dpy);
}
