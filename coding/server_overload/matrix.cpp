// Matrix operations. One that changes the projection acts on the application's own matrix: the tile
// level comes off first and is rebuilt afterwards.
#include "coding/server_overload/currentContext.h"

#include <cstdio>
#include <unistd.h>

namespace {

template <Op op, class... Arguments>
void onApplicationMatrix(Arguments... arguments)
{
    const LocalContextInfo& lctx = currentContext();
    const bool projection = lctx.matrixMode == GL_PROJECTION;
    if (projection)
        _popTileTransformation();
    callSystem<op>(arguments...);
    if (projection)
        _pushTileTransformation();
}

void printMatrix(const char* label, const char* name, const char* prefix, GLenum which)
{
    GLfloat m[16] = {};
    callSystem<Op::glGetFloatv>(which, m);
    std::fprintf(stderr, "MOSA: %s ============ %s\n", label, name);
    for (int column = 0; column < 16; column += 4)
        std::fprintf(stderr, "%s%f %f %f %f\n", prefix, m[column], m[column + 1], m[column + 2],
                     m[column + 3]);
}

void showFrame()
{
    callSystem<Op::glXSwapBuffers>(currLocalDisplay->dpy, currDrawableInfo->localDrawable);
    callSystem<Op::glFlush>();
}

} // namespace

void _glMatrixMode(GLenum mode)
{
    LocalContextInfo& lctx = currentContext();
    callSystem<Op::glMatrixMode>(mode);
    lctx.matrixMode = mode;
}

void _glLoadIdentity() { onApplicationMatrix<Op::glLoadIdentity>(); }
void _glLoadMatrixd(const GLdouble* m) { onApplicationMatrix<Op::glLoadMatrixd>(m); }
void _glLoadMatrixf(const GLfloat* m) { onApplicationMatrix<Op::glLoadMatrixf>(m); }
void _glMultMatrixd(const GLdouble* m) { onApplicationMatrix<Op::glMultMatrixd>(m); }
void _glMultMatrixf(const GLfloat* m) { onApplicationMatrix<Op::glMultMatrixf>(m); }
void _glPushMatrix() { onApplicationMatrix<Op::glPushMatrix>(); }
void _glPopMatrix() { onApplicationMatrix<Op::glPopMatrix>(); }

void _glRotated(GLdouble a, GLdouble x, GLdouble y, GLdouble z)
{
    onApplicationMatrix<Op::glRotated>(a, x, y, z);
}

void _glRotatef(GLfloat a, GLfloat x, GLfloat y, GLfloat z)
{
    onApplicationMatrix<Op::glRotatef>(a, x, y, z);
}

void _glScaled(GLdouble x, GLdouble y, GLdouble z) { onApplicationMatrix<Op::glScaled>(x, y, z); }

void _glScalef(GLfloat x, GLfloat y, GLfloat z) { onApplicationMatrix<Op::glScalef>(x, y, z); }

void _glTranslated(GLdouble x, GLdouble y, GLdouble z)
{
    onApplicationMatrix<Op::glTranslated>(x, y, z);
}

void _glTranslatef(GLfloat x, GLfloat y, GLfloat z)
{
    onApplicationMatrix<Op::glTranslatef>(x, y, z);
}

void _glFrustum(GLdouble l, GLdouble r, GLdouble b, GLdouble t, GLdouble n, GLdouble f)
{
    onApplicationMatrix<Op::glFrustum>(l, r, b, t, n, f);
}

void _glOrtho(GLdouble l, GLdouble r, GLdouble b, GLdouble t, GLdouble n, GLdouble f)
{
    onApplicationMatrix<Op::glOrtho>(l, r, b, t, n, f);
}

void MM(char* s)
{
    showFrame();
    printMatrix(s, "PROJECTION", "", GL_PROJECTION_MATRIX);
    printMatrix(s, "MODELVIEW", "MOSA: ", GL_MODELVIEW_MATRIX);
    sleep(2);
    showFrame();
}
