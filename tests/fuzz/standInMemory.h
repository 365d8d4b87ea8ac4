// Client memory as a real library uses it: addresses that it was given stay in use, per context,
// for as long as OpenGL says; the elements that a draw reaches and every byte of an image is read.
// It follows the rules of OpenGL by itself, so that what the server forgets to check is found.
#pragma once

#include "wire/operations.h"

#include <optional>

namespace standIn {

/// Another context is current; null: none. 0 for one that has been destroyed or never was.
int use(GLXContext context);
GLXContext create();
void destroy(GLXContext context); // it lives on while it is current

/// All contexts are gone. `refusing`: client state is refused between glBegin and glEnd.
void reset(bool refusing);

void setPointer(Memory kind, unsigned index, GLint size, GLenum type, const void* pointer);
void setEnabled(GLenum array, bool enabled);
void setAttributeEnabled(GLuint index, bool enabled);
void setUnit(GLenum unit);
void setPixelStore(GLenum name, GLint value);
/// What is in force; nothing where the name is no parameter of the client's state. Between glBegin
/// and glEnd no question is answered.
std::optional<GLint> parameter(GLenum name);
bool answers();
GLboolean isEnabled(GLenum array);
void getPointer(GLenum name, void** pointer);
void getAttribute(GLuint index, GLenum name, GLint* value);
void getAttributePointer(GLuint index, GLenum name, void** pointer);
void push(GLbitfield mask);
void pop();
void begin();
void end();
void newList(GLuint list, GLenum mode);
void endList();
void callList(GLuint list);

void readElement(std::int64_t index);
void readRange(GLint first, GLsizei count);
void readElements(GLsizei count, GLenum type, const void* indices);
void readImage(int dimensions, GLsizei width, GLsizei height, GLsizei depth, GLenum format,
               GLenum type, const void* pixels);
/// The last value of an evaluator's points.
template <class T>
void readPoints(GLenum target, std::int64_t stride, std::int64_t order, std::int64_t secondStride,
                std::int64_t secondOrder, const T* points);

} // namespace standIn
