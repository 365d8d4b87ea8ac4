#include "overload/loader.h"
#include "coding/server_overload/system.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

glOp glOpTable[operationCount];
glOp baseOpTable[operationCount];

namespace {

constexpr int mostOverloads = 256;
constexpr std::size_t longestName = 255;

void* openGLHandle;
void* overloadHandles[mostOverloads];
int nOverloadFiles;

void openSystemLibrary()
{
    if (const char* name = std::getenv("SYSTEM_OPENGL_LIB")) {
        openGLHandle = _LoadOpFile(name);
        if (!openGLHandle) {
            std::fprintf(stderr,
                         "could not open OpenGL shared lib indicated by\n"
                         "SYSTEM_OPENGL_LIB environment variable (%s)\n",
                         name);
            std::exit(1);
        }
        return;
    }
    openGLHandle = _LoadOpFile("/usr/lib/libGL.so");
    if (!openGLHandle)
        openGLHandle = _LoadOpFile("/usr/lib/tls/libGL.so");
    if (!openGLHandle) {
        std::fputs("could not open OpenGL shared lib in /usr/lib/libGL.so\n"
                   "or /usr/lib/tls/libGL.so\n",
                   stderr);
        std::exit(1);
    }
}

// Loads the libraries named in the list file, words separated by white space.
void loadOverloads(const char* listFile)
{
    std::ifstream list(listFile);
    if (!list) {
        std::fprintf(stderr, "unable to open overlay list file (%s)\n", listFile);
        std::exit(1);
    }
    nOverloadFiles = 0;
    for (std::string name; list >> name; ++nOverloadFiles) {
        if (name.size() > longestName) {
            std::fprintf(stderr, "a name in overlay list file (%s) is longer than %zu characters\n",
                         listFile, longestName);
            std::exit(1);
        }
        if (nOverloadFiles == mostOverloads) {
            std::fprintf(stderr, "overlay list file (%s) names more than %d libraries\n", listFile,
                         mostOverloads);
            std::exit(1);
        }
        overloadHandles[nOverloadFiles] = _LoadOverlayFile(name.c_str(), glOpTable);
        if (!overloadHandles[nOverloadFiles])
            std::exit(1);
    }
    std::fprintf(stderr, "Overloads loaded from <%s>\n", listFile);
    std::fflush(stderr);
}

} // namespace

void LoadOps()
{
    openSystemLibrary();
    std::ranges::copy(glOpTable, baseOpTable);
    Overload(glOpTable);
    const char* listFile = std::getenv("MOSA_OVERLOAD_FILE");
    if (listFile && *listFile)
        loadOverloads(listFile);
}

void* _LoadOpFile(const char* s)
{
    // An empty name would open this program itself.
    void* handle = *s ? dlopen(s, RTLD_NOW) : nullptr;
    if (!handle)
        return nullptr;
    for (int op = 0; op < operationCount; ++op) {
        void* entry = dlsym(handle, opNames[op]);
        glOpTable[op] =
            reinterpret_cast<glOp>(entry ? entry : reinterpret_cast<void*>(undefinedOp));
    }
    return handle;
}

void* _LoadOverlayFile(const char* s, glOp* opTbl)
{
    void* handle = dlopen(s, RTLD_NOW);
    if (!handle) {
        std::fprintf(stderr, "unable to open overlay file %s\n", s);
        return nullptr;
    }
    void* install = dlsym(handle, "Overload");
    if (!install) {
        std::fprintf(stderr, "unable to access Overlay function in file %s\n", s);
        return nullptr;
    }
    reinterpret_cast<void (*)(glOp*)>(install)(opTbl);
    return handle;
}

void FreeOps()
{
    while (nOverloadFiles > 0)
        dlclose(overloadHandles[--nOverloadFiles]);
    if (openGLHandle)
        dlclose(openGLHandle);
}

// Operations that return something get a zero: the result register of a call through the table is
// never left undefined.
void* undefinedOp()
{
    std::fputs("call made to unresolved OpenGL function\n", stderr);
    return nullptr;
}
