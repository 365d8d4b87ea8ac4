// A program for the tests of capturing: opens a window of 240 x 180 pixels, draws one scene in
// every frame and swaps, until it is ended or as often as its second argument says.
#define GL_GLEXT_PROTOTYPES
#include "keptScene.h"

#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr int width = 240, height = 180;
Display* dpy;
XVisualInfo* visual;
Window window;
GLXContext context;

Window openWindow(int w, int h, bool map)
{
    XSetWindowAttributes attributes{};
    attributes.colormap = XCreateColormap(dpy, DefaultRootWindow(dpy), visual->visual, AllocNone);
    attributes.override_redirect = True;
    const Window made = XCreateWindow(dpy, DefaultRootWindow(dpy), 0, 0, static_cast<unsigned>(w),
                                      static_cast<unsigned>(h), 0, visual->depth, InputOutput,
                                      visual->visual, CWColormap | CWOverrideRedirect, &attributes);
    if (map)
        XMapWindow(dpy, made);
    XSync(dpy, False);
    return made;
}

void chooseVisual(bool doubleBuffered)
{
    int attributes[] = {GLX_RGBA, GLX_RED_SIZE,     8, GLX_DEPTH_SIZE,
                        16,       GLX_STENCIL_SIZE, 1, doubleBuffered ? GLX_DOUBLEBUFFER : 0,
                        None};
    visual = glXChooseVisual(dpy, DefaultScreen(dpy), attributes);
    if (!visual)
        std::exit(3);
}

void pixelUnits()
{
    glViewport(0, 0, width, height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, width, 0, height, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
}

// ---- Scenes ------------------------------------------------------------------------------------

struct Vertex {
    GLubyte color[4];
    GLfloat pad;
    GLshort position[2];
};

// Eight triangles' corners in a row, from the third vertex on: what lies before is not to be used.
std::vector<Vertex> corners(int bottom)
{
    std::vector<Vertex> all(3, Vertex{{255, 255, 255, 255}, 0, {-999, -999}});
    for (int i = 0; i < 24; ++i)
        all.push_back({{static_cast<GLubyte>(10 * i), static_cast<GLubyte>(250 - 10 * i), 90, 255},
                       0,
                       {static_cast<GLshort>(8 + 27 * (i / 3) + 10 * (i % 3)),
                        static_cast<GLshort>(bottom + (i % 3 == 1 ? 24 : 0))}});
    return all;
}

void setArrays(const void* base)
{
    const auto* at = static_cast<const char*>(base);
    glColorPointer(4, GL_UNSIGNED_BYTE, sizeof(Vertex), at);
    glVertexPointer(2, GL_SHORT, sizeof(Vertex), at + offsetof(Vertex, position));
}

void arrays()
{
    static std::vector<Vertex> rows[6];
    for (int i = 0; i < 6; ++i)
        rows[i] = corners(4 + 29 * i);
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    setArrays(rows[0].data());
    glDrawArrays(GL_TRIANGLES, 3, 24);
    // Indices that neither begin at 0 nor use everything.
    setArrays(rows[1].data());
    const GLushort some[] = {3, 4, 5, 9, 10, 11, 21, 22, 23};
    glDrawElements(GL_TRIANGLES, 9, GL_UNSIGNED_SHORT, some);
    setArrays(rows[2].data());
    const GLint firsts[] = {3, 12};
    const GLsizei counts[] = {6, 9};
    glMultiDrawArrays(GL_TRIANGLES, firsts, counts, 2);
    // In a list they are read when it is compiled.
    setArrays(rows[3].data());
    glNewList(1, GL_COMPILE);
    glDrawRangeElements(GL_TRIANGLES, 3, 23, 9, GL_UNSIGNED_SHORT, some);
    glEndList();
    std::memset(static_cast<void*>(rows[3].data()), 0, rows[3].size() * sizeof(Vertex));
    glCallList(1);
    glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
    setArrays(rows[4].data());
    glBegin(GL_TRIANGLES);
    for (int i = 3; i < 27; ++i)
        glArrayElement(i);
    glEnd();
    glPopClientAttrib();
    // Buffer objects: data, a part of them, and a mapping.
    GLuint buffers[2];
    glGenBuffers(2, buffers);
    glBindBuffer(GL_ARRAY_BUFFER, buffers[0]);
    const auto bytes = static_cast<GLsizeiptr>(rows[5].size() * sizeof(Vertex));
    glBufferData(GL_ARRAY_BUFFER, bytes, nullptr, GL_STATIC_DRAW);
    glBufferSubData(GL_ARRAY_BUFFER, 0, bytes, rows[5].data());
    auto* mapped = static_cast<Vertex*>(glMapBuffer(GL_ARRAY_BUFFER, GL_READ_WRITE));
    mapped[11].color[2] = 255; // the first triangle's
    glUnmapBuffer(GL_ARRAY_BUFFER);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers[1]);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof some, some, GL_STATIC_DRAW);
    setArrays(nullptr);
    glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT, reinterpret_cast<void*>(3 * sizeof *some));
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    glDeleteBuffers(2, buffers);
    glDisableClientState(GL_VERTEX_ARRAY);
    glDisableClientState(GL_COLOR_ARRAY);
}

GLuint texture(GLuint name, int size, const std::vector<GLubyte>& rgb)
{
    glBindTexture(GL_TEXTURE_2D, name);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, size, size, 0, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    return name;
}

std::vector<GLubyte> ramp(int bytes, int step)
{
    std::vector<GLubyte> all;
    for (int i = 0; i < bytes; ++i)
        all.push_back(static_cast<GLubyte>(i * step));
    return all;
}

// Two units, each with coordinates of its own; names that no glGenTextures gave.
void multitexture()
{
    texture(700, 4, ramp(48, 5));
    glActiveTexture(GL_TEXTURE1);
    glClientActiveTexture(GL_TEXTURE1);
    texture(701, 2, ramp(12, 20));
    glEnable(GL_TEXTURE_2D);
    const GLfloat second[] = {0, 0, 2, 0, 2, 2, 0, 2};
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
    glTexCoordPointer(2, GL_FLOAT, 0, second);
    glActiveTexture(GL_TEXTURE0);
    glClientActiveTexture(GL_TEXTURE0);
    glEnable(GL_TEXTURE_2D);
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
    glEnableClientState(GL_VERTEX_ARRAY);
    const GLfloat first[] = {0, 0, 1, 0, 1, 1, 0, 1};
    const GLdouble positions[] = {20, 20, 220, 20, 220, 160, 20, 160};
    glTexCoordPointer(2, GL_FLOAT, 0, first);
    glVertexPointer(2, GL_DOUBLE, 0, positions);
    glDrawArrays(GL_QUADS, 0, 4);
}

// Images under all that the unpack state can say.
void images()
{
    const std::vector<GLubyte> wide = ramp(64 * 40, 7);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 17);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 2);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 3);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glRasterPos2i(10, 100);
    glPixelZoom(4, 4);
    glDrawPixels(9, 11, GL_RGB, GL_UNSIGNED_BYTE, wide.data());
    glRasterPos2i(112, 100); // the seam falls between two of its pixels
    glDrawPixels(10, 10, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV, wide.data());
    glPixelZoom(1, 1);
    glColor3f(1, 1, 0);
    glPixelStorei(GL_UNPACK_LSB_FIRST, 1);
    glRasterPos2i(160, 100);
    glBitmap(14, 12, 0, 0, 20, 0, wide.data());
    glPixelStorei(GL_UNPACK_LSB_FIRST, 0);
    glBitmap(14, 12, 0, 0, 20, 0, wide.data());
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelZoom(4, 4);
    glPixelStorei(GL_UNPACK_SWAP_BYTES, 1);
    glRasterPos2i(60, 100);
    glDrawPixels(9, 11, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, wide.data());
    glPixelStorei(GL_UNPACK_SWAP_BYTES, 0);
    glPixelZoom(1, 1);
    glPolygonStipple(wide.data());
    glEnable(GL_POLYGON_STIPPLE);
    glRecti(10, 10, 110, 90);
    glDisable(GL_POLYGON_STIPPLE);
    texture(9, 8, ramp(192, 3));
    glTexSubImage2D(GL_TEXTURE_2D, 0, 2, 2, 3, 4, GL_BGR, GL_UNSIGNED_BYTE, wide.data());
    glEnable(GL_TEXTURE_2D);
    glColor3f(1, 1, 1);
    glBegin(GL_QUADS);
    for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) {
        glTexCoord2i(x, y);
        glVertex2i(120 + 100 * x, 10 + 80 * y);
    }
    glEnd();
    glDisable(GL_TEXTURE_2D);
}

void boxAt(int x, int y)
{
    const GLfloat moved[] = {
        1, 0, 0, static_cast<GLfloat>(x), 0, 1, 0, static_cast<GLfloat>(y), 0, 0, 1, 0, 0, 0, 0, 1};
    glLoadTransposeMatrixf(moved);
    glRecti(0, 0, 40, 40);
    glLoadIdentity();
}

// What never reaches the wall, around what does.
void unseen()
{
    GLint value = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &value);
    glGetError();
    glColor3f(0, 1, 0);
    boxAt(20, 20);
    GLuint hits[64];
    glSelectBuffer(64, hits);
    glRenderMode(GL_SELECT);
    glInitNames();
    glPushName(1);
    boxAt(100, 100);
    glRenderMode(GL_RENDER);
    glXMakeCurrent(dpy, window, context);
    // Another window, smaller; its context and state are its own.
    static Window small = openWindow(60, 40, true);
    static GLXContext other = glXCreateContext(dpy, visual, nullptr, True);
    glXMakeCurrent(dpy, small, other);
    glClearColor(1, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glXSwapBuffers(dpy, small);
    XUnmapWindow(dpy, small);
    glXMakeCurrent(dpy, window, context);
    glColor3f(0, 0, 1);
    boxAt(160, 100);
}

// What servers would place where it stood when it was compiled, also within other lists.
void lists()
{
    static const GLubyte arrow[] = {0x18, 0x3c, 0x7e, 0xff, 0x18, 0x18, 0x18, 0x18};
    XFontStruct* const font = XLoadQueryFont(dpy, "fixed");
    if (!font)
        std::exit(4);
    glXUseXFont(font->fid, 32, 96, 1032);
    XFreeFont(dpy, font);
    glNewList(10, GL_COMPILE);
    glBitmap(8, 8, 0, 0, 10, 0, arrow);
    glEndList();
    glNewList(11, GL_COMPILE); // calls what is defined later
    glCallList(10);
    glCallList(12);
    glEndList();
    glNewList(12, GL_COMPILE);
    glRecti(0, 0, 12, 12);
    glEndList();
    glNewList(13, GL_COMPILE);
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glTranslatef(0.5F, 0, 0);
    glMatrixMode(GL_MODELVIEW);
    glColor3f(1, 0, 1);
    glRecti(10, 10, 60, 40);
    glMatrixMode(GL_PROJECTION);
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    glEndList();
    glColor3f(1, 1, 0);
    for (int i = 0; i < 5; ++i) {
        glRasterPos2i(20 + 40 * i, 60 + 12 * i);
        glCallList(11);
    }
    glCallList(13);
    glPushAttrib(GL_LIST_BIT);
    glListBase(1000);
    glRasterPos2i(10, 150);
    glCallLists(13, GL_UNSIGNED_BYTE, "Text in lists");
    glPopAttrib();
    glNewList(14, GL_COMPILE_AND_EXECUTE);
    glColor3f(0, 1, 1);
    glRasterPos2i(150, 20);
    glCallList(10);
    glRecti(180, 20, 200, 40);
    glEndList();
}

// What is latched with the raster position, and copies of what has been drawn.
void rasters()
{
    static const GLubyte arrow[] = {0x18, 0x3c, 0x7e, 0xff, 0x18, 0x18, 0x18, 0x18};
    const auto mark = [] { glBitmap(8, 8, 0, 0, 12, 0, arrow); };
    glColor3f(1, 0.5F, 0);
    glRecti(10, 10, 50, 50);
    // Places that rounding brings below the pixel.
    glLoadIdentity();
    glScaled(0.1, 0.1, 1);
    for (int i = 0; i < 16; ++i) {
        glRasterPos2f(100 + 130.0F * static_cast<float>(i) - 1e-4F, 1600);
        mark();
    }
    glLoadIdentity();
    // The color and the depth are those of when it was set.
    glColor3f(0, 1, 0);
    glRasterPos2i(20, 120);
    glColor3f(1, 0, 0);
    mark();
    mark();
    glRecti(50, 120, 58, 128);
    glEnable(GL_DEPTH_TEST);
    glRasterPos3f(80, 120, -0.5F);
    glColor3f(0.5F, 0.5F, 1);
    glRecti(70, 110, 90, 140);
    mark(); // behind
    glColor3f(1, 1, 0);
    glRasterPos3f(80, 130, 0.5F);
    mark();
    const GLubyte grey[8 * 8 * 3] = {};
    glDrawPixels(8, 8, GL_RGB, GL_UNSIGNED_BYTE, grey);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0);
    glRasterPos2i(150, 120);
    mark();
    glDisable(GL_LIGHTING);
    mark();
    glWindowPos2i(190, 120);
    mark();
    glRasterPos2i(-20, 120); // outside: nothing is drawn until it is set again
    mark();
    glBitmap(0, 0, 0, 0, 60, 0, nullptr);
    mark();
    glRasterPos2i(110, 20);
    glCopyPixels(8, 8, 30, 30, GL_COLOR);
    texture(20, 16, ramp(768, 5));
    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 4, 4, 46, 40, 8, 8);
    glBindTexture(GL_TEXTURE_2D, 21);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glCopyTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 44, 10, 16, 16, 0);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    for (int i = 0; i < 2; ++i) {
        glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(20 + i));
        glBegin(GL_QUADS);
        for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) {
            glTexCoord2i(x, y);
            glVertex2i(150 + 40 * i + 32 * x, 20 + 32 * y);
        }
        glEnd();
    }
    glDisable(GL_TEXTURE_2D);
}

// Widths in pixels.
void lines()
{
    const auto line = [](int x, int y, int toX, int toY) {
        glBegin(GL_LINES);
        glVertex2f(static_cast<GLfloat>(x) + 0.5F, static_cast<GLfloat>(y) + 0.5F);
        glVertex2f(static_cast<GLfloat>(toX) + 0.5F, static_cast<GLfloat>(toY) + 0.5F);
        glEnd();
    };
    glColor3f(1, 1, 1);
    line(10, 20, 230, 20);
    glEnable(GL_LINE_STIPPLE);
    glLineStipple(2, 0x0f0f);
    glPushAttrib(GL_LINE_BIT | GL_TRANSFORM_BIT);
    glLineWidth(4);
    line(130, 40, 230, 40);
    glMatrixMode(GL_PROJECTION);
    glPopAttrib();
    glTranslatef(0, 20, 0); // moves both only as the model's matrix, behind the other
    line(130, 40, 230, 40);
    glLoadIdentity();
    glDisable(GL_LINE_STIPPLE);
    glLineWidth(5);
    line(30, 80, 30, 170);
    glLineWidth(1);
    const auto points = [](int y) {
        glBegin(GL_POINTS);
        for (int i = 0; i < 12; ++i)
            glVertex2f(60.5F + 14 * static_cast<GLfloat>(i), static_cast<GLfloat>(y) + 0.5F);
        glEnd();
    };
    points(90);
    glPointSize(6);
    points(110);
    glPointParameterf(GL_POINT_SIZE_MAX, 4);
    points(130);
    glPointParameterf(GL_POINT_SIZE_MAX, 64);
    glPointSize(1);
}

// What crosses the seams of 2 x 2 and of 3 x 2 tiles, and would begin anew there.
void seams()
{
    glColor3f(1, 1, 1);
    glEnable(GL_LINE_STIPPLE);
    glLineStipple(3, 0x5f27);
    for (int i = 0; i < 6; ++i) {
        glLineWidth(static_cast<GLfloat>(1 + i));
        glBegin(GL_LINE_STRIP);
        glVertex2f(7.3F, static_cast<GLfloat>(4 + 11 * i));
        glVertex2f(230.9F, static_cast<GLfloat>(61 + 17 * i));
        glVertex2f(59.7F, 175);
        glEnd();
    }
    glDisable(GL_LINE_STIPPLE);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_LINE_SMOOTH);
    glLineWidth(7);
    glBegin(GL_LINES);
    glVertex2f(121, 170); // ends beside a seam
    glVertex2f(200, 91);
    glEnd();
    glDisable(GL_LINE_SMOOTH);
    glDisable(GL_BLEND);
    glLineWidth(1);
    glPointSize(15);
    glBegin(GL_POINTS);
    for (const auto& [x, y] : {std::pair{77, 20}, {163, 93}, {124, 150}, {30, 87}})
        glVertex2f(static_cast<GLfloat>(x), static_cast<GLfloat>(y));
    glEnd();
    glPointSize(1);
    std::vector<GLubyte> pattern(128);
    for (std::size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = static_cast<GLubyte>(i * 37);
    glPixelStorei(GL_UNPACK_LSB_FIRST, 1);
    glPolygonStipple(pattern.data());
    glPixelStorei(GL_UNPACK_LSB_FIRST, 0);
    glEnable(GL_POLYGON_STIPPLE);
    glColor3f(0, 1, 1);
    glRecti(70, 70, 180, 110);
    for (std::size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = i / 8 % 2 ? 0x33 : 0xcc; // repeats, and can be enlarged
    glPolygonStipple(pattern.data());
    glRecti(100, 10, 220, 40);
    glDisable(GL_POLYGON_STIPPLE);
}

// Viewports, scissor boxes and what a pop brings back of them; a curved surface.
void boxes()
{
    static constexpr int views[][4] = {
        {0, 0, 120, 90}, {30, 60, 150, 110}, {170, 100, 61, 73}, {-20, 120, 60, 90}};
    for (const auto& [x, y, w, h] : views) {
        glViewport(x, y, w, h);
        glColor3ub(static_cast<GLubyte>(2 * w), static_cast<GLubyte>(2 * h), 90);
        glRecti(20, 20, 220, 160);
    }
    glPushAttrib(GL_VIEWPORT_BIT | GL_CURRENT_BIT);
    glViewport(20, 20, 100, 150);
    glColor3f(1, 0, 0);
    glRecti(0, 0, 120, 180);
    glPushAttrib(GL_ENABLE_BIT); // the viewport set inside stays in force
    glViewport(100, 50, 120, 60);
    glPopAttrib();
    glColor3f(0, 1, 1);
    glRecti(20, 20, 200, 160);
    glPopAttrib();
    glRecti(200, 100, 230, 170);
    glViewport(0, 0, width, height);
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glScalef(0.5F, 0.5F, 1);
    glColor3f(1, 1, 0);
    glRecti(20, 140, 230, 175);
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
    glEnable(GL_SCISSOR_TEST);
    static constexpr int cuts[][4] = {
        {10, 10, 50, 160}, {100, 60, 130, 25}, {180, 5, 20, 50}, {500, 500, 10, 10}};
    for (const auto& [x, y, w, h] : cuts) {
        glScissor(x, y, w, h);
        glClearColor(static_cast<float>(x) / 255, 1, 0.5F, 1);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    glDisable(GL_SCISSOR_TEST);
    GLfloat surface[4][4][3];
    for (int v = 0; v < 4; ++v)
        for (int u = 0; u < 4; ++u) {
            const int place[] = {60 + 40 * u + 9 * (v % 2), 20 + 45 * v - 20 * (u % 3), 0};
            std::copy_n(place, 3, surface[v][u]);
        }
    glMap2f(GL_MAP2_VERTEX_3, 0, 1, 3, 4, 0, 1, 12, 4, surface[0][0]);
    glEnable(GL_MAP2_VERTEX_3);
    glMapGrid2f(16, 0, 1, 16, 0, 1);
    glEvalMesh2(GL_LINE, 0, 16, 0, 16);
    glDisable(GL_MAP2_VERTEX_3);
}

// ---- A context whose calls the wall does not carry ---------------------------------------------

template <class F>
F* entryPoint(const char* name)
{
    return reinterpret_cast<F*>(glXGetProcAddressARB(reinterpret_cast<const GLubyte*>(name)));
}

GLXContext modernContext()
{
    const int wanted[] = {GLX_VISUAL_ID, static_cast<int>(visual->visualid), None};
    const int version[] = {GLX_CONTEXT_MAJOR_VERSION_ARB,
                           3,
                           GLX_CONTEXT_MINOR_VERSION_ARB,
                           3,
                           GLX_CONTEXT_PROFILE_MASK_ARB,
                           GLX_CONTEXT_CORE_PROFILE_BIT_ARB,
                           None};
    int count = 0;
    GLXFBConfig* configs = glXGetFBConfigs(dpy, DefaultScreen(dpy), &count);
    GLXFBConfig config = nullptr;
    for (int i = 0; i < count && !config; ++i) {
        int id = 0;
        glXGetFBConfigAttrib(dpy, configs[i], GLX_VISUAL_ID, &id);
        config = id == wanted[1] ? configs[i] : nullptr;
    }
    auto* const create =
        entryPoint<GLXContext(Display*, GLXFBConfig, GLXContext, Bool, const int*)>(
            "glXCreateContextAttribsARB");
    GLXContext made = config && create ? create(dpy, config, nullptr, True, version) : nullptr;
    if (!made)
        std::exit(4);
    return made;
}

void clearTo(int x, int y, int w, int h, int shade)
{
    const auto level = [shade](int step) { return static_cast<float>(shade * step % 256) / 255; };
    glScissor(x, y, w, h);
    glClearColor(level(1), level(7), level(31), 1);
    glClear(GL_COLOR_BUFFER_BIT);
}

// Leaves state behind that reading back has to go round, and looks whether it is as it was.
void modernFrame(int frame)
{
    static GLuint framebuffer = 0, buffer = 0;
    if (frame == 0) {
        entryPoint<void(GLsizei, GLuint*)>("glGenFramebuffers")(1, &framebuffer);
        entryPoint<void(GLsizei, GLuint*)>("glGenBuffers")(1, &buffer);
    }
    const auto bind = [](GLuint toRead, GLuint toPack) {
        entryPoint<void(GLenum, GLuint)>("glBindFramebuffer")(GL_READ_FRAMEBUFFER, toRead);
        entryPoint<void(GLenum, GLuint)>("glBindBuffer")(GL_PIXEL_PACK_BUFFER, toPack);
    };
    bind(0, 0);
    glEnable(GL_SCISSOR_TEST);
    if (frame == 0) // both buffers
        for (int i = 0; i < 2; ++i) {
            clearTo(0, 0, width, height, 40);
            for (int y = 0; y < height; y += 5)
                for (int x = y % 3; x < width; x += 7)
                    clearTo(x, y, 1, 2, x + y);
            glXSwapBuffers(dpy, window);
        }
    clearTo(50, 60, 30, 20, 90 + frame);
    clearTo(width - 2, height - 1, 2, 1, 200 + frame);
    clearTo(0, 0, 1, 1, 120 + frame);
    const std::pair<GLenum, GLint> kept[] = {{GL_PACK_ROW_LENGTH, 300}, {GL_PACK_SKIP_PIXELS, 5}};
    for (const auto& [name, value] : kept)
        glPixelStorei(name, value);
    bind(framebuffer, buffer);
    glXSwapBuffers(dpy, window);
    bool asBefore = glGetError() == GL_NO_ERROR;
    const auto check = [&](GLenum name, GLint value) {
        GLint now = -1;
        glGetIntegerv(name, &now);
        asBefore &= now == value;
    };
    for (const auto& [name, value] : kept)
        check(name, value);
    check(GL_READ_FRAMEBUFFER_BINDING, static_cast<GLint>(framebuffer));
    check(GL_PIXEL_PACK_BUFFER_BINDING, static_cast<GLint>(buffer));
    if (!asBefore)
        std::exit(6);
}

// Buffers are the business of a thread's contexts, whatever they draw into.
void inSharing(void (*change)())
{
    static const Window small = openWindow(8, 8, false);
    static GLXContext sharing = glXCreateContext(dpy, visual, context, True);
    glXMakeCurrent(dpy, small, sharing);
    change();
    glXMakeCurrent(dpy, window, context);
}

void kept() { drawKeptScene(inSharing); }

struct Scene {
    const char* name;
    void (*draw)();
};
constexpr Scene scenes[] = {{"arrays", arrays},   {"multitexture", multitexture},
                            {"images", images},   {"lists", lists},
                            {"rasters", rasters}, {"lines", lines},
                            {"seams", seams},     {"unseen", unseen},
                            {"boxes", boxes},     {"kept", kept}};

// As toolkits do: a window and a context to find out what there is.
void probe()
{
    const Window small = openWindow(1, 1, false);
    GLXContext probing = glXCreateContext(dpy, visual, nullptr, True);
    glXMakeCurrent(dpy, small, probing);
    glClear(GL_COLOR_BUFFER_BIT);
    glXMakeCurrent(dpy, None, nullptr);
    glXDestroyContext(dpy, probing);
    XDestroyWindow(dpy, small);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string name = argc > 1 ? argv[1] : "";
    const int frames = argc > 2 ? std::atoi(argv[2]) : 0;
    if (name == "fork" && fork() > 0) // the child draws, its parent is done
        return 7;
    dpy = XOpenDisplay(nullptr);
    if (!dpy)
        return 2;
    const bool single = name == "single";
    chooseVisual(!single);
    probe();
    if (name == "forkMeanwhile") { // the child looks around, with a connection of its own
        if (fork() == 0) {
            dpy = XOpenDisplay(nullptr);
            chooseVisual(true);
            for (int i = 0; i < 12; ++i)
                probe();
            _exit(0);
        }
        wait(nullptr);
    }
    window = openWindow(width, height, false);
    const bool modern = name == "modern";
    context = modern ? modernContext() : glXCreateContext(dpy, visual, nullptr, True);
    glXMakeCurrent(dpy, window, context);
    if (modern) {
        XMapWindow(dpy, window);
        XSync(dpy, False);
        for (int frame = 0; frames == 0 || frame < frames; ++frame)
            modernFrame(frame);
        return 5;
    }
    glShadeModel(GL_FLAT); // before the window can be seen
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    XMapWindow(dpy, window);
    XSync(dpy, False);
    for (int frame = 0; frames == 0 || frame < frames; ++frame) {
        glClearColor(0.1F, 0.1F, 0.2F, 1);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        pixelUnits();
        for (const Scene& scene : scenes)
            if (name == scene.name)
                scene.draw();
        if (single || name == "fork")
            glRecti(20, 20, 120, 120);
        if (single) {
            glFlush();
            usleep(20'000);
        } else
            glXSwapBuffers(dpy, window);
    }
    return 5;
}
