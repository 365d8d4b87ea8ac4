// EGL on X: the same as glx.cpp for contexts and surfaces of EGL.
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/locks.h"
#include "capture/strings.h"
#include "client/programWindow.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>

#include <dlfcn.h>

namespace {

// The node's own function, found when first called.
#define OWN(function)                                                                              \
    (reinterpret_cast<decltype(&::function)>([] {                                                  \
        static const NativeEntry found = nativeByName(#function);                                  \
        return found;                                                                              \
    }()))

auto& surfaces = *new std::map<EGLSurface, Window>;
// What a display was made of: only an X11 one has a connection that can be used here.
struct NativeDisplay {
    Display* dpy = nullptr;
    bool xcb = false; // its windows are given by numbers of 32 bits
};
auto& displays = *new std::map<EGLDisplay, NativeDisplay>;

Window windowOf(EGLSurface surface)
{
    const std::lock_guard lock(surfacesLock);
    const auto found = surfaces.find(surface);
    return found == surfaces.end() ? 0 : found->second;
}

EGLSurface keepSurface(EGLSurface surface, Window window)
{
    const std::lock_guard lock(surfacesLock);
    if (surface != EGL_NO_SURFACE)
        surfaces[surface] = window;
    return surface;
}

EGLDisplay keepDisplay(EGLDisplay display, NativeDisplay native)
{
    const std::lock_guard lock(surfacesLock);
    if (display != EGL_NO_DISPLAY)
        displays[display] = native;
    return display;
}

NativeDisplay displayOf(EGLDisplay display)
{
    const std::lock_guard lock(surfacesLock);
    const auto found = displays.find(display);
    return found == displays.end() ? NativeDisplay{} : found->second;
}

// Of a display that is given without its platform: other platforms' begin with an address of their
// library's.
bool isX11(void* native)
{
    const char* const platform = std::getenv("EGL_PLATFORM");
    if (!native || (platform && std::strcmp(platform, "x11") != 0))
        return false;
    const void* const first = *static_cast<void**>(native);
    return first == nullptr || (first != dlsym(RTLD_DEFAULT, "wl_display_interface") &&
                                first != dlsym(RTLD_DEFAULT, "gbm_create_device"));
}

NativeDisplay nativeDisplay(EGLenum platform, void* native)
{
    return {platform == EGL_PLATFORM_X11_KHR ? static_cast<Display*>(native) : nullptr,
            platform == EGL_PLATFORM_XCB_EXT};
}

// The platform's window is given by its address.
Window windowAt(EGLDisplay display, const void* window)
{
    if (!window)
        return 0;
    return displayOf(display).xcb ? *static_cast<const std::uint32_t*>(window)
                                  : *static_cast<const Window*>(window);
}

// ---- Displays and surfaces ---------------------------------------------------------------------

EGLDisplay getDisplay(EGLNativeDisplayType native)
{
    return keepDisplay(OWN(eglGetDisplay)(native),
                       NativeDisplay{isX11(native) ? reinterpret_cast<Display*>(native) : nullptr});
}

EGLDisplay getPlatformDisplay(EGLenum platform, void* native, const EGLAttrib* attributes)
{
    const EGLDisplay display = OWN(eglGetPlatformDisplay)(platform, native, attributes);
    return keepDisplay(display, nativeDisplay(platform, native));
}

EGLDisplay getPlatformDisplayEXT(EGLenum platform, void* native, const EGLint* attributes)
{
    static auto* const function =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(nativeByName("eglGetPlatformDisplayEXT"));
    const EGLDisplay display = function(platform, native, attributes);
    return keepDisplay(display, nativeDisplay(platform, native));
}

EGLSurface createWindowSurface(EGLDisplay display, EGLConfig config, EGLNativeWindowType window,
                               const EGLint* attributes)
{
    return keepSurface(OWN(eglCreateWindowSurface)(display, config, window, attributes), window);
}

EGLSurface createPlatformWindowSurface(EGLDisplay display, EGLConfig config, void* window,
                                       const EGLAttrib* attributes)
{
    return keepSurface(OWN(eglCreatePlatformWindowSurface)(display, config, window, attributes),
                       windowAt(display, window));
}

EGLSurface createPlatformWindowSurfaceEXT(EGLDisplay display, EGLConfig config, void* window,
                                          const EGLint* attributes)
{
    static auto* const function = reinterpret_cast<PFNEGLCREATEPLATFORMWINDOWSURFACEEXTPROC>(
        nativeByName("eglCreatePlatformWindowSurfaceEXT"));
    return keepSurface(function(display, config, window, attributes), windowAt(display, window));
}

EGLBoolean destroySurface(EGLDisplay display, EGLSurface surface)
{
    {
        const std::lock_guard lock(surfacesLock);
        surfaces.erase(surface);
    }
    return OWN(eglDestroySurface)(display, surface);
}

// ---- Contexts ----------------------------------------------------------------------------------

std::vector<int> attributesOf(EGLDisplay display, EGLConfig config)
{
    const auto value = [=](EGLint name) {
        EGLint v = 0;
        OWN(eglGetConfigAttrib)(display, config, name, &v);
        return v;
    };
    std::vector<int> list(std::begin(usualAttributes), std::end(usualAttributes));
    for (const auto& [name, glx] : {std::pair{EGL_ALPHA_SIZE, GLX_ALPHA_SIZE},
                                    {EGL_DEPTH_SIZE, GLX_DEPTH_SIZE},
                                    {EGL_STENCIL_SIZE, GLX_STENCIL_SIZE}})
        if (value(name) > 0)
            list.insert(list.end(), {glx, 1});
    endAttributes(list, value(EGL_SAMPLES));
    return list;
}

EGLContext createContext(EGLDisplay display, EGLConfig config, EGLContext shared,
                         const EGLint* attributes)
{
    const bool openGL = OWN(eglQueryAPI)() == EGL_OPENGL_API;
    int major = 1, minor = 0, profile = 0;
    constexpr EGLint known[] = {EGL_CONTEXT_MAJOR_VERSION,
                                EGL_CONTEXT_MINOR_VERSION,
                                EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                EGL_CONTEXT_FLAGS_KHR,
                                EGL_CONTEXT_OPENGL_DEBUG,
                                EGL_CONTEXT_OPENGL_FORWARD_COMPATIBLE,
                                EGL_CONTEXT_OPENGL_ROBUST_ACCESS,
                                EGL_CONTEXT_OPENGL_ROBUST_ACCESS_EXT,
                                EGL_CONTEXT_OPENGL_RESET_NOTIFICATION_STRATEGY,
                                EGL_CONTEXT_OPENGL_RESET_NOTIFICATION_STRATEGY_EXT,
                                EGL_CONTEXT_OPENGL_NO_ERROR_KHR,
                                EGL_CONTEXT_PRIORITY_LEVEL_IMG,
                                EGL_CONTEXT_RELEASE_BEHAVIOR_KHR,
                                EGL_PROTECTED_CONTENT_EXT};
    for (const EGLint* a = attributes; a && isKnownAttribute(*a, known); a += 2) {
        if (a[0] == EGL_CONTEXT_MAJOR_VERSION)
            major = a[1];
        else if (a[0] == EGL_CONTEXT_MINOR_VERSION)
            minor = a[1];
        else if (a[0] == EGL_CONTEXT_OPENGL_PROFILE_MASK)
            profile = a[1];
    }
    // The default profile only counts from OpenGL 3.2 on.
    const bool core =
        openGL && major >= 3 && !(profile & EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT);
    bool asPicture = false;
    if (!isCarried({openGL ? "OpenGL" : "OpenGL ES", major, minor, core}, asPicture)) {
        const EGLint impossible[] = {EGL_CONTEXT_MAJOR_VERSION, 99, EGL_NONE};
        return OWN(eglCreateContext)(display, config, shared, impossible);
    }
    const EGLContext context = OWN(eglCreateContext)(display, config, shared, attributes);
    if (context != EGL_NO_CONTEXT) {
        EGLint visual = 0;
        OWN(eglGetConfigAttrib)(display, config, EGL_NATIVE_VISUAL_ID, &visual);
        addContext({context, shared, displayOf(display).dpy, static_cast<unsigned long>(visual),
                    attributesOf(display, config), true, asPicture});
    }
    return context;
}

EGLBoolean destroyContext(EGLDisplay display, EGLContext context)
{
    removeContext(context);
    return OWN(eglDestroyContext)(display, context);
}

EGLBoolean makeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context)
{
    const Window window = windowOf(draw);
    leaveContext(context, window);
    const EGLBoolean result = OWN(eglMakeCurrent)(display, draw, read, context);
    if (result)
        contextIsCurrent(context, window);
    return result;
}

EGLBoolean releaseThread()
{
    leaveContext(nullptr, 0);
    const EGLBoolean result = OWN(eglReleaseThread)();
    contextIsCurrent(nullptr, 0);
    return result;
}

EGLBoolean swapBuffers(EGLDisplay display, EGLSurface surface)
{
    if (hasContext() && windowOf(surface) == currentContext().window)
        endFrame(true);
    const EGLBoolean result = OWN(eglSwapBuffers)(display, surface);
    holdAfterLastFrame();
    return result;
}

template <int extension>
EGLBoolean swapBuffersWithDamage(EGLDisplay display, EGLSurface surface, const EGLint* rectangles,
                                 EGLint n)
{
    static auto* const native = reinterpret_cast<PFNEGLSWAPBUFFERSWITHDAMAGEKHRPROC>(
        nativeByName(extension ? "eglSwapBuffersWithDamageEXT" : "eglSwapBuffersWithDamageKHR"));
    if (hasContext() && windowOf(surface) == currentContext().window)
        endFrame(true);
    const EGLBoolean result = native(display, surface, rectangles, n);
    holdAfterLastFrame();
    return result;
}

NativeEntry getProcAddress(const char* name) { return entryFor(name); }

} // namespace

void installEgl()
{
    installOther<getDisplay>("eglGetDisplay");
    installOther<getPlatformDisplay>("eglGetPlatformDisplay");
    installOther<getPlatformDisplayEXT>("eglGetPlatformDisplayEXT");
    installOther<createWindowSurface>("eglCreateWindowSurface");
    installOther<createPlatformWindowSurface>("eglCreatePlatformWindowSurface");
    installOther<createPlatformWindowSurfaceEXT>("eglCreatePlatformWindowSurfaceEXT");
    installOther<destroySurface>("eglDestroySurface");
    installOther<createContext>("eglCreateContext");
    installOther<destroyContext>("eglDestroyContext");
    installOther<makeCurrent>("eglMakeCurrent");
    installOther<releaseThread>("eglReleaseThread");
    installOther<swapBuffers>("eglSwapBuffers");
    installOther<swapBuffersWithDamage<0>>("eglSwapBuffersWithDamageKHR");
    installOther<swapBuffersWithDamage<1>>("eglSwapBuffersWithDamageEXT");
    installOther<getProcAddress>("eglGetProcAddress");
}
