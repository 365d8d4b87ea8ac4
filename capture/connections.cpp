#include "capture/connections.h"
#include "capture/contexts.h"
#include "capture/entered.h"

#include <mutex>
#include <set>

// Of Xlibint.h, whose macros take away too many names.
extern "C" int (*XESetCloseDisplay(Display*, int, int (*)(Display*, XExtCodes*)))(Display*,
                                                                                  XExtCodes*);

namespace {

std::mutex watchedLock;
auto& watched = *new std::set<const Display*>;

int closes(Display* dpy, XExtCodes*)
{
    const Entered entered("XCloseDisplay");
    {
        const std::lock_guard lock(watchedLock);
        watched.erase(dpy);
    }
    connectionIsGone(dpy);
    return 0;
}

} // namespace

void watchConnection(Display* dpy)
{
    {
        const std::lock_guard lock(watchedLock);
        if (!dpy || !watched.insert(dpy).second)
            return;
    }
    if (const XExtCodes* codes = XAddExtension(dpy))
        XESetCloseDisplay(dpy, codes->extension, closes);
}
