#include "tests/fuzz/standInSystem.h"

#include "coding/buffer.h"
#include "coding/clientMemory.h"
#include "coding/displayConfig.h"
#include "coding/invariant.h"
#include "coding/serverProcess.h"
#include "tests/fuzz/standInMemory.h"
#include "tests/support/serverTables.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <cstdlib>

double queriedNumber;
glOp glOpTable[operationCount];

void invariantFailed(const char*, const char*, int, const char*) { throw InvariantFailed{}; }

namespace {

// Touches `bytes` bytes, of very many a few and the last; those that the library may
// change are changed to what they were.
template <class T>
void touch(T* memory, std::int64_t bytes)
{
    static volatile unsigned char sink;
    auto* at =
        reinterpret_cast<volatile unsigned char*>(const_cast<std::remove_const_t<T>*>(memory));
    const std::int64_t step = bytes > 1 << 14 ? bytes / 256 : 1;
    for (std::int64_t i = (bytes - 1) % step; i < bytes; i += step) {
        const unsigned char byte = at[i];
        if constexpr (std::is_const_v<T>)
            sink = byte;
        else
            at[i] = byte;
    }
}

// How many bytes each layout promises behind parameter i, an array, of an operation that is called
// with `given`.
template <class F, int i, int bytes, class Given>
std::int64_t promised(FixedArrays<bytes>, const Given&)
{
    return fixedArrayBytes<F, bytes>();
}

template <class F, int i, class Given>
std::int64_t promised(CountedArrays, const Given& given)
{
    return std::int64_t{std::get<0>(given)} * elementSize<F, i>();
}

template <class F, int i, const ParamSizes& sizes, class Given>
std::int64_t promised(ParameterArray<sizes>, const Given& given)
{
    const ParamSize* size = findParam(sizes, static_cast<GLenum>(std::get<i - 1>(given)));
    return size ? size->bytes : 16 * elementSize<F, i>(); // no parameter has more
}

template <class F, int i, Count count, Null null, Memory memory, class Given>
std::int64_t promised(DataBlock<count, null, memory>, const Given& given)
{
    if constexpr (count == Count::firstScalar)
        return std::int64_t{std::get<0>(given)} * elementSize<F, i>();
    else if constexpr (count == Count::lastScalar)
        return std::int64_t{std::get<i - 1>(given)} * elementSize<F, i>();
    else if constexpr (count == Count::indexList)
        return std::int64_t{std::get<i - 2>(given)} * elementBytes(std::get<i - 1>(given));
    else
        return 0; // the operation is not told
}

template <class F, int i, int length, class Given>
std::int64_t promised(LengthlessVector<length>, const Given&)
{
    return length == unknowable ? 16 * elementSize<F, i>() : 0;
}

template <class F, int i, class Layout, class Given>
void touchArray(Layout layout, const Given& given)
{
    if constexpr (requires { promised<F, i>(layout, given); })
        if (auto* array = std::get<i>(given))
            touch(array, promised<F, i>(layout, given));
}

// Feedback memory is written to for as long as the render mode asks for it, and cannot be replaced
// meanwhile.
struct Feedback {
    GLfloat* memory = nullptr;
    std::int64_t bytes = 0;
    bool on = false;
};
Feedback feedback;

// What handles lead to.
XVisualInfo visual{};

template <class R>
R something()
{
    if constexpr (std::is_same_v<R, GLXContext>)
        return standIn::create();
    else if constexpr (std::is_pointer_v<R>)
        return nullptr;
    else if constexpr (!std::is_void_v<R>)
        return R{1};
}

// The kind of memory behind a pointer operation.
template <class>
inline constexpr Memory memoryOf = Memory::none;
template <Memory memory, Components components, int typeAt>
inline constexpr Memory memoryOf<Noted<ClientArray<memory, components, typeAt>>> = memory;

// What an operation does with client memory.
template <Op op, class... P>
void useMemory(P... p)
{
    [[maybe_unused]] const std::tuple given(p...);
    [[maybe_unused]] const auto at = [&given]<int i>(std::integral_constant<int, i>) {
        return std::get<i>(given);
    };
#define PARAMETER(i) at(std::integral_constant<int, i>{})
    constexpr Memory kind = memoryOf<Layout<op>>;
    if constexpr (kind == Memory::vertexAttrib)
        standIn::setPointer(kind, PARAMETER(0), PARAMETER(1), PARAMETER(2), PARAMETER(5));
    else if constexpr (kind == Memory::normal || kind == Memory::index || kind == Memory::fogCoord)
        standIn::setPointer(kind, 0, 1, PARAMETER(0), PARAMETER(2));
    else if constexpr (kind == Memory::edgeFlag)
        standIn::setPointer(kind, 0, 1, 0, PARAMETER(1));
    else if constexpr (kind != Memory::none)
        standIn::setPointer(kind, 0, PARAMETER(0), PARAMETER(1), PARAMETER(3));
    else if constexpr (op == Op::glEnableClientState || op == Op::glEnable)
        standIn::setEnabled(PARAMETER(0), true);
    else if constexpr (op == Op::glDisableClientState)
        standIn::setEnabled(PARAMETER(0), false);
    else if constexpr (op == Op::glEnableVertexAttribArrayARB)
        standIn::setAttributeEnabled(PARAMETER(0), true);
    else if constexpr (op == Op::glDisableVertexAttribArrayARB)
        standIn::setAttributeEnabled(PARAMETER(0), false);
    else if constexpr (op == Op::glClientActiveTexture || op == Op::glClientActiveTextureARB)
        standIn::setUnit(PARAMETER(0));
    else if constexpr (op == Op::glPixelStorei)
        standIn::setPixelStore(PARAMETER(0), PARAMETER(1));
    else if constexpr (op == Op::glPixelStoref)
        standIn::setPixelStore(PARAMETER(0), truncate(PARAMETER(1) + 0.5F));
    else if constexpr (op == Op::glPushClientAttrib)
        standIn::push(PARAMETER(0));
    else if constexpr (op == Op::glPopClientAttrib)
        standIn::pop();
    else if constexpr (op == Op::glBegin)
        standIn::begin();
    else if constexpr (op == Op::glEnd)
        standIn::end();
    else if constexpr (op == Op::glNewList)
        standIn::newList(PARAMETER(0), PARAMETER(1));
    else if constexpr (op == Op::glEndList)
        standIn::endList();
    else if constexpr (op == Op::glCallList)
        standIn::callList(PARAMETER(0));
    else if constexpr (op == Op::glCallLists) {
        if (PARAMETER(1) == GL_UNSIGNED_BYTE && PARAMETER(2))
            for (GLsizei i = 0; i < std::min(PARAMETER(0), 1000); ++i)
                standIn::callList(static_cast<const GLubyte*>(PARAMETER(2))[i]);
    } else if constexpr (op == Op::glArrayElement || op == Op::glArrayElementEXT)
        standIn::readElement(PARAMETER(0));
    else if constexpr (op == Op::glDrawArrays || op == Op::glDrawArraysEXT ||
                       op == Op::glDrawMeshArraysSUN)
        standIn::readRange(PARAMETER(1), PARAMETER(2));
    else if constexpr (op == Op::glLockArraysEXT)
        standIn::readRange(PARAMETER(0), PARAMETER(1));
    else if constexpr (op == Op::glMap1d || op == Op::glMap1f)
        standIn::readPoints(PARAMETER(0), PARAMETER(3), PARAMETER(4), 4, 1, PARAMETER(5));
    else if constexpr (op == Op::glMap2d || op == Op::glMap2f)
        standIn::readPoints(PARAMETER(0), PARAMETER(3), PARAMETER(4), PARAMETER(7), PARAMETER(8),
                            PARAMETER(9));
    else if constexpr (op == Op::glDrawElements)
        standIn::readElements(PARAMETER(1), PARAMETER(2), PARAMETER(3));
    else if constexpr (op == Op::glDrawRangeElements) {
        const GLenum type = PARAMETER(4);
        if (PARAMETER(3) > 0 &&
            (type == GL_UNSIGNED_BYTE || type == GL_UNSIGNED_SHORT || type == GL_UNSIGNED_INT)) {
            standIn::readElement(PARAMETER(1));
            standIn::readElement(PARAMETER(2));
        }
        standIn::readElements(PARAMETER(3), type, PARAMETER(5));
    } else if constexpr (op == Op::glPolygonStipple)
        standIn::readImage(2, 32, 32, 1, GL_COLOR_INDEX, GL_BITMAP, PARAMETER(0));
    else if constexpr (op == Op::glDrawPixels)
        standIn::readImage(2, PARAMETER(0), PARAMETER(1), 1, PARAMETER(2), PARAMETER(3),
                           PARAMETER(4));
    else if constexpr (op == Op::glTexImage1D)
        standIn::readImage(1, PARAMETER(3), 1, 1, PARAMETER(5), PARAMETER(6), PARAMETER(7));
    else if constexpr (op == Op::glTexImage2D)
        standIn::readImage(2, PARAMETER(3), PARAMETER(4), 1, PARAMETER(6), PARAMETER(7),
                           PARAMETER(8));
    else if constexpr (op == Op::glTexImage3D || op == Op::glTexImage3DEXT)
        standIn::readImage(3, PARAMETER(3), PARAMETER(4), PARAMETER(5), PARAMETER(7), PARAMETER(8),
                           PARAMETER(9));
    else if constexpr (op == Op::glTexSubImage1D)
        standIn::readImage(1, PARAMETER(3), 1, 1, PARAMETER(4), PARAMETER(5), PARAMETER(6));
    else if constexpr (op == Op::glTexSubImage2D)
        standIn::readImage(2, PARAMETER(4), PARAMETER(5), 1, PARAMETER(6), PARAMETER(7),
                           PARAMETER(8));
    else if constexpr (op == Op::glTexSubImage3D)
        standIn::readImage(3, PARAMETER(5), PARAMETER(6), PARAMETER(7), PARAMETER(8), PARAMETER(9),
                           PARAMETER(10));
    else if constexpr (op == Op::glColorTable || op == Op::glColorTableEXT ||
                       op == Op::glColorSubTable || op == Op::glConvolutionFilter1D)
        standIn::readImage(1, PARAMETER(2), 1, 1, PARAMETER(3), PARAMETER(4), PARAMETER(5));
    else if constexpr (op == Op::glConvolutionFilter2D)
        standIn::readImage(2, PARAMETER(2), PARAMETER(3), 1, PARAMETER(4), PARAMETER(5),
                           PARAMETER(6));
    else if constexpr (op == Op::glSeparableFilter2D) {
        standIn::readImage(1, PARAMETER(2), 1, 1, PARAMETER(4), PARAMETER(5), PARAMETER(6));
        standIn::readImage(1, PARAMETER(3), 1, 1, PARAMETER(4), PARAMETER(5), PARAMETER(7));
    } else if constexpr (op == Op::glXDestroyContext)
        standIn::destroy(PARAMETER(1));
#undef PARAMETER
}

template <Op op, class F = Prototype<op>>
struct StandIn;
template <Op op, class R, class... P>
struct StandIn<op, R(P...)> {
    static R call(P... p)
    {
        using F = R(P...);
        using S = Signature<F>;
        [[maybe_unused]] const std::tuple given(p...);
        [&]<int... i>(std::integer_sequence<int, i...>)
        {
            (touchArray<F, S::scalars + i>(Layout<op>{}, given), ...);
        }
        (std::make_integer_sequence<int, S::arrays>{});
        useMemory<op>(p...);
        // As many lists are called one by one as the operation says.
        if constexpr (op == Op::glCallLists)
            if (const auto [n, type, lists] = given; lists)
                touch(lists, std::int64_t{n} * (type == GL_2_BYTES   ? 2
                                                : type == GL_3_BYTES ? 3
                                                                     : elementBytes(type)));
        if constexpr (op == Op::glFeedbackBuffer)
            if (const auto [size, type, memory] = given; !feedback.on)
                feedback = {memory, std::int64_t{size} * std::int64_t{sizeof *memory}, false};
        if constexpr (op == Op::glRenderMode)
            feedback.on = std::get<0>(given) == GL_FEEDBACK && feedback.memory;
        if constexpr (op == Op::glEnd)
            if (feedback.on)
                touch(feedback.memory, feedback.bytes);
        if constexpr (op == Op::glXMakeCurrent || op == Op::glXMakeContextCurrent)
            return standIn::use(std::get<sizeof...(P) - 1>(given));
        else if constexpr (op == Op::glIsEnabled)
            return standIn::isEnabled(std::get<0>(given));
        else
            return something<R>();
    }
};

template <Op op>
void set(Prototype<op>* entry)
{
    glOpTable[indexOf(op)] = reinterpret_cast<glOp>(entry);
}

template <class T>
void answer(GLenum name, T* values)
{
    const bool isMatrix = name == GL_MODELVIEW_MATRIX || name == GL_PROJECTION_MATRIX;
    const bool isFourfold =
        name == GL_VIEWPORT || name == GL_SCISSOR_BOX || name == GL_CURRENT_RASTER_POSITION;
    const int count = isMatrix ? 16 : isFourfold ? 4 : 1;
    if (!standIn::answers())
        return;
    // What the server saves of these it puts back.
    if (const std::optional<GLint> value = standIn::parameter(name)) {
        *values = static_cast<T>(*value);
        return;
    }
    if constexpr (std::is_integral_v<T>)
        std::fill_n(values, count, truncate(queriedNumber));
    else
        std::fill_n(values, count, static_cast<T>(queriedNumber));
}

// The X display: only the fields that Xlib's macros read.
std::remove_pointer_t<_XPrivDisplay> privateDisplay{};
Screen screen{};
Display* const fakeDisplay = reinterpret_cast<Display*>(&privateDisplay);
LocalDisplay localDisplay{fakeDisplay, nullptr, nullptr, 0, 600, 400, {300, 0, 300, 400}, nullptr};
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
#include "wire/operations.def"
    set<Op::glGetIntegerv>(answer<GLint>);
    set<Op::glGetFloatv>(answer<GLfloat>);
    set<Op::glGetDoublev>(answer<GLdouble>);
    set<Op::glGetPointerv>(standIn::getPointer);
    set<Op::glGetVertexAttribivARB>(standIn::getAttribute);
    set<Op::glGetVertexAttribPointervARB>(standIn::getAttributePointer);
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
    Overload(glOpTable);
    if (!overloads)
        std::ranges::copy(pTbl, glOpTable);
}

void resetServer(bool current)
{
    clearServerTables();
    for (const Memory kind : {Memory::listNames, Memory::map1d, Memory::map1f, Memory::map2d,
                              Memory::map2f, Memory::feedback}) {
        ScratchBuffer& scratch = scratchOf(kind);
        std::ranges::for_each(scratch.outgrown, std::free);
        std::free(scratch.data);
        scratch = {.name = scratch.name};
    }
    standIn::reset(queriedNumber > 0);
    feedback = {};
    if (!current)
        return;

    LocalContextInfo& context = makeTileCurrent(localDisplay.rect, 300, 200, 2);
    currLocalDisplay = &localDisplay;
    context.appCtx = appHandle<GLXContext>(1);
    context.localCtx = standIn::create();
    standIn::use(context.localCtx);
    clientMemory::use(context.localCtx);
    LocalVisualTable[nVisualInfos++] = {1, &visual};
    currDrawableInfo->appDrawID = 1;
    currDrawableInfo->appVI = 1;
    currDrawableInfo->lvi = &LocalVisualTable[0];
}

// ---- The wall and X ----------------------------------------------------------------------------

LocalDisplay* GetLocalDisplay(AppDisplay appDisplay)
{
    constexpr std::uint32_t unavailable = 0xFFFFFFFF;
    return appDisplay == AppDisplay(unavailable) ? nullptr : &localDisplay;
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
