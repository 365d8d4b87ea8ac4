// Installing the overloads.
#include "coding/server_overload/overloads.h"

#include "coding/server_overload/rasterPos.h"

#include <algorithm>

glOp pTbl[operationCount];

namespace {

// The entry must have the operation's own prototype.
template <Op op>
void install(glOp* tbl, Prototype<op>* overload)
{
    tbl[indexOf(op)] = reinterpret_cast<glOp>(overload);
}

// The raster positions are the 24 operations from glRasterPos2d to glRasterPos4sv.
template <int... i>
void installRasterPositions(glOp* tbl, std::integer_sequence<int, i...>)
{
    constexpr int first = indexOf(Op::glRasterPos2d);
    (install<Op{first + i}>(tbl, rasterPosOverload<Op{first + i}>), ...);
}

} // namespace

void Overload(glOp* tbl)
{
    std::copy_n(tbl, operationCount, pTbl);

    install<Op::glPointSize>(tbl, _glPointSize);
    install<Op::glScissor>(tbl, _glScissor);
    install<Op::glPushAttrib>(tbl, _glPushAttrib);
    install<Op::glPopAttrib>(tbl, _glPopAttrib);
    install<Op::glViewport>(tbl, _glViewport);

    install<Op::glMatrixMode>(tbl, _glMatrixMode);
    install<Op::glOrtho>(tbl, _glOrtho);
    install<Op::glFrustum>(tbl, _glFrustum);
    install<Op::glPushMatrix>(tbl, _glPushMatrix);
    install<Op::glPopMatrix>(tbl, _glPopMatrix);
    install<Op::glLoadIdentity>(tbl, _glLoadIdentity);
    install<Op::glLoadMatrixd>(tbl, _glLoadMatrixd);
    install<Op::glLoadMatrixf>(tbl, _glLoadMatrixf);
    install<Op::glMultMatrixd>(tbl, _glMultMatrixd);
    install<Op::glMultMatrixf>(tbl, _glMultMatrixf);
    install<Op::glRotated>(tbl, _glRotated);
    install<Op::glRotatef>(tbl, _glRotatef);
    install<Op::glScaled>(tbl, _glScaled);
    install<Op::glScalef>(tbl, _glScalef);
    install<Op::glTranslated>(tbl, _glTranslated);
    install<Op::glTranslatef>(tbl, _glTranslatef);

    constexpr int rasterPositions = indexOf(Op::glRasterPos4sv) - indexOf(Op::glRasterPos2d) + 1;
    installRasterPositions(tbl, std::make_integer_sequence<int, rasterPositions>{});
    install<Op::glBitmap>(tbl, _glBitmap);
    install<Op::glDrawPixels>(tbl, _glDrawPixels);

    install<Op::glGenTextures>(tbl, _glGenTextures);
    install<Op::glDeleteTextures>(tbl, _glDeleteTextures);
    install<Op::glBindTexture>(tbl, _glBindTexture);
    install<Op::glBindProgramARB>(tbl, _glBindProgramARB);
    install<Op::glDeleteProgramsARB>(tbl, _glDeleteProgramsARB);
    install<Op::glGenProgramsARB>(tbl, _glGenProgramsARB);

    install<Op::glXChooseVisual>(tbl, _glXChooseVisual);
    install<Op::glXCopyContext>(tbl, _glXCopyContext);
    install<Op::glXCreateContext>(tbl, _glXCreateContext);
    install<Op::glXDestroyContext>(tbl, _glXDestroyContext);
    install<Op::glXMakeCurrent>(tbl, _glXMakeCurrent);
    install<Op::glXSwapBuffers>(tbl, _glXSwapBuffers);
    install<Op::glXChooseFBConfig>(tbl, _glXChooseFBConfig);
    install<Op::glXCreateWindow>(tbl, _glXCreateWindow);
    install<Op::glXDestroyWindow>(tbl, _glXDestroyWindow);
    install<Op::glXCreatePbuffer>(tbl, _glXCreatePbuffer);
    install<Op::glXDestroyPbuffer>(tbl, _glXDestroyPbuffer);
    install<Op::glXCreateNewContext>(tbl, _glXCreateNewContext);
    install<Op::glXMakeContextCurrent>(tbl, _glXMakeContextCurrent);
    install<Op::glXSelectEvent>(tbl, _glXSelectEvent);
    install<Op::MWRaiseWindow>(tbl, _MWRaiseWindow);
}
