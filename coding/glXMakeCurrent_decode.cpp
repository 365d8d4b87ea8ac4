// Operations that bind a drawable: they record the application's window.
#include "coding/attributeList.h"
#include "coding/invariant.h"
#include "coding/serverOverload.h"

namespace {

// The drawable record at nDrawables, as a decoder first fills it.
LocalDrawableInfo& fillDrawable(Drawable appDrawID, VisualID appVI, int depth)
{
    LocalDrawableInfo& record = LocalDrawableTable[nDrawables];
    record.appDrawID = appDrawID;
    record.localDrawable = 0;
    record.appVI = appVI;
    record.depth = depth;
    record.lvi = nullptr;
    record.lctx = nullptr;
    record.dirtyCtx = 1;
    return record;
}

} // namespace

char* _glXMakeCurrent(char* args)
{
    const auto word = [args](int offset) { return load<std::int32_t>(args + offset); };
    const auto pixels = [word](int offset) { return static_cast<float>(word(offset)); };
    currAppWidth = word(16);
    currAppHeight = word(20);
    const auto drawable = fromWire<Drawable>(args + 8);
    if (drawable) {
        LocalDrawableInfo* record = _findLocalDrawableInfo(drawable);
        if (!record) {
            require(nDrawables + 1 < tableSlots, "nDrawables + 1 < 64");
            record = &fillDrawable(drawable, fromWire<VisualID>(args + 4), word(24));
            record->app_parentID = fromWire<Drawable>(args + 36);
            ++nDrawables;
        }
        record->arect = {pixels(28), pixels(32), pixels(16), pixels(20)};
    }
    perform<Op::glXMakeCurrent>(fromWire<Display*>(args), drawable,
                                fromWire<GLXContext>(args + 12));
    return args + 40;
}

char* _glXMakeContextCurrent(char* args)
{
    // The words at 4 and 8 and those behind the context are carried but not used.
    perform<Op::glXMakeContextCurrent>(fromWire<Display*>(args), fromWire<GLXDrawable>(args + 12),
                                       fromWire<GLXDrawable>(args + 16),
                                       fromWire<GLXContext>(args + 20));
    return args + 48;
}

char* _glXCreateWindow(char* args)
{
    constexpr int countAt = 32;
    const auto window = fromWire<Window>(args + 4);
    const auto glxWinID = fromWire<GLXWindow>(args + 12);
    LocalDrawableInfo* filled = nullptr;
    if (!_findLocalDrawableInfo(glxWinID)) {
        filled =
            &fillDrawable(glxWinID, fromWire<VisualID>(args + 16), load<std::int32_t>(args + 28));
        filled->arect.w = static_cast<float>(load<std::int32_t>(args + 20));
        filled->arect.h = static_cast<float>(load<std::int32_t>(args + 24));
    }
    const int before = nDrawables;
    const std::vector<int> attributes = attributeList(args, countAt);
    const bool any = load<std::int32_t>(args + countAt) > 0;
    perform<Op::glXCreateWindow>(fromWire<Display*>(args), fromWire<GLXFBConfig>(args + 8), window,
                                 any ? attributes.data() : nullptr);
    // The window was recorded already: the slot must not reach the next record half filled.
    if (filled && nDrawables == before)
        *filled = {};
    return behindAttributes(args, countAt);
}
