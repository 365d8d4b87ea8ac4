// Viewport and scissor: the application's box, cut to this tile.
#include "coding/server_overload/currentContext.h"

namespace {

MWRect asRect(GLint x, GLint y, GLsizei width, GLsizei height)
{
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(width),
            static_cast<float>(height)};
}

// The tile's piece of the viewport in the application's device coordinates: a position on the wall
// from -1 to 1 across the viewport's extent.
float deviceCoordinate(float position, float origin, float extent)
{
    return static_cast<float>(2.0 * (position - origin) / extent - 1.0);
}

void setTileProjection(LocalDrawableInfo& ldi, const MWRect& wrect, const MWRect& cwrect)
{
    if (wrect.w == 0 || wrect.h == 0)
        return; // nothing is drawn through it: the scale before holds
    const double l = deviceCoordinate(cwrect.x, wrect.x, wrect.w);
    const double r = deviceCoordinate(cwrect.x + cwrect.w, wrect.x, wrect.w);
    const double b = deviceCoordinate(cwrect.y, wrect.y, wrect.h);
    const double t = deviceCoordinate(cwrect.y + cwrect.h, wrect.y, wrect.h);
    ldi.vsx = static_cast<float>(2.0 / (r - l));
    ldi.vsy = static_cast<float>(2.0 / (t - b));
    ldi.vtx = static_cast<float>((r + l) * 0.5);
    ldi.vty = static_cast<float>((t + b) * 0.5);
}

// The display's rectangle of the wall, and what lies around it.
MWRect withMargin(const MWRect& rect)
{
    const auto margin = static_cast<float>(viewportMargin);
    return {rect.x - margin, rect.y - margin, rect.w + 2 * margin, rect.h + 2 * margin};
}

} // namespace

int viewportMargin = 0;

void _glViewport(GLint x, GLint y, GLsizei width, GLsizei height)
{
    lctxReplaceVP(&currentContext(), x, y, width, height);
    LocalDrawableInfo& ldi = *currDrawableInfo;
    MWRect wrect;
    MWRect cwrect;
    _appRectToLocal(asRect(x, y, width, height), &wrect, &cwrect);
    if (viewportMargin > 0)
        _clipRect(wrect, withMargin(currLocalDisplay->rect), &cwrect);
    if (cwrect.w > 0 && cwrect.h > 0) {
        const MWRect& tile = currLocalDisplay->rect;
        setTileProjection(ldi, wrect, cwrect);
        x = truncate(cwrect.x - tile.x - ldi.lrect.x);
        y = truncate(cwrect.y - tile.y - ldi.lrect.y);
        width = truncate(cwrect.w);
        height = truncate(cwrect.h);
    } else {
        ldi.vsx = ldi.vty = 0;
        width = height = 0;
    }
    callSystem<Op::glViewport>(x, y, width, height);

    // The tile level follows the viewport, whatever matrix mode the application has selected.
    GLint mode = GL_MODELVIEW;
    callSystem<Op::glGetIntegerv>(GL_MATRIX_MODE, &mode);
    callSystem<Op::glMatrixMode>(GL_PROJECTION);
    _popTileTransformation();
    _pushTileTransformation();
    callSystem<Op::glMatrixMode>(static_cast<GLenum>(mode));
}

void _glScissor(GLint x, GLint y, GLsizei width, GLsizei height)
{
    MWRect wrect;
    MWRect cwrect;
    _appRectToLocal(asRect(x, y, width, height), &wrect, &cwrect);
    if (cwrect.w > 0 && cwrect.h > 0) {
        const MWRect& tile = currLocalDisplay->rect;
        x = truncate(cwrect.x - tile.x);
        y = truncate(cwrect.y - tile.y);
        width = truncate(cwrect.w);
        height = truncate(cwrect.h);
    } else
        width = height = 0;
    callSystem<Op::glScissor>(x, y, width, height);
}
