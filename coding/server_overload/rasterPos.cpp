// The raster position. The system library never gets the application's; the server computes where
// it lies in the application's window, and pixels and bitmaps are placed from there (pixels.cpp,
// bitmap.cpp). Every server computes the same position, whatever its tile.
#include "coding/server_overload/rasterPos.h"

void setRasterPosition(double x, double y, double z, double w)
{
    lctxReplaceRP(&currentContext(), x, y, z, w);
    _setTileRP();
}

namespace {

// out = m times v, for a column-major matrix.
void transform(const double (&m)[16], const double* v, double (&out)[4])
{
    for (int i = 0; i < 4; ++i)
        out[i] = m[i] * v[0] + m[4 + i] * v[1] + m[8 + i] * v[2] + m[12 + i] * v[3];
}

} // namespace

void _setTileRP()
{
    LocalContextInfo& lctx = currentContextOnDisplay();
    double modelView[16] = {};
    callSystem<Op::glGetDoublev>(GL_MODELVIEW_MATRIX, modelView);
    double eye[4];
    double clip[4];
    transform(modelView, lctxGetTopRP(&lctx), eye);
    transform(lctx.appProjection, eye, clip);
    if (clip[3] == 0)
        return; // nowhere: the previous position holds

    // Positions outside the view volume are kept too; there is no invalid state.
    if (clip[3] != 1.0) {
        const double q = 1.0 / clip[3];
        for (int i = 0; i < 3; ++i)
            clip[i] *= q;
    }
    const int* vp = lctxGetTopVP(&lctx);
    lctx.tileRP[0] = truncate((clip[0] + 1.0) * vp[2] * 0.5 + vp[0]);
    lctx.tileRP[1] = truncate((clip[1] + 1.0) * vp[3] * 0.5 + vp[1]);
    lctx.tileRP[2] = clip[2];
    lctx.tileRP[3] = 1.0;
}

void _glRasterPos4dv(const GLdouble* v) { rasterPosOverload<Op::glRasterPos4dv>(v); }

void _glPointSize(GLfloat size)
{
    // Before the first drawable there is no scale.
    callSystem<Op::glPointSize>(currDrawableInfo ? currDrawableInfo->psx * size : size);
}
