// What buffer objects hold.
#pragma once

#include "capture/arrays.h"

/// The contents of a buffer object, read back where they have changed unseen.
const std::vector<unsigned char>& contentsOf(const BufferPointer& object);

/// Where OpenGL reads `bytes` bytes of an image: at the program's pointer, or at that offset of the
/// buffer object that is bound for unpacking; null where that holds fewer.
const void* unpackSource(const void* pointer, std::int64_t bytes);

/// Some buffer object of the current context's group has been changed in a way that is not
/// followed: contents are read back when they are needed next.
void noteBuffersChanged();
