// GLX: which contexts there are, and in which windows they are current. Everything is done by the
// node's own library; of what it does the client keeps what the wall has to know.
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/stream.h"
#include "capture/strings.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <mutex>

namespace {

// What drawables that are no windows stand for: a GLXWindow for its window, others for none.
auto& drawables = *new std::map<GLXDrawable, Window>;

void setDrawable(GLXDrawable drawable, Window window)
{
    const std::lock_guard lock(drawablesLock);
    drawables[drawable] = window;
}

void dropDrawable(GLXDrawable drawable)
{
    const std::lock_guard lock(drawablesLock);
    drawables.erase(drawable);
}

Window windowOf(GLXDrawable drawable)
{
    const std::lock_guard lock(drawablesLock);
    const auto found = drawables.find(drawable);
    return found == drawables.end() ? drawable : found->second;
}

// ---- Contexts ----------------------------------------------------------------------------------

// The attributes by which servers choose their visual: the kinds of buffers, not their sizes, which
// each node has as it can.
template <class Value>
std::vector<int> attributesBy(Value value, bool& doubleBuffered)
{
    doubleBuffered = value(GLX_DOUBLEBUFFER) != 0;
    std::vector<int> list{GLX_RGBA};
    if (doubleBuffered)
        list.push_back(GLX_DOUBLEBUFFER);
    for (const int size : {GLX_RED_SIZE, GLX_GREEN_SIZE, GLX_BLUE_SIZE})
        list.insert(list.end(), {size, 1});
    for (const int size : {GLX_ALPHA_SIZE, GLX_DEPTH_SIZE, GLX_STENCIL_SIZE, GLX_ACCUM_RED_SIZE,
                           GLX_ACCUM_GREEN_SIZE, GLX_ACCUM_BLUE_SIZE})
        if (value(size) > 0)
            list.insert(list.end(), {size, 1});
    endAttributes(list, value(GLX_SAMPLES));
    return list;
}

// Whether a context that asks for no version is shown by its pictures.
bool asPictureAlways() { return captureOptions.showing == Showing::pictures; }

GLXContext keepContext(Display* dpy, GLXContext context, GLXContext shared, XVisualInfo* visual)
{
    if (context) {
        bool doubleBuffered = true;
        std::vector<int> attributes = attributesBy(
            [=](int name) {
                int v = 0;
                callNative<Op::glXGetConfig>(dpy, visual, name, &v);
                return v;
            },
            doubleBuffered);
        addContext({context, shared, dpy, visual->visualid, std::move(attributes), doubleBuffered,
                    asPictureAlways()});
    }
    return context;
}

GLXContext keepContext(Display* dpy, GLXContext context, GLXContext shared, GLXFBConfig config,
                       bool asPicture)
{
    if (context) {
        const auto value = [=](int name) {
            int v = 0;
            callNative<Op::glXGetFBConfigAttrib>(dpy, config, name, &v);
            return v;
        };
        bool doubleBuffered = true;
        std::vector<int> attributes = attributesBy(value, doubleBuffered);
        addContext({context, shared, dpy, static_cast<unsigned long>(value(GLX_VISUAL_ID)),
                    std::move(attributes), doubleBuffered, asPicture});
    }
    return context;
}

GLXContext createContext(Display* dpy, XVisualInfo* visual, GLXContext shared, int direct)
{
    return keepContext(dpy, callNative<Op::glXCreateContext>(dpy, visual, shared, direct), shared,
                       visual);
}

GLXContext createNewContext(Display* dpy, GLXFBConfig config, int type, GLXContext shared,
                            int direct)
{
    return keepContext(dpy, callNative<Op::glXCreateNewContext>(dpy, config, type, shared, direct),
                       shared, config, asPictureAlways());
}

GLXContext createContextWithConfig(Display* dpy, GLXFBConfig config, int type, GLXContext shared,
                                   int direct)
{
    return keepContext(
        dpy, callNative<Op::glXCreateContextWithConfigSGIX>(dpy, config, type, shared, direct),
        shared, config, asPictureAlways());
}

// One of a version that the wall does not carry is refused as the node's library refuses a version
// that it does not have.
GLXContext createContextAttribs(Display* dpy, GLXFBConfig config, GLXContext shared, int direct,
                                const int* attributes)
{
    static auto* const native = reinterpret_cast<PFNGLXCREATECONTEXTATTRIBSARBPROC>(
        nativeByName("glXCreateContextAttribsARB"));
    int major = 1, minor = 0, profile = 0;
    constexpr int known[] = {GLX_CONTEXT_MAJOR_VERSION_ARB,
                             GLX_CONTEXT_MINOR_VERSION_ARB,
                             GLX_CONTEXT_FLAGS_ARB,
                             GLX_CONTEXT_PROFILE_MASK_ARB,
                             GLX_CONTEXT_RESET_NOTIFICATION_STRATEGY_ARB,
                             GLX_CONTEXT_RELEASE_BEHAVIOR_ARB,
                             GLX_CONTEXT_OPENGL_NO_ERROR_ARB,
                             GLX_RENDER_TYPE,
                             GLX_SCREEN};
    for (const int* a = attributes; a && isKnownAttribute(*a, known); a += 2) {
        if (a[0] == GLX_CONTEXT_MAJOR_VERSION_ARB)
            major = a[1];
        else if (a[0] == GLX_CONTEXT_MINOR_VERSION_ARB)
            minor = a[1];
        else if (a[0] == GLX_CONTEXT_PROFILE_MASK_ARB)
            profile = a[1];
    }
    constexpr int compatibility = GLX_CONTEXT_COMPATIBILITY_PROFILE_BIT_ARB;
    constexpr int es = GLX_CONTEXT_ES2_PROFILE_BIT_EXT;
    bool asPicture = false;
    if (!isCarried({profile & es ? "OpenGL ES" : "OpenGL", major, minor,
                    profile && !(profile & (compatibility | es))},
                   asPicture)) {
        const int impossible[] = {GLX_CONTEXT_MAJOR_VERSION_ARB, 99, None};
        return native(dpy, config, shared, direct, impossible);
    }
    return keepContext(dpy, native(dpy, config, shared, direct, attributes), shared, config,
                       asPicture);
}

void destroyContext(Display* dpy, GLXContext context)
{
    removeContext(context);
    callNative<Op::glXDestroyContext>(dpy, context);
}

// ---- Make-current and swap ---------------------------------------------------------------------

template <class MakeCurrent>
int makeCurrent(GLXDrawable draw, GLXContext context, MakeCurrent native)
{
    const Window window = context ? windowOf(draw) : 0;
    leaveContext(context, window);
    const int result = native();
    if (result)
        contextIsCurrent(context, window);
    return result;
}

int glxMakeCurrent(Display* dpy, GLXDrawable draw, GLXContext context)
{
    return makeCurrent(draw, context,
                       [=] { return callNative<Op::glXMakeCurrent>(dpy, draw, context); });
}

template <Op op>
int makeContextCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    return makeCurrent(draw, context, [=] { return callNative<op>(dpy, draw, read, context); });
}

void swapBuffers(Display* dpy, GLXDrawable drawable)
{
    if (hasContext() && windowOf(drawable) == currentContext().window)
        endFrame(true);
    callNative<Op::glXSwapBuffers>(dpy, drawable);
    holdAfterLastFrame();
}

std::int64_t swapBuffersMsc(Display* dpy, GLXDrawable drawable, std::int64_t target,
                            std::int64_t divisor, std::int64_t remainder)
{
    static auto* const native =
        reinterpret_cast<PFNGLXSWAPBUFFERSMSCOMLPROC>(nativeByName("glXSwapBuffersMscOML"));
    if (hasContext() && windowOf(drawable) == currentContext().window)
        endFrame(true);
    const std::int64_t result = native(dpy, drawable, target, divisor, remainder);
    holdAfterLastFrame();
    return result;
}

// ---- Drawables ---------------------------------------------------------------------------------

GLXWindow createWindow(Display* dpy, GLXFBConfig config, Window window, const int* attributes)
{
    const GLXWindow result = callNative<Op::glXCreateWindow>(dpy, config, window, attributes);
    setDrawable(result, window);
    return result;
}

void destroyWindow(Display* dpy, GLXWindow window)
{
    dropDrawable(window);
    callNative<Op::glXDestroyWindow>(dpy, window);
}

// Pbuffers and pixmaps: made and destroyed as by the node's library, and no windows.
template <Op op, class R, class... P>
R createOther(P... p)
{
    static auto* const native = reinterpret_cast<R (*)(P...)>(nativeTable[indexOf(op)]);
    const R result = native(p...);
    setDrawable(result, 0);
    return result;
}

template <Op op>
void destroyOther(Display* dpy, GLXDrawable drawable)
{
    static auto* const native =
        reinterpret_cast<void (*)(Display*, GLXDrawable)>(nativeTable[indexOf(op)]);
    dropDrawable(drawable);
    native(dpy, drawable);
}

// ---- What the program is told ------------------------------------------------------------------

const char* queryExtensionsString(Display* dpy, int screen)
{
    return carriedGlxExtensions(callNative<Op::glXQueryExtensionsString>(dpy, screen));
}

const char* getClientString(Display* dpy, int name)
{
    const char* text = callNative<Op::glXGetClientString>(dpy, name);
    return name == GLX_EXTENSIONS ? carriedGlxExtensions(text) : text;
}

const char* queryServerString(Display* dpy, int screen, int name)
{
    const char* text = callNative<Op::glXQueryServerString>(dpy, screen, name);
    return name == GLX_EXTENSIONS ? carriedGlxExtensions(text) : text;
}

NativeEntry getProcAddress(const GLubyte* name)
{
    return entryFor(reinterpret_cast<const char*>(name));
}

} // namespace

void installGlx()
{
    install<Op::glXCreateContext>(createContext);
    install<Op::glXCreateNewContext>(createNewContext);
    install<Op::glXCreateContextWithConfigSGIX>(createContextWithConfig);
    installOther<createContextAttribs>("glXCreateContextAttribsARB");
    install<Op::glXDestroyContext>(destroyContext);
    install<Op::glXMakeCurrent>(glxMakeCurrent);
    install<Op::glXMakeContextCurrent>(makeContextCurrent<Op::glXMakeContextCurrent>);
    install<Op::glXMakeCurrentReadSGI>(makeContextCurrent<Op::glXMakeCurrentReadSGI>);
    install<Op::glXSwapBuffers>(swapBuffers);
    installOther<swapBuffersMsc>("glXSwapBuffersMscOML");
    install<Op::glXCreateWindow>(createWindow);
    install<Op::glXDestroyWindow>(destroyWindow);
    install<Op::glXCreatePbuffer>(
        createOther<Op::glXCreatePbuffer, GLXPbuffer, Display*, GLXFBConfig, const int*>);
    install<Op::glXDestroyPbuffer>(destroyOther<Op::glXDestroyPbuffer>);
    install<Op::glXCreatePixmap>(
        createOther<Op::glXCreatePixmap, GLXPixmap, Display*, GLXFBConfig, Pixmap, const int*>);
    install<Op::glXDestroyPixmap>(destroyOther<Op::glXDestroyPixmap>);
    install<Op::glXCreateGLXPixmap>(
        createOther<Op::glXCreateGLXPixmap, GLXPixmap, Display*, XVisualInfo*, Pixmap>);
    install<Op::glXDestroyGLXPixmap>(destroyOther<Op::glXDestroyGLXPixmap>);
    install<Op::glXCreateGLXPbufferSGIX>(
        createOther<Op::glXCreateGLXPbufferSGIX, GLXPbuffer, Display*, GLXFBConfig, unsigned,
                    unsigned, int*>);
    install<Op::glXDestroyGLXPbufferSGIX>(destroyOther<Op::glXDestroyGLXPbufferSGIX>);
    install<Op::glXQueryExtensionsString>(queryExtensionsString);
    install<Op::glXGetClientString>(getClientString);
    install<Op::glXQueryServerString>(queryServerString);
    install<Op::glXGetProcAddress>(getProcAddress);
    install<Op::glXGetProcAddressARB>(getProcAddress);
}
