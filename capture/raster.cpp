#include "capture/raster.h"
#include "capture/entries.h"

#include <algorithm>
#include <cmath>

namespace {

void getDouble(GLenum name, GLdouble* values) { callNative<Op::glGetDoublev>(name, values); }

// Without regard to matrices: so many pixels from the window's lower left corner.
void recordWindowPos(double x, double y)
{
    GLint viewport[4] = {};
    GLint mode = GL_MODELVIEW;
    callNative<Op::glGetIntegerv>(GL_VIEWPORT, viewport);
    callNative<Op::glGetIntegerv>(GL_MATRIX_MODE, &mode);
    constexpr Effect state = Effect::state;
    record<Op::glMatrixMode, state>(GLenum{GL_PROJECTION});
    record<Op::glPushMatrix, state>();
    record<Op::glLoadIdentity, state>();
    record<Op::glOrtho, state>(double(viewport[0]), 1.0 * viewport[0] + viewport[2],
                               double(viewport[1]), 1.0 * viewport[1] + viewport[3], -1.0, 1.0);
    record<Op::glMatrixMode, state>(GLenum{GL_MODELVIEW});
    record<Op::glPushMatrix, state>();
    record<Op::glLoadIdentity, state>();
    record<Op::glRasterPos2d, state>(x, y);
    record<Op::glPopMatrix, state>();
    record<Op::glMatrixMode, state>(GLenum{GL_PROJECTION});
    record<Op::glPopMatrix, state>();
    record<Op::glMatrixMode, state>(static_cast<GLenum>(mode));
}

// The pixel at which the library puts what begins at a coordinate: a little less than a whole
// number counts as that.
double pixelOf(double coordinate)
{
    constexpr double nearly = 1e-4;
    return std::floor(coordinate + nearly);
}
constexpr double within = 0.25; // a pixel: truncating leads to it

void transform(const GLdouble (&m)[16], const double (&v)[4], double (&out)[4])
{
    for (int i = 0; i < 4; ++i)
        out[i] = m[i] * v[0] + m[4 + i] * v[1] + m[8 + i] * v[2] + m[12 + i] * v[3];
}

// True when servers come to the library's pixel by themselves.
bool serversAgree(const double (&object)[4], double x, double y)
{
    GLdouble modelView[16], projection[16];
    GLint viewport[4];
    getDouble(GL_MODELVIEW_MATRIX, modelView);
    getDouble(GL_PROJECTION_MATRIX, projection);
    callNative<Op::glGetIntegerv>(GL_VIEWPORT, viewport);
    double eye[4], clip[4];
    transform(modelView, object, eye);
    transform(projection, eye, clip);
    if (clip[3] == 0)
        return false;
    const Placement area = placementOf(currentWindowSize());
    const auto place = [&](int axis, int offset) {
        return std::trunc((clip[axis] / clip[3] + 1) * viewport[axis + 2] * 0.5 + viewport[axis] +
                          offset) -
               offset;
    };
    return place(0, area.dx) == x && place(1, area.dy) == y;
}

/// The raster position as the library has it; false when it is not valid.
bool rasterPosition(GLdouble (&position)[4])
{
    GLint valid = 0;
    callNative<Op::glGetIntegerv>(GL_CURRENT_RASTER_POSITION_VALID, &valid);
    getDouble(GL_CURRENT_RASTER_POSITION, position);
    return valid != 0;
}

bool isDirect() { return isRecorded<Effect::state>() && !currentContext().inList && canAsk(); }

template <Op op, class F = Prototype<op>>
struct RasterPos;
template <Op op, class... P>
struct RasterPos<op, void(P...)> {
    static void call(P... p)
    {
        callNative<op>(p...);
        GLdouble position[4] = {};
        double object[4] = {0, 0, 0, 1};
        if constexpr (Signature<void(P...)>::arrays == 0) {
            int i = 0;
            ((object[i++] = static_cast<double>(p)), ...);
        } else {
            const auto* const v = std::get<0>(std::tuple(p...));
            constexpr int n = 2 + (indexOf(op) - indexOf(Op::glRasterPos2dv)) / 4;
            std::copy_n(v, n, object);
        }
        if (isDirect() && rasterPosition(position)) {
            const double x = pixelOf(position[0]), y = pixelOf(position[1]);
            if (!serversAgree(object, x, y))
                return recordWindowPos(x + within, y + within);
        }
        record<op, Effect::state>(p...);
    }
};

template <Op op, class F = Prototype<op>>
struct WindowPos;
template <Op op, class... P>
struct WindowPos<op, void(P...)> {
    static void call(P... p)
    {
        callNative<op>(p...);
        GLdouble position[4] = {};
        if (isDirect() && rasterPosition(position))
            recordWindowPos(pixelOf(position[0]) + within, pixelOf(position[1]) + within);
        else if constexpr (!std::is_same_v<Layout<op>, Ignored>)
            record<op, Effect::state>(p...);
    }
};

template <template <Op, class> class Entry, int first, int... i>
void installRow(std::integer_sequence<int, i...>)
{
    (install<Op{first + i}>(Entry<Op{first + i}, Prototype<Op{first + i}>>::call), ...);
}

template <template <Op, class> class Entry, Op first, Op last>
void installRow()
{
    installRow<Entry, indexOf(first)>(
        std::make_integer_sequence<int, indexOf(last) - indexOf(first) + 1>{});
}

} // namespace

Latched beginLatched(bool colored)
{
    Latched latched;
    GLdouble position[4] = {};
    latched.valid = rasterPosition(position);
    if (!latched.valid)
        return latched;
    constexpr Effect draws = Effect::draws;
    if (isEnabled(GL_DEPTH_TEST)) {
        latched.depth = true;
        getDouble(GL_DEPTH_RANGE, latched.range);
        record<Op::glDepthRange, draws>(position[2], position[2]);
    }
    if (!colored)
        return latched;
    GLfloat color[4] = {};
    callNative<Op::glGetFloatv>(GL_CURRENT_RASTER_COLOR, color);
    callNative<Op::glGetFloatv>(GL_CURRENT_COLOR, latched.color);
    latched.lit = isEnabled(GL_LIGHTING);
    latched.recolored = latched.lit || !std::equal(color, color + 4, latched.color);
    if (latched.lit)
        record<Op::glDisable, draws>(GLenum{GL_LIGHTING});
    if (latched.recolored)
        record<Op::glColor4fv, draws>(color);
    return latched;
}

void endLatched(const Latched& latched)
{
    constexpr Effect draws = Effect::draws;
    if (latched.recolored)
        record<Op::glColor4fv, draws>(latched.color);
    if (latched.lit)
        record<Op::glEnable, draws>(GLenum{GL_LIGHTING});
    if (latched.depth)
        record<Op::glDepthRange, draws>(latched.range[0], latched.range[1]);
}

void installRaster()
{
    installRow<RasterPos, Op::glRasterPos2d, Op::glRasterPos4sv>();
    installRow<WindowPos, Op::glWindowPos2d, Op::glWindowPos3sv>();
    installRow<WindowPos, Op::glWindowPos2dARB, Op::glWindowPos3svARB>();
    installRow<WindowPos, Op::glWindowPos2dMESA, Op::glWindowPos3svMESA>();
}
