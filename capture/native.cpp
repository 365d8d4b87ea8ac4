#include "capture/native.h"
#include "capture/reasons.h"
#include "client/captureVariables.h"

#include <cstdlib>
#include <cstring>
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
Library glx{captureVariables::glx, "libGLX.so.0"};
Library openGL{captureVariables::openGL, "libOpenGL.so.0"};
Library egl{captureVariables::egl, "libEGL.so.1"};
Library* const libraries[] = {&openGL, &glx, &egl};

// By its path, for its name leads to this library.
void open(Library& library, int flags)
{
    const char* given = std::getenv(library.variable);
    const std::string path = given ? given : std::string(MOSA_SYSTEM_LIBRARIES) + library.file;
    library.handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL | flags);
}

// A dispatching OpenGL calls its vendor's by tables. One of one piece may call its own functions by
// their names, which lead here: then its references have to stay within itself. They do not where
// they need not, for it would mix its allocator with the program's own.
[[maybe_unused]] bool isDispatching()
{
    return !glx.handle || dlsym(glx.handle, "__glXGLLoadGLXFunction");
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
        open(*library, 0);
#ifndef __SANITIZE_ADDRESS__ // which cannot bear it
    if (!isDispatching()) {
        tell(Reason::onePiece);
        for (Library* library : libraries) {
            if (library->handle)
                dlclose(library->handle);
            open(*library, RTLD_DEEPBIND);
        }
    }
#endif
    if (!openGL.handle && !glx.handle) {
        const char* const why = dlerror();
        tell(Reason::noLibraries, why ? why : "");
        return;
    }
    for (int op = 0; op < operationCount; ++op)
        nativeTable[op] = exported(names[op]);
}

NativeEntry nativeByName(const char* name)
{
    if (NativeEntry entry = exported(name))
        return entry;
    // Each knows its own names; of another's a look-up may make up an entry that leads nowhere.
    using LookUp = NativeEntry (*)(const char*);
    const bool isEgl = std::strncmp(name, "egl", 3) == 0;
    const bool isGlx = std::strncmp(name, "glX", 3) == 0;
    for (const char* lookUp :
         {isEgl ? "" : "glXGetProcAddressARB", isGlx ? "" : "eglGetProcAddress"})
        if (auto* ask = reinterpret_cast<LookUp>(exported(lookUp)))
            if (NativeEntry entry = ask(name))
                return entry;
    return nullptr;
}

GLint stateOf(GLenum name, GLint otherwise)
{
    GLint value = otherwise;
    callNative<Op::glGetIntegerv>(name, &value);
    return value;
}
