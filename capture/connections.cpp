#include "capture/connections.h"
#include "capture/contexts.h"
#include "capture/entered.h"

#include <set>

// Of Xlibint.h, whose macros take away too many names.
extern "C" int (*XESetCloseDisplay(Display*, int, int (*)(Display*, XExtCodes*)))(Display*,
                                                                                  XExtCodes*);

namespace {

auto& watched = *new std::set<const Display*>; // under streamLock

int closes(Display* dpy, XExtCodes*)
{
    const Entered entered("XCloseDisplay");
    {
        const StreamLock lock;
        watched.erase(dpy);
    }
    connectionIsGone(dpy);
    return 0;
}

} // namespace

void watchConnection(Display* dpy)
{
    {
        const StreamLock lock;
        if (!dpy || !watched.insert(dpy).second)
            return;
    }
    if (const XExtCodes* codes = XAddExtension(dpy))
        XESetCloseDisplay(dpy, codes->extension, closes);
}
