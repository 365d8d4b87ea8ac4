// Prototypes of every operation that the server performs, from the system's OpenGL, GLX and X
// headers, and of the few that those headers no longer carry. Nothing here is ever linked: the
// functions are found at run time, only their types are used.
#pragma once

#define GL_GLEXT_PROTOTYPES
#define GLX_GLXEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>
#include <GL/glxext.h>

extern "C" {
void glDeleteObjectBufferATI(GLuint buffer);
void glDisableTraceMESA(GLbitfield mask);
void glEnableTraceMESA(GLbitfield mask);
void glEndTraceMESA(void);
void glTraceAssertAttribMESA(GLbitfield attribMask);
void MWRaiseWindow(Window appWindow);
}
