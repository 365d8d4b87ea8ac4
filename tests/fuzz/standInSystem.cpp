#include "tests/fuzz/standInSystem.h"

#include "coding/displayConfig.h"
#include "coding/invariant.h"
#include "shuffle/mw.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <cstdlib>

double queriedNumber;
glOp glOpTable[operationCount];
int swapOnRetrace;

void invariantFailed(const char*, const char*, int, const char*) { throw InvariantFailed{}; }

namespace {

// Touches `bytes` bytes; those that the library may change are changed to what they were.
template <class T>
void touch(T* memory, std::int64_t bytes)
{
    static volatile unsigned char sink;
    auto* at =
        reinterpret_cast<volatile unsigned char*>(const_cast<std::remove_const_t<T>*>(memory));
    for (std::int64_t i = 0; i < bytes; ++i) {
        const unsigned char byte = at[i];
        if constexpr (std::is_const_v<T>)
            sink = byte;
        else
            at[i] = byte;
    }
}

// What each layout promises about the pointers that it hands over.
template <class F, class Layout, class... A>
void touchArrays(Layout, A...)
{
}

template <class F, int bytes, class... A>
void touchArrays(FixedArrays<bytes>, A... a)
{
    using S = Signature<F>;
    const std::tuple given(a...);
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        (touch(std::get<S::scalars + i>(given), fixedArrayBytes<F, bytes>()), ...);
    }
    (std::make_integer_sequence<int, S::arrays>{});
}

template <class F, class... A>
void touchArrays(CountedArrays, GLsizei n, A... a)
{
    const std::tuple given(a...);
    [&]<int... i>(std::integer_sequence<int, i...>)
    {
        (touch(std::get<i>(given), std::int64_t{n} * elementSize<F, 1 + i>()), ...);
    }
    (std::make_integer_sequence<int, sizeof...(A)>{});
}

template <class F, const ParamSizes& sizes, class... A>
void touchArrays(ParameterArray<sizes>, A... a)
{
    const std::tuple given(a...);
    touch(std::get<sizeof...(A) - 1>(given),
          paramBytes(sizes, static_cast<GLenum>(std::get<sizeof...(A) - 2>(given))));
}

template <class F, Count count, Null null, ScratchBuffer* scratch, class... A>
void touchArrays(DataBlock<count, null, scratch>, A... a)
{
    constexpr int pointer = sizeof...(A) - 1;
    const std::tuple given(a...);
    std::int64_t elements = 0;
    if constexpr (count == Count::firstScalar)
        elements = std::get<0>(given);
    else if constexpr (count == Count::lastScalar)
        elements = std::get<pointer - 1>(given);
    else if constexpr (count == Count::indexList)
        elements =
            std::int64_t{std::get<pointer - 2>(given)} * elementBytes(std::get<pointer - 1>(given));
    if (std::get<pointer>(given))
        touch(std::get<pointer>(given), elements * elementSize<F, pointer>());
}

template <class F, ScratchBuffer& scratch, Components components, int typeAt, class... A>
void touchArrays(ClientArray<scratch, components, typeAt>, A...)
{
    touch(scratch.data, scratch.size);
}

// The lists are called one by one, as many as the operation says.
void touchNames(GLsizei n, GLenum type, const GLvoid* lists)
{
    if (lists && n > 0)
        touch(lists, std::int64_t{n} * (type == GL_2_BYTES ? 2 : elementBytes(type)));
}

template <class R>
R something()
{
    if constexpr (std::is_pointer_v<R>)
        return nullptr;
    else if constexpr (!std::is_void_v<R>)
        return R{1};
}

template <Op op, class F = Prototype<op>>
struct StandIn;
template <Op op, class R, class... P>
struct StandIn<op, R(P...)> {
    static R call(P... p)
    {
        touchArrays<R(P...)>(Layout<op>{}, p...);
        if constexpr (op == Op::glCallLists)
            touchNames(p...);
        return something<R>();
    }
};

template <Op op>
void set(Prototype<op>* entry)
{
    glOpTable[indexOf(op)] = reinterpret_cast<glOp>(entry);
}

constexpr GLenum fourfold[] = {GL_VIEWPORT, GL_SCISSOR_BOX, GL_CURRENT_RASTER_POSITION};
constexpr GLenum matrices[] = {GL_MODELVIEW_MATRIX, GL_PROJECTION_MATRIX};

template <class T>
void answer(GLenum name, T* values)
{
    int count = std::ranges::count(fourfold, name) ? 4 : 1;
    if (std::ranges::count(matrices, name))
        count = 16;
    if constexpr (std::is_integral_v<T>)
        std::fill_n(values, count, truncate(queriedNumber));
    else
        std::fill_n(values, count, static_cast<T>(queriedNumber));
}

// The X display: only the fields that Xlib's macros read.
std::remove_pointer_t<_XPrivDisplay> privateDisplay{};
Screen screen{};
Display* const fakeDisplay = reinterpret_cast<Display*>(&privateDisplay);
LocalDisplay localDisplay{.dpy = fakeDisplay,
                          .appDpy = nullptr,
                          .dpyName = nullptr,
                          .scrn = 0,
                          .vWidth = 600,
                          .vHeight = 400,
                          .rect = {300, 0, 300, 400},
                          .next = nullptr};
XVisualInfo visual{};
GLXFBConfig configurations[] = {reinterpret_cast<GLXFBConfig>(&visual)};

} // namespace

void installStandIns(bool overloads)
{
    screen.width = 300;
    screen.height = 400;
    privateDisplay.nscreens = 1;
    privateDisplay.screens = &screen;

#define OPERATION(number, name, ...) set<Op::name>(StandIn<Op::name>::call);
#define BY_HAND OPERATION
#define UNPERFORMED(number, name, ...)
#include "coding/operations.def"
    set<Op::glGetIntegerv>(answer<GLint>);
    set<Op::glGetFloatv>(answer<GLfloat>);
    set<Op::glGetDoublev>(answer<GLdouble>);
    set<Op::glXChooseVisual>([](Display*, int, int* attributes) {
        for (; *attributes; ++attributes) {
        }
        return &visual;
    });
    set<Op::glXChooseFBConfig>([](Display*, int, const int* attributes, int* count) {
        for (; *attributes; attributes += 2) {
        }
        *count = 1;
        return configurations;
    });
    set<Op::glXCreateContext>([](Display*, XVisualInfo*, GLXContext, Bool) {
        return reinterpret_cast<GLXContext>(&visual);
    });
    set<Op::glXCreateNewContext>([](Display*, GLXFBConfig, int, GLXContext, Bool) {
        return reinterpret_cast<GLXContext>(&visual);
    });
    if (overloads)
        Overload(glOpTable);
}

void resetServer(bool current)
{
    for (int i = 0; i < tableSlots; ++i)
        while (_vp* top = LocalContextTable[i].attrStack) {
            LocalContextTable[i].attrStack = top->next;
            delete top;
        }
    std::ranges::fill(LocalContextTable, LocalContextInfo{});
    std::ranges::fill(LocalVisualTable, LocalVisualInfo{});
    std::ranges::fill(LocalDrawableTable, LocalDrawableInfo{});
    std::ranges::fill(LocalFBConfigTable, LocalFBConfigsInfo{});
    std::ranges::fill(LocalPbufferTable, LocalPbufferInfo{});
    std::ranges::fill(LocalVertexArrayRangeTable, LocalVertexArrayRangePointersInfo{});
    std::ranges::fill(LocalProgramTable, LocalProgramInfo{});
    std::ranges::fill(LocalTextureIDTable, LocalTextureIDInfo{});
    for (int* count : {&nContexts, &nVisualInfos, &nDrawables, &nFBConfigs, &nPbuffers,
                       &nVertexArrayRanges, &nPrograms, &nTextureIDs})
        *count = 0;
    for (ScratchBuffer* scratch :
         {&vBuf, &nBuf, &cBuf, &iBuf, &tBuf, &eBuf, &fBuf, &scBuf, &wBuf, &mIbuf, &vAbuf, &listsBuf,
          &map1dBuf, &map1fBuf, &map2dBuf, &map2fBuf, &feedbackBuf}) {
        std::free(scratch->data);
        scratch->data = nullptr;
        scratch->size = 0;
    }
    currDrawableInfo = nullptr;
    currLocalDisplay = nullptr;
    currAppWidth = currAppHeight = glV_currAppWidth = glV_currAppHeight = 0;
    if (!current)
        return;

    currLocalDisplay = &localDisplay;
    currAppWidth = 300;
    currAppHeight = 200;
    LocalVisualTable[nVisualInfos++] = {1, &visual};
    LocalContextInfo& context = LocalContextTable[nContexts++];
    context.appCtx = appHandle<GLXContext>(1);
    context.localCtx = reinterpret_cast<GLXContext>(&visual);
    lctxInitAttrStack(&context);
    LocalDrawableInfo& drawable = LocalDrawableTable[nDrawables++];
    drawable = {.lrect = {0, 0, 300, 400},
                .arect = {0, 0, 300, 200},
                .psx = 2,
                .psy = 2,
                .vsx = 2,
                .vsy = 1,
                .vtx = 0.5F,
                .vty = 0,
                .app_depth = 24,
                .depth = 24,
                .appDrawID = 1,
                .appVI = 1,
                .dirtyCtx = 0,
                .app_parentID = 0,
                .isMapped = 0,
                .parent = nullptr,
                .root = nullptr,
                .localDrawable = 1,
                .lctx = &context,
                .lvi = &LocalVisualTable[0]};
    currDrawableInfo = &drawable;
}

// ---- The wall and X ----------------------------------------------------------------------------

LocalDisplay* GetLocalDisplay(Display* appDisplay)
{
    constexpr std::uint32_t unavailable = 0xFFFFFFFF;
    return appDisplay == appHandle<Display*>(unavailable) ? nullptr : &localDisplay;
}

void handleXErrors() {}

extern "C" {
Display* XOpenDisplay(const char*) { return fakeDisplay; }
Colormap XCreateColormap(Display*, Window, Visual*, int) { return 1; }
Window XCreateWindow(Display*, Window, int, int, unsigned, unsigned, unsigned, int, unsigned,
                     Visual*, unsigned long, XSetWindowAttributes*)
{
    return 1;
}
int XMapWindow(Display*, Window) { return 1; }
int XFlush(Display*) { return 1; }
int XPending(Display*) { return 0; }
int XMoveResizeWindow(Display*, Window, int, int, unsigned, unsigned) { return 1; }
int XRaiseWindow(Display*, Window) { return 1; }

// A font is there when its name is not empty.
Font XLoadFont(Display*, const char* name) { return static_cast<Font>(name[0]); }
XFontStruct* XQueryFont(Display*, XID font)
{
    static XFontStruct metrics{};
    return font ? &metrics : nullptr;
}
int XFreeFontInfo(char**, XFontStruct*, int) { return 1; }
}
