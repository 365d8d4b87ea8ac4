// Visuals and framebuffer configurations. The decoder has written the application's handle into the
// first free record; committing the record is what counts.
#include "coding/displayConfig.h"
#include "coding/invariant.h"
#include "coding/server_overload/overloads.h"

#include <cstdio>
#include <cstdlib>

namespace {

struct AttributeName {
    int token;
    const char* name;
    bool hasValue;
};

constexpr AttributeName attributeNames[] = {
    {GLX_USE_GL, "GLX_USE_GL", false},
    {GLX_BUFFER_SIZE, "GLX_BUFFER_SIZE", true},
    {GLX_LEVEL, "GLX_LEVEL", true},
    {GLX_RGBA, "GLX_RGBA", false},
    {GLX_DOUBLEBUFFER, "GLX_DOUBLEBUFFER", false},
    {GLX_STEREO, "GLX_STEREO", false},
    {GLX_AUX_BUFFERS, "GLX_AUX_BUFFERS", true},
    {GLX_RED_SIZE, "GLX_RED_SIZE", true},
    {GLX_GREEN_SIZE, "GLX_GREEN_SIZE", true},
    {GLX_BLUE_SIZE, "GLX_BLUE_SIZE", true},
    {GLX_ALPHA_SIZE, "GLX_ALPHA_SIZE", true},
    {GLX_DEPTH_SIZE, "GLX_DEPTH_SIZE", true},
    {GLX_STENCIL_SIZE, "GLX_STENCIL_SIZE", true},
    {GLX_ACCUM_RED_SIZE, "GLX_ACCUM_RED_SIZE", true},
    {GLX_ACCUM_GREEN_SIZE, "GLX_ACCUM_GREEN_SIZE", true},
    {GLX_ACCUM_BLUE_SIZE, "GLX_ACCUM_BLUE_SIZE", true},
    {GLX_ACCUM_ALPHA_SIZE, "GLX_ACCUM_ALPHA_SIZE", true},
};

void printAttributes(const int* attribList)
{
    while (*attribList) {
        const int token = *attribList++;
        const AttributeName* found = nullptr;
        for (const AttributeName& attribute : attributeNames)
            if (attribute.token == token)
                found = &attribute;
        if (!found)
            std::fputs("INVALID ATTRIBUTE\n", stderr);
        else if (found->hasValue)
            std::fprintf(stderr, "%-25s%d\n", found->name, *attribList++);
        else
            std::fprintf(stderr, "%s\n", found->name);
    }
}

[[noreturn]] void noConformingVisual(const int* attribList)
{
    constexpr char rule[] = "=====================================\n";
    std::fprintf(stderr,
                 "\nMOSA: No conforming visual exists on server!\n"
                 "%s     Visual Attributes Requested     \n%s\n",
                 rule, rule);
    printAttributes(attribList);
    std::fprintf(stderr, "\n%sMOSA: Goodbye.\n", rule);
    std::fflush(nullptr);
    std::abort();
}

} // namespace

XVisualInfo* _glXChooseVisual(Display* appDisplay, int /*screen*/, int* attribList)
{
    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    if (!currLocalDisplay)
        return nullptr;
    XVisualInfo* visual =
        callSystem<Op::glXChooseVisual>(currLocalDisplay->dpy, currLocalDisplay->scrn, attribList);
    if (!visual)
        noConformingVisual(attribList);
    LocalVisualTable[nVisualInfos++].localVI = visual;
    require(nVisualInfos < tableSlots, "nVisualInfos < 64");
    return visual;
}

LocalVisualInfo* _getLVI(AppDisplay appDisplay, AppVisual appVisID)
{
    for (int i = 0; i < nVisualInfos; ++i)
        if (AppVisual(LocalVisualTable[i].appVI) == appVisID)
            return &LocalVisualTable[i];

    int attr[256] = {GLX_RGBA,
                     GLX_DOUBLEBUFFER,
                     GLX_RED_SIZE,
                     8,
                     GLX_GREEN_SIZE,
                     8,
                     GLX_BLUE_SIZE,
                     8,
                     GLX_ALPHA_SIZE,
                     8,
                     GLX_DEPTH_SIZE,
                     24,
                     None};
    LocalVisualInfo& chosen = LocalVisualTable[nVisualInfos];
    require(_glXChooseVisual(asParameter<Display*>(appDisplay), 0, attr),
            "_glXChooseVisual(appDisplay, 0, attr)");
    chosen.appVI = asParameter<VisualID>(appVisID);
    return &chosen;
}

GLXFBConfig* _glXChooseFBConfig(Display* appDisplay, int screen, const int* attribList,
                                int* nelements)
{
    currLocalDisplay = GetLocalDisplay(AppDisplay(appDisplay));
    require(currLocalDisplay, "currLocalDisplay");
    GLXFBConfig* list =
        callSystem<Op::glXChooseFBConfig>(currLocalDisplay->dpy, screen, attribList, nelements);
    std::fprintf(stderr, "MOSA: Server FBCONFIG is %p\n", static_cast<void*>(list));
    LocalFBConfigsInfo& record = LocalFBConfigTable[nFBConfigs++];
    record.nlocalFBConfigs = *nelements;
    record.localFBConfig = list;
    require(nFBConfigs < tableSlots, "nFBConfigs < 64");
    return list;
}
