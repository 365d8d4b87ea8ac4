// The second way to the wall, for contexts of which the stream cannot carry the calls: the finished
// picture is read back before it is swapped, and what has changed of it since the frame before goes
// to the wall as parts of a texture on a quad.
#pragma once

#include "wire/prototypes.h"

#include <vector>

/// A window's picture, as the wall has it.
struct ShownPicture {
    int width = 0, height = 0;               // pixels
    int textureWidth = 0, textureHeight = 0; // powers of two
    std::vector<unsigned char> shown, next;  // rows from the bottom, 4 bytes a pixel
    int onWallWidth = 0, onWallHeight = 0;   // pixels of the wall
    bool averaged = false;                   // drawn several times, see recordPicture
};

/// Records what the wall needs before the first picture of a size: state and the texture. The
/// picture has the second size in the viewport, which is the wall's pixels if the wall is known.
void describePicture(ShownPicture& picture, int width, int height, int onWallWidth,
                     int onWallHeight);

/// Reads the current context's picture back, from the front buffer or the back buffer, and records
/// what has changed, and the quad. The program's own state is as before.
void recordPicture(ShownPicture& picture, bool front);
