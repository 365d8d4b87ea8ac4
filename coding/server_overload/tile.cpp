// Rectangles of the wall and the tile transform.
//
// Four coordinate spaces, all in pixels with y upward: the application's window; the wall (times
// the pixel scale psx, psy); the display (less the origin of its rectangle of the wall); the local
// window (less the origin of lrect). A tile shows the piece [l, r] x [b, t] of the viewport's
// device coordinates; a level on top of the projection stack maps that piece onto the whole tile
// viewport.
#include "coding/invariant.h"
#include "coding/server_overload/currentContext.h"

#include <cmath>

void _scaleRect(MWRect in, float sx, float sy, MWRect* out)
{
    require(out, "out");
    *out = {sx * in.x, sy * in.y, sx * in.w, sy * in.h};
}

void _translateRect(MWRect in, float tx, float ty, MWRect* out)
{
    require(out, "out");
    *out = {in.x + tx, in.y + ty, in.w, in.h};
}

namespace {

// An edge kept within [low, high].
int clampEdge(int edge, float low, float high)
{
    const auto value = static_cast<float>(edge);
    return value < low ? truncate(low) : value > high ? truncate(high) : edge;
}

} // namespace

void _clipRect(MWRect in, MWRect clip, MWRect* out)
{
    require(out, "out");
    int l = truncate(in.x);
    int r = truncate(static_cast<float>(l) + in.w);
    int b = truncate(in.y);
    int t = truncate(static_cast<float>(b) + in.h);
    l = clampEdge(l, clip.x, clip.x + clip.w);
    r = clampEdge(r, clip.x, clip.x + clip.w);
    b = clampEdge(b, clip.y, clip.y + clip.h);
    t = clampEdge(t, clip.y, clip.y + clip.h);
    const auto w = static_cast<float>(static_cast<double>(r) - l);
    const auto h = static_cast<float>(static_cast<double>(t) - b);
    // Only emptiness is replaced; a negative input size gives a negative size.
    if (w == 0 || h == 0)
        *out = {-1, -1, 1, 1};
    else
        *out = {static_cast<float>(l), static_cast<float>(b), w, h};
}

void _appRectToLocal(MWRect arect, MWRect* wrect, MWRect* cwrect)
{
    require(currDrawableInfo, "currDrawableInfo");
    require(currLocalDisplay, "currLocalDisplay");
    require(wrect, "wrect");
    require(cwrect, "cwrect");
    _scaleRect(arect, currDrawableInfo->psx, currDrawableInfo->psy, wrect);
    _clipRect(*wrect, currLocalDisplay->rect, cwrect);
}

void _setTileTransform(LocalDrawableInfo* ldi)
{
    require(currLocalDisplay, "currLocalDisplay");
    if (ldi->root) { // lies inside another recorded window
        ldi->psx = ldi->psy = 0;
        return;
    }
    ldi->arect.x = ldi->arect.y = 0;

    const double W = currAppWidth;
    const double H = currAppHeight;
    const double VW = currLocalDisplay->vWidth;
    const double VH = currLocalDisplay->vHeight;
    double plw = VW; // the application's window on the wall
    double plh = VH;
    if (keep_aspect_ratio) {
        const double aspect = H / W;
        if (aspect * VW > VH)
            plw = VH / aspect;
        else
            plh = aspect * VW;
    }
    const auto psx = static_cast<float>(plw / W);
    const auto psy = static_cast<float>(plh / H);
    // Without an application size there is no scale yet, and the previous one holds.
    if (!std::isfinite(psx) || !std::isfinite(psy))
        return;
    ldi->psx = psx;
    ldi->psy = psy;
}

void _pushTileTransformation()
{
    if (!currDrawableInfo)
        return;
    LocalContextInfo& lctx = currentContext();
    const LocalDrawableInfo& ldi = *currDrawableInfo;
    callSystem<Op::glPushMatrix>();
    callSystem<Op::glGetDoublev>(GL_PROJECTION_MATRIX, lctx.appProjection);
    callSystem<Op::glLoadIdentity>();
    callSystem<Op::glScalef>(ldi.vsx, ldi.vsy, 1.0F);
    callSystem<Op::glTranslatef>(-ldi.vtx, -ldi.vty, 0.0F);
    callSystem<Op::glMultMatrixd>(lctx.appProjection);
}

void _popTileTransformation()
{
    if (currDrawableInfo)
        callSystem<Op::glPopMatrix>();
}
