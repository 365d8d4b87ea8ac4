// An overload library: what OpenGL measures in the window's own pixels, made to meet at the seams
// and to grow with the picture.
//
// - The viewport reaches beyond the tile, so that lines and points whose ends or centres lie next
//   door are drawn as on one large display, and a line's pattern starts where the line does.
// - Widths of lines, lengths of their patterns and bounds of points are multiplied by the wall's
//   pixel scale (glPointSize by the server itself).
// - Polygon patterns are placed as on one large display, and enlarged as far as the pattern's 32
//   pixels allow.
//
// What the application set before a context's first window, or before the scale changed, is
// multiplied when the context is made current.
#include "coding/serverWindows.h"
#include "overload/library.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

namespace {

// Scales that the widths of the local contexts have been multiplied by.
std::map<GLXContext, float> scales;

// Wall pixels along one of the application's; the two axes differ where the picture is stretched.
float scaleOf(const LocalDrawableInfo& ldi) { return std::sqrt(ldi.psx * ldi.psy); }

float currentScale()
{
    const float scale = currDrawableInfo ? scaleOf(*currDrawableInfo) : 1;
    return scale > 0 && std::isfinite(scale) ? scale : 1;
}

GLint repeated(GLint factor, float scale)
{
    constexpr long most = 256; // that OpenGL takes
    return static_cast<GLint>(
        std::clamp(std::lround(static_cast<float>(factor) * scale), 1L, most));
}

// ---- Widths ------------------------------------------------------------------------------------

void lineWidth(GLfloat width) { below<Op::glLineWidth>(width * currentScale()); }

void lineStipple(GLint factor, GLushort pattern)
{
    below<Op::glLineStipple>(repeated(factor, currentScale()), pattern);
}

bool isPointSize(GLenum name)
{
    return name == GL_POINT_SIZE_MIN || name == GL_POINT_SIZE_MAX ||
           name == GL_POINT_FADE_THRESHOLD_SIZE;
}

template <Op op, class T>
void pointParameter(GLenum name, T value)
{
    below<op>(name, isPointSize(name) ? static_cast<T>(static_cast<float>(value) * currentScale())
                                      : value);
}

template <Op op, class T>
void pointParameterVector(GLenum name, const T* values)
{
    if (!isPointSize(name))
        return below<op>(name, values);
    const auto size = static_cast<T>(static_cast<float>(load<T>(values)) * currentScale());
    below<op>(name, &size);
}

void multiplyWidths(float by)
{
    GLfloat width = 1;
    GLfloat size = 1;
    GLint factor = 1;
    GLint pattern = 0xFFFF;
    callSystem<Op::glGetFloatv>(GL_LINE_WIDTH, &width);
    callSystem<Op::glGetFloatv>(GL_POINT_SIZE, &size);
    callSystem<Op::glGetIntegerv>(GL_LINE_STIPPLE_REPEAT, &factor);
    callSystem<Op::glGetIntegerv>(GL_LINE_STIPPLE_PATTERN, &pattern);
    callSystem<Op::glLineWidth>(width * by);
    callSystem<Op::glPointSize>(size * by);
    callSystem<Op::glLineStipple>(repeated(factor, by), static_cast<GLushort>(pattern));
}

// ---- Polygon patterns --------------------------------------------------------------------------

constexpr int patternSize = 32;                         // pixels and rows
using Pattern = std::array<std::uint32_t, patternSize>; // rows upward, the leftmost pixel on top

/// The layout of pixels in the application's memory, which OpenGL has to read them by.
struct Unpacking {
    static constexpr GLenum names[] = {GL_UNPACK_LSB_FIRST, GL_UNPACK_ROW_LENGTH,
                                       GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS,
                                       GL_UNPACK_ALIGNMENT};
    GLint lsbFirst, rowLength, skipRows, skipPixels, alignment;
};

Unpacking currentUnpacking()
{
    GLint values[std::size(Unpacking::names)] = {};
    for (std::size_t i = 0; i < std::size(values); ++i)
        callSystem<Op::glGetIntegerv>(Unpacking::names[i], &values[i]);
    return {values[0], values[1], values[2], values[3], values[4]};
}

void setUnpacking(const Unpacking& to)
{
    const GLint values[] = {to.lsbFirst, to.rowLength, to.skipRows, to.skipPixels, to.alignment};
    for (std::size_t i = 0; i < std::size(values); ++i)
        callSystem<Op::glPixelStorei>(Unpacking::names[i], values[i]);
}

Pattern readPattern(const GLubyte* mask, const Unpacking& from)
{
    const int pixels = from.rowLength > 0 ? from.rowLength : patternSize;
    const int unit = 8 * from.alignment;
    const int rowBytes = (pixels + unit - 1) / unit * from.alignment;
    Pattern pattern{};
    for (int row = 0; row < patternSize; ++row)
        for (int column = 0; column < patternSize; ++column) {
            const int bit = from.skipPixels + column;
            const GLubyte byte = mask[(from.skipRows + row) * rowBytes + bit / 8];
            const int place = from.lsbFirst ? bit % 8 : 7 - bit % 8;
            pattern[row] = pattern[row] << 1 | (byte >> place & 1U);
        }
    return pattern;
}

bool pixelOf(const Pattern& pattern, int x, int y)
{
    return pattern[y & (patternSize - 1)] >> (patternSize - 1 - (x & (patternSize - 1))) & 1U;
}

// After how many pixels or rows a pattern repeats: a power of two.
int periodAcross(const Pattern& pattern)
{
    int period = patternSize;
    const auto repeats = [&pattern](int by) {
        return std::ranges::all_of(pattern,
                                   [by](std::uint32_t row) { return std::rotl(row, by) == row; });
    };
    while (period > 1 && repeats(period / 2))
        period /= 2;
    return period;
}

int periodUpward(const Pattern& pattern)
{
    int period = patternSize;
    const auto repeats = [&pattern](int by) {
        for (int row = 0; row < patternSize; ++row)
            if (pattern[row] != pattern[(row + by) % patternSize])
                return false;
        return true;
    };
    while (period > 1 && repeats(period / 2))
        period /= 2;
    return period;
}

// By how much a pattern is enlarged: the power of two nearest to the scale, as far as it fits.
int enlargement(float scale, int period)
{
    int by = 1;
    while (static_cast<float>(by) * std::sqrt(2.0F) < scale && 2 * by * period <= patternSize)
        by *= 2;
    return by;
}

void polygonStipple(const GLubyte* mask)
{
    if (!currDrawableInfo || !currLocalDisplay)
        return below<Op::glPolygonStipple>(mask);
    const Unpacking unpacking = currentUnpacking();
    const Pattern pattern = readPattern(mask, unpacking);
    const LocalDrawableInfo& ldi = *currDrawableInfo;
    const MWRect& rect = currLocalDisplay->rect;
    const int left = static_cast<int>(rect.x + ldi.lrect.x);
    const int bottom = static_cast<int>(rect.y + ldi.lrect.y);
    const int across = enlargement(ldi.psx, periodAcross(pattern));
    const int upward = enlargement(ldi.psy, periodUpward(pattern));
    GLubyte placed[patternSize * patternSize / 8] = {};
    for (int y = 0; y < patternSize; ++y)
        for (int x = 0; x < patternSize; ++x)
            if (pixelOf(pattern, (x + left) / across, (y + bottom) / upward))
                placed[(y * patternSize + x) / 8] |= static_cast<GLubyte>(0x80 >> x % 8);
    setUnpacking({.lsbFirst = 0, .rowLength = 0, .skipRows = 0, .skipPixels = 0, .alignment = 4});
    below<Op::glPolygonStipple>(placed);
    setUnpacking(unpacking);
}

// ---- Contexts and windows ----------------------------------------------------------------------

// As far as the library's viewports reach. Known with the first context only, and then for all.
void widenViewport()
{
    GLint most[2] = {};
    callSystem<Op::glGetIntegerv>(GL_MAX_VIEWPORT_DIMS, most);
    const MWRect& rect = currLocalDisplay->rect;
    viewportMargin =
        std::max(0, (std::min(most[0], most[1]) - static_cast<int>(std::max(rect.w, rect.h))) / 2);
    const int* vp = currDrawableInfo->lctx->attrStack->vp;
    entryOf<Op::glViewport>(glOpTable)(vp[0], vp[1], vp[2], vp[3]);
}

void followWindow()
{
    if (viewportMargin == 0)
        widenViewport();
    float& scale = scales.try_emplace(currDrawableInfo->lctx->localCtx, 1.0F).first->second;
    const float wanted = currentScale();
    if (scale == wanted)
        return;
    multiplyWidths(wanted / scale);
    scale = wanted;
}

int makeCurrent(Display* dpy, GLXDrawable drawable, GLXContext ctx)
{
    const int result = below<Op::glXMakeCurrent>(dpy, drawable, ctx);
    if (result && drawable)
        followWindow();
    return result;
}

int makeContextCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext ctx)
{
    const int result = below<Op::glXMakeContextCurrent>(dpy, draw, read, ctx);
    if (result && draw)
        followWindow();
    return result;
}

// A new context may have the address of one that was destroyed.
GLXContext newContext(GLXContext created, GLXContext shareList)
{
    if (!shareList)
        scales.erase(created);
    return created;
}

GLXContext createContext(Display* dpy, XVisualInfo* visual, GLXContext shareList, int direct)
{
    return newContext(below<Op::glXCreateContext>(dpy, visual, shareList, direct), shareList);
}

GLXContext createNewContext(Display* dpy, GLXFBConfig config, int type, GLXContext shareList,
                            int direct)
{
    return newContext(below<Op::glXCreateNewContext>(dpy, config, type, shareList, direct),
                      shareList);
}

} // namespace

extern "C" void Overload(glOp* table)
{
    replace<Op::glXCreateContext>(table, createContext);
    replace<Op::glXCreateNewContext>(table, createNewContext);
    replace<Op::glXMakeCurrent>(table, makeCurrent);
    replace<Op::glXMakeContextCurrent>(table, makeContextCurrent);
    replace<Op::glLineWidth>(table, lineWidth);
    replace<Op::glLineStipple>(table, lineStipple);
    replace<Op::glPolygonStipple>(table, polygonStipple);
    replace<Op::glPointParameterf>(table, pointParameter<Op::glPointParameterf, GLfloat>);
    replace<Op::glPointParameterfARB>(table, pointParameter<Op::glPointParameterfARB, GLfloat>);
    replace<Op::glPointParameterfEXT>(table, pointParameter<Op::glPointParameterfEXT, GLfloat>);
    replace<Op::glPointParameteri>(table, pointParameter<Op::glPointParameteri, GLint>);
    replace<Op::glPointParameterfv>(table, pointParameterVector<Op::glPointParameterfv, GLfloat>);
    replace<Op::glPointParameterfvARB>(table,
                                       pointParameterVector<Op::glPointParameterfvARB, GLfloat>);
    replace<Op::glPointParameterfvEXT>(table,
                                       pointParameterVector<Op::glPointParameterfvEXT, GLfloat>);
    replace<Op::glPointParameteriv>(table, pointParameterVector<Op::glPointParameteriv, GLint>);
}
