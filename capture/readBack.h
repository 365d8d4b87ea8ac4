// Reading pixels of the program's own window past what it has set for itself. The stacks of
// attributes are the program's: it may have filled them.
#pragma once

#include "capture/native.h"

#include <array>
#include <utility>

/// Parameters of pixel transfer, as they change nothing.
inline constexpr std::pair<GLenum, GLfloat> plainTransfer[] = {
    {GL_MAP_COLOR, 0.0F},   {GL_MAP_STENCIL, 0.0F}, {GL_INDEX_SHIFT, 0.0F}, {GL_INDEX_OFFSET, 0.0F},
    {GL_RED_SCALE, 1.0F},   {GL_GREEN_SCALE, 1.0F}, {GL_BLUE_SCALE, 1.0F},  {GL_ALPHA_SCALE, 1.0F},
    {GL_DEPTH_SCALE, 1.0F}, {GL_RED_BIAS, 0.0F},    {GL_GREEN_BIAS, 0.0F},  {GL_BLUE_BIAS, 0.0F},
    {GL_ALPHA_BIAS, 0.0F},  {GL_DEPTH_BIAS, 0.0F},
};
using SavedTransfer = std::array<GLfloat, std::size(plainTransfer)>;

/// Makes pixel transfer change nothing. Returns what it was.
SavedTransfer plainPixelTransfer();
void restorePixelTransfer(const SavedTransfer& saved);

/// The buffer object into which pixels would be read; 0 where there is none, or no such thing.
GLuint packBuffer();
void bindPackBuffer(GLuint name);

/// Reads pixels without gaps between rows.
void readPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type,
                void* to);
