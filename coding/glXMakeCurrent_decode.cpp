// Operations that bind a drawable: they record the application's window.
#include "coding/attributeList.h"
#include "coding/fromWire.h"
#include "coding/invariant.h"
#include "coding/server_overload/lookups.h"

namespace {

// The drawable record at nDrawables, as a decoder first fills it.
LocalDrawableInfo& fillDrawable(AppDrawable appDrawID, AppVisual appVI, int depth)
{
    LocalDrawableInfo& record = LocalDrawableTable[nDrawables];
    record.appDrawID = asParameter<Drawable>(appDrawID);
    record.localDrawable = 0;
    record.appVI = asParameter<VisualID>(appVI);
    record.depth = depth;
    record.lvi = nullptr;
    record.lctx = nullptr;
    record.dirtyCtx = 1;
    return record;
}

MWRect windowRect(int x, int y, int width, int height)
{
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(width),
            static_cast<float>(height)};
}

} // namespace

char* _glXMakeCurrent(char* args)
{
    MakeCurrentBlock block;
    char* const end = loadBlock(args, block);
    currAppWidth = block.width;
    currAppHeight = block.height;
    if (block.drawable != AppDrawable()) {
        LocalDrawableInfo* record = _findLocalDrawableInfo(block.drawable);
        if (!record) {
            require(nDrawables + 1 < tableSlots, "nDrawables + 1 < 64");
            record = &fillDrawable(block.drawable, block.visual, block.depth);
            record->app_parentID = asParameter<Drawable>(block.parent);
            ++nDrawables;
        }
        record->arect = windowRect(block.x, block.y, block.width, block.height);
    }
    perform<Op::glXMakeCurrent>(asParameter<Display*>(block.dpy),
                                asParameter<GLXDrawable>(block.drawable),
                                asParameter<GLXContext>(block.ctx));
    return end;
}

char* _glXMakeContextCurrent(char* args)
{
    MakeContextCurrentBlock block;
    char* const end = loadBlock(args, block);
    perform<Op::glXMakeContextCurrent>(
        asParameter<Display*>(block.dpy), asParameter<GLXDrawable>(block.draw),
        asParameter<GLXDrawable>(block.read), asParameter<GLXContext>(block.ctx));
    return end;
}

char* _glXCreateWindow(char* args)
{
    CreateWindowBlock block;
    char* const end = loadBlock(args, block);
    LocalDrawableInfo* filled = nullptr;
    if (!_findLocalDrawableInfo(block.glxWindow)) {
        filled = &fillDrawable(block.glxWindow, block.visual, block.depth);
        filled->arect.w = static_cast<float>(block.width);
        filled->arect.h = static_cast<float>(block.height);
    }
    const int before = nDrawables;
    const std::vector<int> attributes = attributeList(block.attributes);
    perform<Op::glXCreateWindow>(asParameter<Display*>(block.dpy),
                                 asParameter<GLXFBConfig>(block.config),
                                 asParameter<Window>(block.window),
                                 block.attributes.count > 0 ? attributes.data() : nullptr);
    // The window was recorded already: the slot must not reach the next record half filled.
    if (filled && nDrawables == before)
        *filled = {};
    return end;
}
