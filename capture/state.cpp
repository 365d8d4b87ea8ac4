// Operations that are more than a record of their own: state that the client keeps, what the stream
// has in another form, and the ends of frames.
#include "capture/contexts.h"
#include "capture/entries.h"
#include "capture/keptDraws.h"
#include "capture/keptImages.h"
#include "capture/strings.h"
#include "wire/sizes.h"

#include <algorithm>

namespace {

// ---- Viewport and scissor ----------------------------------------------------------------------

bool hasMargins()
{
    const Placement area = placementOf(currentWindowSize());
    return area.dx > 0 || area.dy > 0;
}

// An OpenGL as old as the program is told of has as many units as fixed functions and fragment
// programs can reach, and no others.
template <Op op>
void activeTexture(GLenum texture)
{
    static const auto units = static_cast<GLenum>(
        std::max(stateOf(GL_MAX_TEXTURE_COORDS, 8), stateOf(GL_MAX_TEXTURE_IMAGE_UNITS, 8)));
    if (hasContext() && !currentContext().asPicture && texture - GL_TEXTURE0 >= units)
        texture = 0; // refused
    pass<op>(texture);
}

// Names that have to be deleted when the wall's context is to serve another.
template <Op op>
void bindTexture(GLenum target, GLuint name)
{
    GLuint& most = currentContext().used.texture;
    most = std::max(most, name);
    record<Op::glBindTexture, Effect::defines>(target, name);
    callNative<op>(target, name);
}

void bindProgram(GLenum target, GLuint name)
{
    GLuint& most = currentContext().used.program;
    most = std::max(most, name);
    pass<Op::glBindProgramARB>(target, name);
}

void viewport(GLint x, GLint y, GLsizei width, GLsizei height)
{
    if (currentContext().inBegin)
        return callNative<Op::glViewport>(x, y, width, height);
    // A viewport that is new often means that the window's size is.
    thread_local GLint last[4];
    const GLint now[4] = {x, y, width, height};
    if (!isOnWall() || !std::equal(now, now + 4, last))
        reconsiderWindow();
    std::copy(now, now + 4, last);
    recordViewport(x, y, width, height);
    callNative<Op::glViewport>(x, y, width, height);
}

void scissor(GLint x, GLint y, GLsizei width, GLsizei height)
{
    callNative<Op::glScissor>(x, y, width, height);
    if (canAsk() && (currentContext().scissorOn || !hasMargins()))
        recordScissor();
}

// Where black is around the picture, the wall's scissor test is always on.
template <Op op>
void enable(GLenum what)
{
    if (what != GL_SCISSOR_TEST || !canAsk()) {
        pass<op>(what);
        return;
    }
    callNative<op>(what);
    currentContext().scissorOn = op == Op::glEnable;
    if (hasMargins())
        recordScissor();
    else
        record<op, Effect::state>(what);
}

void popAttrib()
{
    pass<Op::glPopAttrib>();
    if (!canAsk())
        return;
    currentContext().listBaseKnown = false;
    noteAttributesPopped();
    if (!currentContext().inList) // servers keep their matrix mode
        record<Op::glMatrixMode, Effect::state>(
            static_cast<GLenum>(stateOf(GL_MATRIX_MODE, GL_MODELVIEW)));
    currentContext().scissorOn = callNative<Op::glIsEnabled>(GLenum{GL_SCISSOR_TEST}) != 0;
    if (hasMargins())
        recordScissor();
}

// Its vector has no length on the wire.
void attribute4Nusv(GLuint index, const GLushort* v)
{
    const auto part = [v](int i) { return static_cast<GLfloat>(v[i]) / 65535.0F; };
    record<Op::glVertexAttrib4fARB, Effect::state>(index, part(0), part(1), part(2), part(3));
    callNative<Op::glVertexAttrib4NusvARB>(index, v);
}

void clear(GLbitfield mask)
{
    if (!isOnWall())
        reconsiderWindow();
    pass<Op::glClear>(mask);
}

// ---- Lists, modes, ends of frames --------------------------------------------------------------

// What switches recording is switched by what the library says, for it may have refused the call.
void newList(GLuint list, GLenum mode)
{
    callNative<Op::glNewList>(list, mode);
    if (canAsk() && !currentContext().inList && !currentContext().asPicture && list != 0 &&
        static_cast<GLuint>(stateOf(GL_LIST_INDEX)) == list) {
        GLuint& most = currentContext().used.list;
        most = std::max(most, list);
        beginList(list, mode);
    }
}

void endCurrentList()
{
    callNative<Op::glEndList>();
    if (canAsk() && currentContext().inList && stateOf(GL_LIST_INDEX) == 0)
        endList();
}

// Whether a call is performed now, not only compiled.
bool isPerformed(const Context& c) { return !c.inList || c.listMode != GL_COMPILE; }

void begin(GLenum mode)
{
    Context& c = currentContext();
    if (!c.listBaseKnown && canAsk()) {
        c.listBase = static_cast<GLuint>(stateOf(GL_LIST_BASE));
        c.listBaseKnown = true;
    }
    pass<Op::glBegin>(mode);
    c.inBegin = c.inBegin || (mode <= GL_POLYGON && isPerformed(c));
}

void end()
{
    pass<Op::glEnd>();
    Context& c = currentContext();
    if (isPerformed(c))
        c.inBegin = false;
}

void listBase(GLuint base)
{
    constexpr GLuint reach = 1 << 16; // of names of two bytes, in both directions
    if (base - (firstKeptDraw - reach) < mostKeptDraws + 2 * reach)
        noteListNames(firstKeptDraw, 1);
    pass<Op::glListBase>(base);
    currentContext().listBaseKnown = false;
}

void callList(GLuint list)
{
    currentContext().listBaseKnown = false; // it may set another
    recordCallList(list);
    callNative<Op::glCallList>(list);
}

void callLists(GLsizei n, GLenum type, const void* lists)
{
    currentContext().listBaseKnown = false;
    recordCallLists(n, type, lists);
    callNative<Op::glCallLists>(n, type, lists);
}

void deleteLists(GLuint list, GLsizei range)
{
    recordDeleteLists(list, range);
    callNative<Op::glDeleteLists>(list, range);
}

GLint renderMode(GLenum mode)
{
    const GLint result = callNative<Op::glRenderMode>(mode);
    if (canAsk()) {
        currentContext().renderMode = static_cast<GLenum>(stateOf(GL_RENDER_MODE, GL_RENDER));
        updateRecording();
    }
    return result;
}

void drawBuffer(GLenum buffer)
{
    pass<Op::glDrawBuffer>(buffer);
    if (canAsk())
        buffer = static_cast<GLenum>(stateOf(GL_DRAW_BUFFER, GL_BACK));
    currentContext().frontBuffer = buffer == GL_FRONT || buffer == GL_FRONT_LEFT ||
                                   buffer == GL_FRONT_AND_BACK || buffer == GL_LEFT;
}

// Without a swap the program's picture is there when it says so.
template <Op op>
void flush()
{
    const Context& c = currentContext();
    if (hasContext() && (!c.doubleBuffered || c.frontBuffer)) {
        record<Op::glFlush, Effect::draws>();
        endFrame(false);
    } else
        passOn();
    callNative<op>();
    holdAfterLastFrame();
}

// ---- Other forms -------------------------------------------------------------------------------

// The wall knows of matrices in one order only.
template <Op op, Op sent, class T>
void transposed(const T* m)
{
    T other[16];
    for (int i = 0; i < 16; ++i)
        other[i] = m[i % 4 * 4 + i / 4];
    record<sent, Effect::state>(other);
    callNative<op>(m);
}

template <Op op, class T>
void map1(GLenum target, T u1, T u2, GLint stride, GLint order, const T* points)
{
    if (const std::int64_t values = mapValues(target, stride, order); values > 0 && points)
        record<op, Effect::state>(target, u1, u2, stride, order,
                                  Block{points, static_cast<int>(values)});
    callNative<op>(target, u1, u2, stride, order, points);
}

template <Op op, class T>
void map2(GLenum target, T u1, T u2, GLint ustride, GLint uorder, T v1, T v2, GLint vstride,
          GLint vorder, const T* points)
{
    const std::int64_t values = mapValues(target, ustride, uorder, vstride, vorder);
    if (values > 0 && points)
        record<op, Effect::state>(target, u1, u2, ustride, uorder, v1, v2, vstride, vorder,
                                  Block{points, static_cast<int>(values)});
    callNative<op>(target, u1, u2, ustride, uorder, v1, v2, vstride, vorder, points);
}

void programString(GLenum target, GLenum format, GLsizei length, const void* text)
{
    if (length >= 0 && text)
        record<Op::glProgramStringARB, Effect::defines>(target, format, length,
                                                        Block{text, length});
    callNative<Op::glProgramStringARB>(target, format, length, text);
}

void deleteTexturesEXT(GLsizei n, const GLuint* names)
{
    if (n >= 0)
        record<Op::glDeleteTextures, Effect::defines>(n, names);
    callNative<Op::glDeleteTexturesEXT>(n, names);
}

void prioritizeTexturesEXT(GLsizei n, const GLuint* names, const GLclampf* priorities)
{
    if (n >= 0)
        record<Op::glPrioritizeTextures, Effect::defines>(n, names, priorities);
    callNative<Op::glPrioritizeTexturesEXT>(n, names, priorities);
}

const GLubyte* getString(GLenum name)
{
    const GLubyte* text = callNative<Op::glGetString>(name);
    return currentContext().asPicture ? text : carriedString(name, text);
}

// The client's own alone: images are sent packed.
template <Op op, class T>
void pixelStore(GLenum name, T value)
{
    callNative<op>(name, value);
}

} // namespace

void installState()
{
    install<Op::glActiveTexture>(activeTexture<Op::glActiveTexture>);
    install<Op::glActiveTextureARB>(activeTexture<Op::glActiveTextureARB>);
    install<Op::glBindTexture>(bindTexture<Op::glBindTexture>);
    install<Op::glBindTextureEXT>(bindTexture<Op::glBindTextureEXT>);
    install<Op::glBindProgramARB>(bindProgram);
    install<Op::glViewport>(viewport);
    install<Op::glScissor>(scissor);
    install<Op::glEnable>(enable<Op::glEnable>);
    install<Op::glDisable>(enable<Op::glDisable>);
    install<Op::glVertexAttrib4NusvARB>(attribute4Nusv);
    install<Op::glPopAttrib>(popAttrib);
    install<Op::glClear>(clear);
    install<Op::glBegin>(begin);
    install<Op::glEnd>(end);
    install<Op::glListBase>(listBase);
    install<Op::glNewList>(newList);
    install<Op::glEndList>(endCurrentList);
    install<Op::glCallList>(callList);
    install<Op::glDeleteLists>(deleteLists);
    install<Op::glCallLists>(callLists);
    install<Op::glRenderMode>(renderMode);
    install<Op::glDrawBuffer>(drawBuffer);
    install<Op::glFlush>(flush<Op::glFlush>);
    install<Op::glFinish>(flush<Op::glFinish>);
    install<Op::glPixelStoref>(pixelStore<Op::glPixelStoref, GLfloat>);
    install<Op::glPixelStorei>(pixelStore<Op::glPixelStorei, GLint>);
    install<Op::glGetString>(getString);

    install<Op::glLoadTransposeMatrixf>(
        transposed<Op::glLoadTransposeMatrixf, Op::glLoadMatrixf, GLfloat>);
    install<Op::glLoadTransposeMatrixd>(
        transposed<Op::glLoadTransposeMatrixd, Op::glLoadMatrixd, GLdouble>);
    install<Op::glMultTransposeMatrixf>(
        transposed<Op::glMultTransposeMatrixf, Op::glMultMatrixf, GLfloat>);
    install<Op::glMultTransposeMatrixd>(
        transposed<Op::glMultTransposeMatrixd, Op::glMultMatrixd, GLdouble>);
    install<Op::glLoadTransposeMatrixfARB>(
        transposed<Op::glLoadTransposeMatrixfARB, Op::glLoadMatrixf, GLfloat>);
    install<Op::glLoadTransposeMatrixdARB>(
        transposed<Op::glLoadTransposeMatrixdARB, Op::glLoadMatrixd, GLdouble>);
    install<Op::glMultTransposeMatrixfARB>(
        transposed<Op::glMultTransposeMatrixfARB, Op::glMultMatrixf, GLfloat>);
    install<Op::glMultTransposeMatrixdARB>(
        transposed<Op::glMultTransposeMatrixdARB, Op::glMultMatrixd, GLdouble>);

    install<Op::glMap1f>(map1<Op::glMap1f, GLfloat>);
    install<Op::glMap1d>(map1<Op::glMap1d, GLdouble>);
    install<Op::glMap2f>(map2<Op::glMap2f, GLfloat>);
    install<Op::glMap2d>(map2<Op::glMap2d, GLdouble>);
    install<Op::glProgramStringARB>(programString);
    install<Op::glDeleteTexturesEXT>(deleteTexturesEXT);
    install<Op::glPrioritizeTexturesEXT>(prioritizeTexturesEXT);
}
