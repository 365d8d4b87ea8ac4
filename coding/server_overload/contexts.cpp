// Contexts and pbuffers. The decoder has written the application's handle into the first free
// record; a creation that fails leaves the count alone, so that the next one reuses the record.
#include "coding/clientMemory.h"
#include "coding/displayConfig.h"
#include "coding/invariant.h"
#include "coding/server_overload/overloads.h"

#include <cstdio>

namespace {

void useDisplay(Display* appDisplay, std::source_location where = std::source_location::current())
{
    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    require(currLocalDisplay, "currLocalDisplay", where);
}

// Commits the record at nContexts with the context that `create` makes, or with the one it is to
// share: contexts that share are one local context.
template <class Create>
GLXContext commitContext(AppContext shareList, Create create)
{
    LocalContextInfo& record = LocalContextTable[nContexts];
    if (shareList != AppContext()) {
        const LocalContextInfo* shared = _getLocalContext(shareList);
        record.localCtx = shared ? shared->localCtx : nullptr;
    } else if ((record.localCtx = create()))
        clientMemory::create(record.localCtx);
    if (!record.localCtx)
        return nullptr;
    require(nContexts + 1 < tableSlots, "nContexts + 1 < 64");
    lctxInitAttrStack(&record);
    record.firsttime = 1;
    record.destroyed = 0;
    ++nContexts;
    return record.localCtx;
}

} // namespace

GLXContext _glXCreateContext(Display* appDisplay, XVisualInfo* avis, GLXContext shareList,
                             int direct)
{
    useDisplay(appDisplay);
    return commitContext(AppContext(shareList), [&] {
        const LocalVisualInfo* lvi = _getLVI(AppDisplay(appDisplay), AppVisual(avis));
        require(lvi, "lvi");
        return callSystem<Op::glXCreateContext>(currLocalDisplay->dpy, lvi->localVI, GLXContext{},
                                                direct);
    });
}

GLXContext _glXCreateNewContext(Display* appDisplay, GLXFBConfig config, int renderType,
                                GLXContext shareList, int direct)
{
    useDisplay(appDisplay);
    GLXFBConfig lconfig = _getLocalFBConfig(AppFBConfig(config));
    require(lconfig, "lconfig");
    return commitContext(AppContext(shareList), [&] {
        return callSystem<Op::glXCreateNewContext>(currLocalDisplay->dpy, lconfig, renderType,
                                                   GLXContext{}, direct);
    });
}

void _glXDestroyContext(Display* appDisplay, GLXContext ctx)
{
    useDisplay(appDisplay);
    for (int i = 0; i < nContexts; ++i)
        if (LocalContextInfo& record = LocalContextTable[i];
            AppContext(record.appCtx) == AppContext(ctx)) {
            callSystem<Op::glXDestroyContext>(currLocalDisplay->dpy, record.localCtx);
            record.destroyed = 1;
        }
}

void _glXCopyContext(Display* appDisplay, GLXContext src, GLXContext dst, unsigned long mask)
{
    useDisplay(appDisplay);
    const LocalContextInfo* from = _getLocalContext(AppContext(src));
    const LocalContextInfo* to = _getLocalContext(AppContext(dst));
    if (!from || !to) {
        std::fprintf(stderr, "Attention MOSA: glXCopyContext: context %p is not known\n",
                     static_cast<void*>(from ? dst : src));
        return;
    }
    callSystem<Op::glXCopyContext>(currLocalDisplay->dpy, from->localCtx, to->localCtx, mask);
}

GLXPbuffer _glXCreatePbuffer(Display* appDisplay, GLXFBConfig config, const int* attribList)
{
    useDisplay(appDisplay);
    GLXFBConfig lconfig = _getLocalFBConfig(AppFBConfig(config));
    require(lconfig, "_localFBConfig");
    const GLXPbuffer pbuffer =
        callSystem<Op::glXCreatePbuffer>(currLocalDisplay->dpy, lconfig, attribList);
    LocalPbufferTable[nPbuffers++].localPbuffer = pbuffer;
    require(nPbuffers < tableSlots, "nPbuffers < 64");
    return pbuffer;
}

void _glXDestroyPbuffer(Display* appDisplay, GLXPbuffer pbuffer)
{
    useDisplay(appDisplay);
    const GLXPbuffer local = _getLocalPbuffer(AppPbuffer(pbuffer));
    require(local, "_localPbuffer");
    callSystem<Op::glXDestroyPbuffer>(currLocalDisplay->dpy, local);
}
