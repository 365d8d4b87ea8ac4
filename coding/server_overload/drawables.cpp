// Drawables and their local windows.
#include "coding/displayConfig.h"
#include "coding/invariant.h"
#include "coding/server_overload/overloads.h"

#include <cstdlib>

int keep_aspect_ratio = 1;
int firsttime = 1;

LocalDrawableInfo* _getLocalDrawable(AppDrawable appDrawable)
{
    LocalDrawableInfo* record = _findLocalDrawableInfo(appDrawable);
    if (!record) {
        require(nDrawables + 1 < tableSlots, "nDrawables + 1 < 64");
        // A creating decoder may have filled parts of the slot; they stay.
        record = &LocalDrawableTable[nDrawables++];
        record->lvi = nullptr;
        record->psx = record->psy = -1.0F;
        record->vsx = record->vsy = record->vtx = record->vty = -1.0F;
        record->appDrawID = asParameter<Drawable>(appDrawable);
    }
    if (!record->lvi) {
        // Through the application display that the current local display serves, so that no second
        // local display is opened.
        require(currLocalDisplay, "currLocalDisplay");
        record->lvi = _getLVI(AppDisplay(currLocalDisplay->appDpy), AppVisual(record->appVI));
        require(record->lvi, "LocalDrawableTable[i].lvi");
    }
    return record;
}

MWRect localWindowRect(const LocalDrawableInfo& ldi, float psx, float psy)
{
    const MWRect& tile = currLocalDisplay->rect;
    MWRect rect;
    _scaleRect(ldi.arect, psx, psy, &rect);
    _clipRect(rect, tile, &rect);
    _translateRect(rect, -tile.x, -tile.y, &rect);
    return rect;
}

int windowTop(const MWRect& lrect)
{
    return truncate(currLocalDisplay->rect.h - (lrect.y + lrect.h));
}

void _createLocalDrawable(AppDisplay appDisplay, LocalDrawableInfo* ldi)
{
    require(ldi, "ldi");
    require(ldi->lvi, "lvi");
    currLocalDisplay = GetLocalDisplay(appDisplay);
    require(currLocalDisplay, "currLocalDisplay");
    Display* dpy = currLocalDisplay->dpy;

    // A top-level window stands at the wall's origin, wherever it is on the application's screen.
    ldi->root = _getLocalRoot(ldi);
    if (!ldi->root)
        ldi->arect.x = ldi->arect.y = 0;

    const Window rootWindow = RootWindow(dpy, currLocalDisplay->scrn);
    Visual* visual = ldi->lvi->localVI->visual;
    XSetWindowAttributes attributes{};
    attributes.colormap = XCreateColormap(dpy, rootWindow, visual, AllocNone);
    attributes.override_redirect = True; // no decoration, and nobody moves it

    if (firsttime) {
        firsttime = 0;
        determineUsersWindowPreferences();
    }
    _setTileTransform(ldi);
    require(currDrawableInfo, "currDrawableInfo");
    ldi->lrect = localWindowRect(*ldi, currDrawableInfo->psx, currDrawableInfo->psy);

    Window parent = rootWindow;
    if (ldi->root)
        parent = ldi->root->localDrawable;
    else if (ldi->parent)
        parent = ldi->parent->localDrawable;

    ldi->localDrawable =
        XCreateWindow(dpy, parent, truncate(ldi->lrect.x), windowTop(ldi->lrect),
                      static_cast<unsigned>(truncate(ldi->lrect.w)),
                      static_cast<unsigned>(truncate(ldi->lrect.h)), 0, CopyFromParent, InputOutput,
                      visual, CWColormap | CWOverrideRedirect, &attributes);
    require(ldi->localDrawable, "ldi->localDrawable");
    currDrawableInfo = ldi;
    XMapWindow(dpy, ldi->localDrawable);
    XFlush(dpy);
}

void determineUsersWindowPreferences()
{
    if (const char* value = std::getenv("MOSA_KEEP_ASPECT_RATIO"))
        keep_aspect_ratio = std::atoi(value);
}

GLXWindow _glXCreateWindow(Display* appDisplay, GLXFBConfig config, Window window,
                           const int* attribList)
{
    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    require(currLocalDisplay, "currLocalDisplay");
    currDrawableInfo = _getLocalDrawable(AppDrawable(window));
    require(currDrawableInfo, "currDrawableInfo");
    if (!currDrawableInfo->localDrawable)
        _createLocalDrawable(AppDisplay(appDisplay), currDrawableInfo);
    // The result is not recorded: later operations on the drawable use the X window itself.
    return callSystem<Op::glXCreateWindow>(currLocalDisplay->dpy,
                                           _getLocalFBConfig(AppFBConfig(config)),
                                           currDrawableInfo->localDrawable, attribList);
}

void _glXDestroyWindow(Display* appDisplay, GLXWindow /*window*/)
{
    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    require(currLocalDisplay, "currLocalDisplay");
    require(currDrawableInfo, "currDrawableInfo");
    callSystem<Op::glXDestroyWindow>(currLocalDisplay->dpy, currDrawableInfo->localDrawable);
}

void _glXSelectEvent(Display* appDisplay, GLXDrawable drawable, unsigned long event_mask)
{
    currLocalDisplay =
        GetLocalDisplay(AppDisplay(appDisplay)); // first: resolving the drawable needs it
    require(currLocalDisplay, "currLocalDisplay");
    currDrawableInfo = _getLocalDrawable(AppDrawable(drawable));
    require(currDrawableInfo, "currDrawableInfo");
    if (!currDrawableInfo->localDrawable)
        _createLocalDrawable(AppDisplay(appDisplay), currDrawableInfo);
    callSystem<Op::glXSelectEvent>(currLocalDisplay->dpy, currDrawableInfo->localDrawable,
                                   event_mask);
}

void _MWRaiseWindow(Window appWindow)
{
    if (!currLocalDisplay)
        return;
    const LocalDrawableInfo* record = _findLocalDrawableInfo(AppDrawable(appWindow));
    if (record && record->localDrawable)
        XRaiseWindow(currLocalDisplay->dpy, record->localDrawable);
}
