// The server's own functions behind 68 operations, and what they share. They map the application's
// handles to local ones, transform geometry to this tile, and reach the system library through
// pTbl. An overload has the operation's own parameters; handles among them are the application's.
// Decode thread only.
#pragma once

#include "coding/server_overload/lookups.h"
#include "coding/server_overload/system.h"

// ---- Visuals, configurations, contexts, pbuffers (visuals.cpp, contexts.cpp) -------------------

XVisualInfo* _glXChooseVisual(Display* appDisplay, int screen, int* attribList);
GLXFBConfig* _glXChooseFBConfig(Display* appDisplay, int screen, const int* attribList,
                                int* nelements);

/// `avis` carries the application's visual ID.
GLXContext _glXCreateContext(Display* appDisplay, XVisualInfo* avis, GLXContext shareList,
                             int direct);
GLXContext _glXCreateNewContext(Display* appDisplay, GLXFBConfig config, int renderType,
                                GLXContext shareList, int direct);
void _glXDestroyContext(Display* appDisplay, GLXContext ctx);
void _glXCopyContext(Display* appDisplay, GLXContext src, GLXContext dst, unsigned long mask);
GLXPbuffer _glXCreatePbuffer(Display* appDisplay, GLXFBConfig config, const int* attribList);
void _glXDestroyPbuffer(Display* appDisplay, GLXPbuffer pbuffer);

// ---- Drawables and windows (drawables.cpp, makeCurrent.cpp) ------------------------------------

extern int keep_aspect_ratio; // 1: the application's window keeps its shape on the wall
extern int firsttime;         // 1 until the user's preferences have been read

/// Makes, places and maps the local window and makes the drawable current.
void _createLocalDrawable(AppDisplay appDisplay, LocalDrawableInfo* ldi);

/// Reads MOSA_KEEP_ASPECT_RATIO.
void determineUsersWindowPreferences();

/// The local window's rectangle on this display, at the given pixel scale.
MWRect localWindowRect(const LocalDrawableInfo& ldi, float psx, float psy);

/// Upper edge of a local window as X counts it, downward from the top of the display.
int windowTop(const MWRect& lrect);

GLXWindow _glXCreateWindow(Display* appDisplay, GLXFBConfig config, Window window,
                           const int* attribList);
void _glXDestroyWindow(Display* appDisplay, GLXWindow window);
void _glXSelectEvent(Display* appDisplay, GLXDrawable drawable, unsigned long event_mask);
void _MWRaiseWindow(Window appWindow);
int _glXMakeCurrent(Display* appDisplay, GLXDrawable drawable, GLXContext ctx);
int _glXMakeContextCurrent(Display* appDisplay, GLXDrawable draw, GLXDrawable read, GLXContext ctx);
void _glXSwapBuffers(Display* appDisplay, GLXDrawable drawable);

// ---- Texture and program names (names.cpp) -----------------------------------------------------

void _glGenTextures(GLsizei n, GLuint* textures);
void _glDeleteTextures(GLsizei n, const GLuint* textures);
void _glBindTexture(GLenum target, GLuint textureName);
void _glGenProgramsARB(GLsizei n, GLuint* programs);
void _glDeleteProgramsARB(GLsizei n, const GLuint* programs);
void _glBindProgramARB(GLenum target, GLuint programName);

// ---- Tile geometry (tile.cpp) ------------------------------------------------------------------

void _scaleRect(MWRect in, float sx, float sy, MWRect* out);
void _translateRect(MWRect in, float tx, float ty, MWRect* out);

/// The whole-pixel part of `in` inside `clip`; (-1, -1, 1, 1) when nothing remains.
void _clipRect(MWRect in, MWRect clip, MWRect* out);

/// An application rectangle in wall coordinates, and the part of that which this display shows.
void _appRectToLocal(MWRect arect, MWRect* wrect, MWRect* cwrect);

/// Computes the pixel scale of a drawable from the application's window and the wall.
void _setTileTransform(LocalDrawableInfo* ldi);

/// Puts the tile's level on top of the projection stack, or takes it off. The level below is the
/// application's own projection, which the push reads back. The matrix mode must be GL_PROJECTION.
void _pushTileTransformation();
void _popTileTransformation();

// ---- Viewport, scissor, attribute stack (viewport.cpp, attributes.cpp) -------------------------

void lctxInitAttrStack(LocalContextInfo* lctx);
int* lctxGetTopVP(LocalContextInfo* lctx);
double* lctxGetTopRP(LocalContextInfo* lctx);
void lctxReplaceVP(LocalContextInfo* lctx, int x, int y, int w, int h);
void lctxReplaceRP(LocalContextInfo* lctx, double x, double y, double z, double w);
void lctxPushVP(LocalContextInfo* lctx, GLbitfield bits);

/// Pops, and applies again what the popped mask restores. The bottom element stays.
void lctxPopVP(LocalContextInfo* lctx);

void _glViewport(GLint x, GLint y, GLsizei width, GLsizei height);
void _glScissor(GLint x, GLint y, GLsizei width, GLsizei height);
void _glPushAttrib(GLbitfield b);
void _glPopAttrib();

// ---- Matrices (matrix.cpp) ---------------------------------------------------------------------

void _glMatrixMode(GLenum mode);
void _glLoadIdentity();
void _glLoadMatrixd(const GLdouble* m);
void _glLoadMatrixf(const GLfloat* m);
void _glMultMatrixd(const GLdouble* m);
void _glMultMatrixf(const GLfloat* m);
void _glRotated(GLdouble a, GLdouble x, GLdouble y, GLdouble z);
void _glRotatef(GLfloat a, GLfloat x, GLfloat y, GLfloat z);
void _glScaled(GLdouble x, GLdouble y, GLdouble z);
void _glScalef(GLfloat x, GLfloat y, GLfloat z);
void _glTranslated(GLdouble x, GLdouble y, GLdouble z);
void _glTranslatef(GLfloat x, GLfloat y, GLfloat z);
void _glPushMatrix();
void _glPopMatrix();
void _glFrustum(GLdouble l, GLdouble r, GLdouble b, GLdouble t, GLdouble n, GLdouble f);
void _glOrtho(GLdouble l, GLdouble r, GLdouble b, GLdouble t, GLdouble n, GLdouble f);

/// Shows the frame and prints the current matrices with a label. For a debugger.
void MM(char* s);

// ---- Raster position, pixels and bitmaps (rasterPos.cpp, pixels.cpp, bitmap.cpp) ---------------

/// Recomputes the tile raster position from the tracked raster position and the matrices.
void _setTileRP();

void _glPointSize(GLfloat size);
void _glRasterPos4dv(const GLdouble* v);
void _glDrawPixels(GLsizei width, GLsizei height, GLenum format, GLenum type, const GLvoid* pixels);
void _glBitmap(GLsizei width, GLsizei height, GLfloat xorig, GLfloat yorig, GLfloat xmove,
               GLfloat ymove, const GLubyte* bitmap);
