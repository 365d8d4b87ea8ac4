#include "capture/native.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <dlfcn.h>

NativeEntry nativeTable[operationCount];

namespace {

constexpr const char* names[operationCount] = {
#define OPERATION(number, name, ...) #name,
#define BY_HAND OPERATION
#define UNPERFORMED OPERATION
#include "wire/operations.def"
};

// The parts of a dispatching OpenGL. An OpenGL library of one piece needs this library's namesakes
// nowhere, and stands in for the parts that are not there.
struct Library {
    const char* variable; // names its path
    const char* file;
    void* handle = nullptr;
};
Library glx{"MOSA_CAPTURE_GLX", "libGLX.so.0"};
Library openGL{"MOSA_CAPTURE_OPENGL", "libOpenGL.so.0"};
Library egl{"MOSA_CAPTURE_EGL", "libEGL.so.1"};
Library* const libraries[] = {&openGL, &glx, &egl};

// The library's own references stay within itself, which the address sanitizer can't bear.
#ifdef __SANITIZE_ADDRESS__
constexpr int ownReferences = 0;
#else
constexpr int ownReferences = RTLD_DEEPBIND;
#endif

// By its path, for its name leads to this library.
void open(Library& library)
{
    const char* given = std::getenv(library.variable);
    const std::string path = given ? given : std::string(MOSA_SYSTEM_LIBRARIES) + library.file;
    library.handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL | ownReferences);
}

NativeEntry exported(const char* name)
{
    for (const Library* library : libraries)
        if (library->handle)
            if (void* entry = dlsym(library->handle, name))
                return reinterpret_cast<NativeEntry>(entry);
    return nullptr;
}

} // namespace

void openNative()
{
    for (Library* library : libraries)
        open(*library);
    if (!openGL.handle && !glx.handle) {
        std::fprintf(stderr,
                     "MOSA: capture: the OpenGL libraries of this machine are not to be "
                     "found: %s\n",
                     dlerror());
        return;
    }
    for (int op = 0; op < operationCount; ++op)
        nativeTable[op] = exported(names[op]);
}

NativeEntry nativeByName(const char* name)
{
    if (NativeEntry entry = exported(name))
        return entry;
    using LookUp = NativeEntry (*)(const char*);
    for (const char* lookUp : {"glXGetProcAddressARB", "eglGetProcAddress"})
        if (auto* ask = reinterpret_cast<LookUp>(exported(lookUp)))
            if (NativeEntry entry = ask(name))
                return entry;
    return nullptr;
}
