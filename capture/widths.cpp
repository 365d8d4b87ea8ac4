// What OpenGL measures in the window's pixels and servers pass on as it is: the widths of lines,
// the lengths of their patterns, the bounds of points. The wall's pixels are others; here it is
// known how many of them are one of the program's.
#include "capture/widths.h"
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/stream.h"

#include <algorithm>
#include <cmath>

namespace {

// Wall pixels along one of the program's; 1 while there is no wall, or no window.
double wallScale()
{
    const Placement area = placementOf(currentWindowSize());
    const auto& options = captureOptions;
    if (options.wallWidth <= 0 || options.wallHeight <= 0 || area.width <= 0 || area.height <= 0)
        return 1;
    const double across = 1.0 * options.wallWidth / area.width;
    const double down = 1.0 * options.wallHeight / area.height;
    return std::sqrt(across * down); // they differ where the picture is stretched
}

GLfloat onWall(GLfloat pixels) { return static_cast<GLfloat>(pixels * wallScale()); }

GLint repeatedOnWall(GLint factor)
{
    constexpr long most = 256; // that OpenGL takes
    return static_cast<GLint>(std::clamp(std::lround(factor * wallScale()), 1L, most));
}

void lineWidth(GLfloat width)
{
    record<Op::glLineWidth, Effect::state>(onWall(width));
    callNative<Op::glLineWidth>(width);
}

void lineStipple(GLint factor, GLushort pattern)
{
    record<Op::glLineStipple, Effect::state>(repeatedOnWall(factor), pattern);
    callNative<Op::glLineStipple>(factor, pattern);
}

template <class T>
void recordPointParameters(GLenum name, const T* values)
{
    if (name == GL_POINT_DISTANCE_ATTENUATION) {
        GLfloat attenuation[3];
        std::copy_n(values, 3, attenuation);
        record<Op::glPointParameterfv, Effect::state>(name, attenuation);
    } else if (name == GL_POINT_SIZE_MIN || name == GL_POINT_SIZE_MAX ||
               name == GL_POINT_FADE_THRESHOLD_SIZE)
        record<Op::glPointParameterf, Effect::state>(name, onWall(static_cast<GLfloat>(*values)));
}

template <Op op, class T>
void pointParameter(GLenum name, T value)
{
    if (name != GL_POINT_DISTANCE_ATTENUATION)
        recordPointParameters(name, &value);
    callNative<op>(name, value);
}

template <Op op, class T>
void pointParameterVector(GLenum name, const T* values)
{
    recordPointParameters(name, values);
    callNative<op>(name, values);
}

} // namespace

void recordWidths()
{
    if (captureOptions.wallWidth <= 0)
        return;
    GLfloat size = 1, width = 1;
    GLint factor = 1, pattern = 0xffff;
    callNative<Op::glGetFloatv>(GL_POINT_SIZE, &size);
    callNative<Op::glGetFloatv>(GL_LINE_WIDTH, &width);
    callNative<Op::glGetIntegerv>(GL_LINE_STIPPLE_REPEAT, &factor);
    callNative<Op::glGetIntegerv>(GL_LINE_STIPPLE_PATTERN, &pattern);
    constexpr Effect state = Effect::state;
    record<Op::glPointSize, state>(size); // servers enlarge this one themselves
    record<Op::glLineWidth, state>(onWall(width));
    record<Op::glLineStipple, state>(repeatedOnWall(factor), static_cast<GLushort>(pattern));
}

void installWidths()
{
    install("glLineWidth", lineWidth);
    install("glLineStipple", lineStipple);
    install("glPointParameterf", pointParameter<Op::glPointParameterf, GLfloat>);
    install("glPointParameterfARB", pointParameter<Op::glPointParameterfARB, GLfloat>);
    install("glPointParameterfEXT", pointParameter<Op::glPointParameterfEXT, GLfloat>);
    install("glPointParameteri", pointParameter<Op::glPointParameteri, GLint>);
    install("glPointParameterfv", pointParameterVector<Op::glPointParameterfv, GLfloat>);
    install("glPointParameterfvARB", pointParameterVector<Op::glPointParameterfvARB, GLfloat>);
    install("glPointParameterfvEXT", pointParameterVector<Op::glPointParameterfvEXT, GLfloat>);
    install("glPointParameteriv", pointParameterVector<Op::glPointParameteriv, GLint>);
}
