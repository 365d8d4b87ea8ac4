// The per-context stack that remembers the application's own viewport and raster position across
// glPushAttrib and glPopAttrib; the system library only ever sees the tile's.
#include "coding/server_overload/currentContext.h"
#include "coding/server_overload/localDrawing.h"

#include <algorithm>
#include <memory>
#include <new>

void lctxInitAttrStack(LocalContextInfo* lctx)
{
    // OpenGL's initial raster position is (0, 0, 0, 1).
    auto* vptr = new (std::nothrow) _vp{.bits = 0, .vp = {}, .rp = {0, 0, 0, 1}, .next = nullptr};
    require(vptr, "vptr");
    lctx->attrStack = vptr;
}

int* lctxGetTopVP(LocalContextInfo* lctx) { return lctx->attrStack->vp; }

double* lctxGetTopRP(LocalContextInfo* lctx) { return lctx->attrStack->rp; }

void lctxReplaceVP(LocalContextInfo* lctx, int x, int y, int w, int h)
{
    std::ranges::copy(std::initializer_list{x, y, w, h}, lctxGetTopVP(lctx));
}

void lctxReplaceRP(LocalContextInfo* lctx, double x, double y, double z, double w)
{
    std::ranges::copy(std::initializer_list{x, y, z, w}, lctxGetTopRP(lctx));
}

void lctxPushVP(LocalContextInfo* lctx, GLbitfield bits)
{
    auto* vptr = new (std::nothrow) _vp(*lctx->attrStack);
    require(vptr, "vptr");
    vptr->bits = bits;
    vptr->next = lctx->attrStack;
    lctx->attrStack = vptr;
}

void lctxPopVP(LocalContextInfo* lctx)
{
    require(lctx->attrStack, "vptr");
    if (!lctx->attrStack->next)
        return; // a pop without a push: OpenGL reports the underflow and changes nothing
    const std::unique_ptr<_vp> popped(lctx->attrStack);
    _vp* top = lctx->attrStack = popped->next;

    // What the mask does not restore stays in force, as in OpenGL.
    if (popped->bits & GL_VIEWPORT_BIT)
        _glViewport(top->vp[0], top->vp[1], top->vp[2], top->vp[3]);
    else
        std::ranges::copy(popped->vp, top->vp);
    if (popped->bits & GL_CURRENT_BIT)
        _glRasterPos4dv(top->rp);
    else
        std::ranges::copy(popped->rp, top->rp);
}

// True when the system library will refuse a push, which then changes nothing. Every library takes
// 16; only beyond that is it asked. Without this a program that pushes in each frame and never pops
// would take memory for as long as it runs, and its later pops would restore the wrong viewports.
static bool stackIsFull(const LocalContextInfo& lctx)
{
    constexpr int leastDepth = 16;
    int depth = 0;
    for (const _vp* vptr = lctx.attrStack->next; vptr && depth < leastDepth; vptr = vptr->next)
        ++depth;
    if (depth < leastDepth)
        return false;
    const GLint most = systemInteger(GL_MAX_ATTRIB_STACK_DEPTH);
    return most > 0 && systemInteger(GL_ATTRIB_STACK_DEPTH) >= most;
}

void _glPushAttrib(GLbitfield b)
{
    LocalContextInfo& lctx = currentContext();
    if (!stackIsFull(lctx))
        lctxPushVP(&lctx, b);
    callSystem<Op::glPushAttrib>(b);
}

void _glPopAttrib()
{
    // The system's pop comes last: what the application pushed there is what remains.
    lctxPopVP(&currentContext());
    callSystem<Op::glPopAttrib>();
}
