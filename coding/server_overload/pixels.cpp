// Pixel images: enlarged by the system library's pixel zoom, cut at the display's edge with the
// unpack skips.
#include "coding/server_overload/currentContext.h"
#include "coding/server_overload/localDrawing.h"

#include <utility>

namespace {

// Saves an unpack parameter and adds to it.
GLint addToUnpack(GLenum name, int skipped)
{
    const GLint saved = systemInteger(name);
    callSystem<Op::glPixelStorei>(name, truncate(1.0 * saved + skipped));
    return saved;
}

struct Extents {
    float low, high;
};

// From where to where an image reaches; a negative zoom draws it leftward or downward.
Extents reach(float origin, float size)
{
    Extents extents{origin, origin + size};
    if (!(size > 0))
        std::swap(extents.low, extents.high);
    return extents;
}

bool misses(Extents image, float origin, float size)
{
    return image.low > origin + size || origin > image.high;
}

} // namespace

void _glDrawPixels(GLsizei width, GLsizei height, GLenum format, GLenum type, const GLvoid* pixels)
{
    const LocalContextInfo& lctx = currentContextOnDisplay();
    if (!pixels || width < 1 || height < 1)
        return;
    const LocalDrawableInfo& ldi = *currDrawableInfo;
    const MWRect& rect = currLocalDisplay->rect;
    const GLfloat czx = systemFloat(GL_ZOOM_X);
    const GLfloat czy = systemFloat(GL_ZOOM_Y);

    // The image on the wall.
    const MWRect wrect{
        static_cast<float>(lctx.tileRP[0]) * ldi.psx, static_cast<float>(lctx.tileRP[1]) * ldi.psy,
        ldi.psx * czx * static_cast<float>(width), ldi.psy * czy * static_cast<float>(height)};
    const float sx = wrect.w / static_cast<float>(width);
    const float sy = wrect.h / static_cast<float>(height);
    if (misses(reach(wrect.x, wrect.w), rect.x, rect.w) ||
        misses(reach(wrect.y, wrect.h), rect.y, rect.h))
        return;

    const bool cutLeft = rect.x > wrect.x;
    GLint rowLength = 0;
    GLint skipPixels = 0;
    if (cutLeft) {
        const int skipPix = truncate((rect.x - wrect.x) / sx);
        rowLength = systemInteger(GL_UNPACK_ROW_LENGTH);
        skipPixels = addToUnpack(GL_UNPACK_SKIP_PIXELS, skipPix);
        if (rowLength == 0)
            callSystem<Op::glPixelStorei>(GLenum{GL_UNPACK_ROW_LENGTH}, width);
        width -= skipPix;
    }
    const bool cutBelow = rect.y > wrect.y;
    GLint skipRows = 0;
    if (cutBelow) {
        const int skip = truncate((rect.y - wrect.y) / sy);
        skipRows = addToUnpack(GL_UNPACK_SKIP_ROWS, skip);
        height -= skip;
    }

    callSystem<Op::glPixelZoom>(sx, sy);
    const ReplacedState replaced = selectLocalPixels(ldi.lrect);
    // The window's corner is a valid raster position, and one moved from there by a bitmap stays
    // valid even outside the window.
    callSystem<Op::glRasterPos4d>(0.0, 0.0, 1.0, 1.0);
    callSystem<Op::glBitmap>(0, 0, 0.0F, 1.0F, rect.x <= wrect.x ? wrect.x - rect.x : 0.0F,
                             rect.y <= wrect.y ? wrect.y - rect.y : 0.0F, nullptr);
    callSystem<Op::glDrawPixels>(width, height, format, type, pixels);
    restoreApplicationPixels(replaced);

    if (cutLeft) {
        callSystem<Op::glPixelStorei>(GLenum{GL_UNPACK_SKIP_PIXELS}, skipPixels);
        callSystem<Op::glPixelStorei>(GLenum{GL_UNPACK_ROW_LENGTH}, rowLength);
    }
    if (cutBelow)
        callSystem<Op::glPixelStorei>(GLenum{GL_UNPACK_SKIP_ROWS}, skipRows);
    callSystem<Op::glPixelZoom>(czx, czy);
}
